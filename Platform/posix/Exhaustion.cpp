// Memory that cannot be had ends the installer at once and silently, as faulty metadata does.
//
// These take the place of the C library's functions in the whole process, for the sake of the
// libraries in it. libplist does not look at what it is given: it would crash, print, or take a
// sound record for a damaged one. minizip would take the package for a missing one, and the run
// would put an empty directory in the place of the installed one.
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
