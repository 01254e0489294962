#ifndef TESTS_COMMON_ALLOCATIONPROBE_H_
#define TESTS_COMMON_ALLOCATIONPROBE_H_

#include <new>
#include <ostream>

#include "QDOException.h"

/// Sees every operator new and operator delete of the test program, and makes chosen ones fail.
class AllocationProbe {
 public:
  AllocationProbe() = delete;

  static long made();  ///< Allocations since the program began.
  static long live();  ///< Those not yet freed.

  /// Shows `object` to code that the compiler cannot see, so that it keeps the allocations made for
  /// an object that is not used otherwise.
  static void escape(const void* object);

  /// Thrown by an allocation that fails in an unexpected way; no standard exception.
  struct OtherError {};

  enum Mode { kOnce, kFromThenOn };
  /// The `nth` allocation from now on throws std::bad_alloc; 0 disarms.
  static void failNth(long nth, Mode mode = kOnce);
  /// The next allocation throws OtherError, once.
  static void failNextOtherwise();
};

enum class Outcome { Done, NotEnoughMemory, BadAlloc };

inline std::ostream& operator<<(std::ostream& out, Outcome outcome) {
  constexpr const char* kNames[] = {"done", "QDOException 1", "std::bad_alloc"};
  return out << kNames[static_cast<int>(outcome)];
}

/// Runs `operation` with its `nth` allocation failing. Done: it made fewer.
template <typename Operation>
Outcome AttemptFailingNth(long nth, Operation operation,
                          AllocationProbe::Mode mode = AllocationProbe::kOnce) {
  AllocationProbe::failNth(nth, mode);
  Outcome outcome = Outcome::Done;
  try {
    operation();
  } catch (const QDOException& error) {
    if (error.getCode() != 1) {
      throw;
    }
    outcome = Outcome::NotEnoughMemory;
  } catch (const std::bad_alloc&) {
    outcome = Outcome::BadAlloc;
  }
  AllocationProbe::failNth(0);
  return outcome;
}

#endif  // TESTS_COMMON_ALLOCATIONPROBE_H_
