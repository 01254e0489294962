// A failed allocation ends the installer at once and silently, as faulty metadata does.
//
// These functions replace those of the C library in the whole process, because of the libraries in
// it. libplist does not check its allocations: it would crash, print, or treat a sound record as a
// damaged one. minizip would treat the package as missing, and the run would put an empty directory
// in the place of the installed one.
#include <dlfcn.h>

#include <cstddef>
#include <cstdlib>

namespace {

template <typename Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void* OrAbort(void* block) {
  return block != nullptr ? block : (std::abort(), nullptr);
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
  static const auto next = Next<void*(std::size_t)>("malloc");
  return OrAbort(next(size));
}

void* calloc(std::size_t count, std::size_t size) {
  static const auto next = Next<void*(std::size_t, std::size_t)>("calloc");
  return OrAbort(next(count, size));
}

void* realloc(void* block, std::size_t size) {
  static const auto next = Next<void*(void*, std::size_t)>("realloc");
  void* const moved = next(block, size);
  return size > 0 ? OrAbort(moved) : moved;
}

}  // extern "C"
