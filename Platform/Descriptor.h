#ifndef PLATFORM_DESCRIPTOR_H_
#define PLATFORM_DESCRIPTOR_H_

#include <unistd.h>

#include <utility>

/// Owns and closes one POSIX file descriptor. A negative number is no descriptor and is never
/// closed. The result of close() is ignored: if write errors matter, call fsync() before the
/// destruction.
class Descriptor {
 public:
  /// Takes ownership of `descriptor`, which may be the -1 of a failed call. Does not change errno.
  explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(other.Release()) {}
  ~Descriptor() {
    if (descriptor_ >= 0) {
      close(descriptor_);
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&&) = delete;

  /// Returns whether the object has a descriptor.
  explicit operator bool() const noexcept { return descriptor_ >= 0; }
  int operator*() const noexcept { return descriptor_; }

  /// Returns the descriptor and gives up the ownership: the caller closes the descriptor.
  int Release() noexcept { return std::exchange(descriptor_, -1); }

 private:
  int descriptor_;
};

#endif  // PLATFORM_DESCRIPTOR_H_
