#ifndef TESTS_COMMON_ALLOCATIONPROBE_H_
#define TESTS_COMMON_ALLOCATIONPROBE_H_

#include <new>
#include <ostream>

#include "QDOException.h"

/// Counts the calls of operator new and operator delete in the test program, and makes chosen
/// allocations fail. Several threads may allocate at the same time.
class AllocationProbe {
 public:
  AllocationProbe() = delete;

  static long made();  ///< Returns the number of allocations since the start.
  static long live();  ///< Returns the number of allocations not yet freed.

  /// Passes `object` to code that the compiler cannot see. The compiler then keeps the allocations
  /// for an otherwise unused object.
  static void escape(const void* object);

  /// The exception of failNextOtherwise(), which is no standard exception.
  struct OtherError {};

  enum Mode { kOnce, kFromThenOn };
  /// Makes the `nth` allocation after this call throw std::bad_alloc. With kFromThenOn, all later
  /// allocations throw, too. 0 cancels the failure.
  static void failNth(long nth, Mode mode = kOnce);
  /// Makes the next allocation throw OtherError.
  static void failNextOtherwise();
};

enum class Outcome { Done, NotEnoughMemory, BadAlloc };

inline std::ostream& operator<<(std::ostream& out, Outcome outcome) {
  constexpr const char* kNames[] = {"done", "QDOException 1", "std::bad_alloc"};
  return out << kNames[static_cast<int>(outcome)];
}

/// Runs `operation` with a failure of its `nth` allocation. Returns Done if the operation makes
/// fewer allocations.
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
