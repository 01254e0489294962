#include "AllocationProbe.h"

#include <atomic>
#include <cstdlib>

namespace {

// Atomic, because one test has two threads.
std::atomic<long> g_made{0};
std::atomic<long> g_freed{0};
std::atomic<long> g_until_failure{0};
std::atomic<AllocationProbe::Mode> g_mode{AllocationProbe::kOnce};
std::atomic<bool> g_fail_otherwise{false};
std::atomic<const void*> g_escaped{nullptr};

void* Allocate(std::size_t size) noexcept {
  if (g_until_failure.load() > 0 && g_until_failure.fetch_sub(1) == 1) {
    g_until_failure = g_mode == AllocationProbe::kFromThenOn ? 1 : 0;
    return nullptr;
  }
  void* block = std::malloc(size > 0 ? size : 1);
  g_made += block != nullptr ? 1 : 0;
  return block;
}

void Free(void* block) noexcept {
  g_freed += block != nullptr ? 1 : 0;
  std::free(block);
}

}  // namespace

long AllocationProbe::made() {
  return g_made;
}

long AllocationProbe::live() {
  return g_made - g_freed;
}

void AllocationProbe::escape(const void* object) {
  g_escaped = object;
}

void AllocationProbe::failNth(long nth, Mode mode) {
  g_mode = mode;
  g_until_failure = nth;
}

void AllocationProbe::failNextOtherwise() {
  g_fail_otherwise = true;
}

void* operator new(std::size_t size) {
  if (g_fail_otherwise.exchange(false)) {
    throw AllocationProbe::OtherError();
  }
  if (void* block = Allocate(size)) {
    return block;
  }
  throw std::bad_alloc();
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}

void operator delete(void* block) noexcept {
  Free(block);
}

void operator delete(void* block, std::size_t) noexcept {
  Free(block);
}

void operator delete(void* block, const std::nothrow_t&) noexcept {
  Free(block);
}
