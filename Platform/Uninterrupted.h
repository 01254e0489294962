#ifndef PLATFORM_UNINTERRUPTED_H_
#define PLATFORM_UNINTERRUPTED_H_

#include <unistd.h>

#include <cerrno>
#include <cstddef>

/// Makes the system call `call`, and repeats the call while the error is EINTR, at most 100 times.
/// The limit prevents an endless loop under endless signals. Returns the result of the last call. A
/// negative result is a failure.
template <typename Call>
auto Uninterrupted(Call call) {
  constexpr int kMostRepetitions = 100;
  auto result = call();
  for (int i = 0; result < 0 && errno == EINTR && i < kMostRepetitions; ++i) {
    result = call();
  }
  return result;
}

/// Reads `size` bytes from `offset` on into `buffer`, or fewer bytes at the end of the file.
/// Returns the number of bytes. Returns -1, with errno set, if a call fails.
inline ssize_t ReadAt(int file, off_t offset, char* buffer, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = Uninterrupted(
        [&] { return pread(file, buffer + done, size - done, offset + static_cast<off_t>(done)); });
    if (count < 0) {
      return -1;
    }
    if (count == 0) {
      break;
    }
    done += static_cast<std::size_t>(count);
  }
  return static_cast<ssize_t>(done);
}

/// Writes all `size` bytes. Returns false, with errno set, if a call fails.
inline bool WriteAll(int file, const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t count = Uninterrupted([&] { return write(file, bytes, size); });
    if (count < 0) {
      return false;
    }
    bytes += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

#endif  // PLATFORM_UNINTERRUPTED_H_
