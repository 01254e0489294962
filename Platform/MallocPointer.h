#ifndef PLATFORM_MALLOCPOINTER_H_
#define PLATFORM_MALLOCPOINTER_H_

#include <cstdlib>
#include <memory>

struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};

/// Owns memory that a C function allocated with malloc() and that the caller must free().
template <typename T>
using MallocPointer = std::unique_ptr<T, FreeMemory>;

#endif  // PLATFORM_MALLOCPOINTER_H_
