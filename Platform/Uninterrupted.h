#ifndef PLATFORM_UNINTERRUPTED_H_
#define PLATFORM_UNINTERRUPTED_H_

#include <cerrno>

/// Makes the system call `call` and repeats it while it fails with EINTR, at most 100 times:
/// signals that never end must not keep the process for ever. Returns what the last call returned;
/// a negative result is a failure.
template <typename Call>
auto Uninterrupted(Call call) {
  constexpr int kMostRepetitions = 100;
  auto result = call();
  for (int i = 0; result < 0 && errno == EINTR && i < kMostRepetitions; ++i) {
    result = call();
  }
  return result;
}

#endif  // PLATFORM_UNINTERRUPTED_H_
