// The directory is opened, and its file system is synced once.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "Durability.h"
#include "FailingCall.h"

namespace {

constexpr int kMostRepetitions = 100;

/// Returns the number of syncs for one call with `path`. The first `failures` syncs fail with
/// `error`.
int Synchronizations(const char* path, int error = EIO, int failures = 0) {
  const FailingCall fault("syncfs", error, failures > 0 ? 1 : INT_MAX, failures);
  Durability::SyncFileSystem(path);
  return fault.Count();
}

TEST(DurabilityTest, FileSystemIsSynchronizedOnce) {
  EXPECT_EQ(Synchronizations("/tmp"), 1);
  EXPECT_EQ(Synchronizations("/tmp/"), 1);
}

TEST(DurabilityTest, PathThatIsNoDirectoryIsIgnored) {
  EXPECT_EQ(Synchronizations("/tmp/missing/directory"), 0);
  EXPECT_EQ(Synchronizations("/dev/null"), 0);
  EXPECT_EQ(Synchronizations(""), 0);
}

TEST(DurabilityTest, InterruptedCallIsRepeatedAHundredTimes) {
  EXPECT_EQ(Synchronizations("/tmp", EINTR, 1), 2);
  EXPECT_EQ(Synchronizations("/tmp", EINTR, kMostRepetitions), kMostRepetitions + 1);
  EXPECT_EQ(Synchronizations("/tmp", EINTR, INT_MAX), kMostRepetitions + 1);
}

TEST(DurabilityTest, OtherFailuresAreSilentAndNotRepeated) {
  EXPECT_EQ(Synchronizations("/tmp", EIO, INT_MAX), 1);
}

TEST(DurabilityTest, NoDescriptorStaysOpen) {
  const int before = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(before);
  Synchronizations("/tmp");
  const int after = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(after);
  EXPECT_EQ(before, after);
}

}  // namespace
