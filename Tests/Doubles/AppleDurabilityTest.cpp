// The synchronization of a Mac, with doubles of the two calls. The doubles record their arguments.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <string>
#include <vector>

#include "Durability.h"

namespace {

std::vector<std::string> asked;  // the calls and their arguments
int result = 0;                  // the error number of a failed call
int failures = 0;                // the number of calls that fail

/// Records the call. Returns whether the call fails.
bool Fails(const std::string& call) {
  asked.push_back(call);
  return failures-- > 0;
}

}  // namespace

// As on a Mac, the call returns the error number and does not change errno.
int sync_volume_np(const char* path, int flags) {
  return Fails(std::string(path) + " " + std::to_string(flags)) ? result : 0;
}

extern "C" int __wrap_fcntl(int /*file*/, int command, ...) {
  if (Fails("fcntl " + std::to_string(command))) {
    errno = result;
    return -1;
  }
  return 0;
}

extern "C" int __wrap_fsync(int /*file*/) {
  asked.emplace_back("fsync");
  return 0;
}

namespace {

using Calls = std::vector<std::string>;

Calls CallsFor(int error, int count, void (*act)()) {
  asked.clear();
  result = error;
  failures = count;
  act();
  return asked;
}

void SyncVolume() {
  errno = 0;
  Durability::SyncFileSystem("/Library");
}

bool synced = false;

void SyncFile() {
  synced = Durability::SyncFile(STDIN_FILENO);
}

constexpr int kFullSync = 51;  // F_FULLFSYNC

TEST(AppleDurability, VolumeIsSyncedToThePlatterAndWaitedFor) {
  EXPECT_EQ(CallsFor(0, 0, SyncVolume), Calls{"/Library 3"});
}

TEST(AppleDurability, InterruptedCallIsRepeatedAndAnotherFailureIsNot) {
  EXPECT_EQ(CallsFor(EINTR, 3, SyncVolume), Calls(4, "/Library 3"));
  EXPECT_EQ(CallsFor(EIO, 3, SyncVolume), Calls{"/Library 3"});
  EXPECT_EQ(CallsFor(EINTR, 1000, SyncVolume).size(), 101U);
}

TEST(AppleDurability, FileIsSyncedThroughTheDrivesCache) {
  EXPECT_EQ(CallsFor(0, 0, SyncFile), Calls{"fcntl " + std::to_string(kFullSync)});
  EXPECT_TRUE(synced);
  EXPECT_EQ(CallsFor(EINTR, 1, SyncFile).size(), 2U);
  EXPECT_TRUE(synced);
}

TEST(AppleDurability, FileIsSyncedOtherwiseOnlyWhereTheFileSystemDoesNotKnowTheCall) {
  const std::string full = "fcntl " + std::to_string(kFullSync);
  for (const int error : {ENOTSUP, ENOTTY, EINVAL}) {
    EXPECT_EQ(CallsFor(error, 1, SyncFile), (Calls{full, "fsync"})) << error;
    EXPECT_TRUE(synced);
  }
  EXPECT_EQ(CallsFor(EIO, 1, SyncFile), Calls{full});
  EXPECT_FALSE(synced);
  EXPECT_EQ(errno, EIO);
}

}  // namespace
