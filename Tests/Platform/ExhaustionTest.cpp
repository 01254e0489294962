// The allocation functions of the installer, which are this program's, too.

#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

constexpr int kAborted = 42;

// Volatile, so that no compiler sees through the allocations and leaves them out.
volatile std::size_t unavailable = PTRDIFF_MAX;
volatile std::size_t one = 1;
void* volatile block = nullptr;

/// Ends this process with kAborted, and without a word, where it would end with abort().
template <typename Act>
void ShowAbort(Act act) {
  std::signal(SIGABRT, [](int) { std::exit(kAborted); });
  act();
  std::exit(0);
}

#define EXPECT_ABORT(act) \
  EXPECT_EXIT(ShowAbort([] { act; }), testing::ExitedWithCode(kAborted), "^$")

TEST(ExhaustionTest, AllocationThatCannotBeHadAborts) {
  EXPECT_ABORT(block = std::malloc(unavailable));
  EXPECT_ABORT(block = std::calloc(one, unavailable));
  EXPECT_ABORT(block = std::realloc(std::malloc(one), unavailable));
}

TEST(ExhaustionTest, AllocationOfMoreElementsThanThereAreBytesAborts) {
  EXPECT_ABORT(block = std::calloc(unavailable, unavailable));
}

TEST(ExhaustionTest, NewThatCannotBeHadAborts) {
  EXPECT_ABORT(block = ::operator new(unavailable));
}

TEST(ExhaustionTest, BlocksAreThoseOfTheCLibrary) {
  auto* const zeros = static_cast<unsigned char*>(std::calloc(100, 10));
  for (int i = 0; i < 1000; ++i) {
    EXPECT_EQ(zeros[i], 0) << i;
  }
  zeros[999] = 7;
  auto* const moved = static_cast<unsigned char*>(std::realloc(zeros, 1000000));
  EXPECT_EQ(moved[999], 7);
  moved[999999] = 8;
  std::free(moved);
  auto* const other = static_cast<unsigned char*>(std::malloc(1000));
  other[999] = 9;
  std::free(other);
}

// It frees the block and gives none.
TEST(ExhaustionTest, ReallocationToNothingIsNoFailure) {
  volatile std::size_t nothing = 0;
  block = std::realloc(std::malloc(100), nothing);
  EXPECT_EQ(block, nullptr);
}

}  // namespace
