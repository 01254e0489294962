// Property-list files with system calls that fail, one after the other.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include "FailingCall.h"
#include "PropertyListFile.h"
#include "TestFiles.h"

namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

constexpr int kInterruptionsBorne = 100;

class PropertyListFileFailuresTest : public testing::Test {
 protected:
  PropertyListFileFailuresTest() {
    EXPECT_TRUE(Set("old", 1));
    old_ = Bytes();
  }

  bool Set(const std::string& key, int number) const {
    return ChangePropertyList(path_, {{key, number}}, Emptied::Keep);
  }
  bool Has(const std::string& key) const {
    return ReadPropertyList(path_).value_or(PropertyList()).Values().count(key) != 0;
  }

  /// Returns whether a change succeeds while the calls from `first` to `last` of `function` fail.
  bool SetsWith(const char* function, int error, int first = 1, int last = INT_MAX) const {
    const FailingCall fault(function, error, first, last);
    const bool isSet = Set("new", 1);
    EXPECT_GE(fault.Count(), first) << function;
    return isSet;
  }

  /// Expects that a change fails with that call and leaves the file, the directory and the
  /// descriptors.
  void ExpectFailure(const char* function, int error) const {
    const int descriptors = Descriptors();
    EXPECT_FALSE(SetsWith(function, error, 1, 1)) << function;
    EXPECT_EQ(descriptors, Descriptors()) << function;
    EXPECT_EQ(old_, Bytes()) << function;
    EXPECT_EQ(Names{"x.plist"}, NamesLeft()) << function;
  }

  std::string Bytes() const {
    std::ifstream file(path_);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  Names NamesLeft() const {
    Names names;
    for (const auto& entry : fs::directory_iterator(root_)) {
      names.insert(entry.path().filename());
    }
    return names;
  }
  static int Descriptors() {
    int count = 0;
    for (int descriptor = 0; descriptor < 64; ++descriptor) {
      count += fcntl(descriptor, F_GETFD) >= 0 ? 1 : 0;
    }
    return count;
  }

  ScopedDirectory directory_;
  fs::path root_ = directory_ / "";
  std::string path_ = directory_ / "x.plist";
  std::string old_;
};

TEST_F(PropertyListFileFailuresTest, FailedCallFailsTheChangeAndKeepsTheFile) {
  ExpectFailure("fstat", EIO);
  ExpectFailure("pread", EIO);
  ExpectFailure("getrandom", ENOSYS);
  ExpectFailure("write", ENOSPC);
  ExpectFailure("fchmod", EPERM);
  ExpectFailure("fsync", EIO);
  ExpectFailure("renameat", EACCES);
}

TEST_F(PropertyListFileFailuresTest, TruncatedRandomNumberFailsTheChange) {
  ExpectFailure("getrandom", FailingCall::kShort);
}

TEST_F(PropertyListFileFailuresTest, FileThatCannotBeReadReadsAsEmptyAndFailsAFlushOfNothing) {
  for (const char* function : {"fstat", "pread"}) {
    const FailingCall fault(function, EIO);
    EXPECT_FALSE(Has("old")) << function;
    EXPECT_FALSE(ReadPropertyList(path_)) << function;
  }
}

TEST_F(PropertyListFileFailuresTest, NewFileThatCannotBeWrittenFailsTheChangeAndLeavesNoFile) {
  fs::remove(path_);
  EXPECT_FALSE(SetsWith("write", ENOSPC));
  EXPECT_EQ(Names{}, NamesLeft());
}

// The last sync is the sync of the directory. The new file is then in place.
TEST_F(PropertyListFileFailuresTest, FailedSyncOfTheDirectoryFailsTheChange) {
  EXPECT_FALSE(SetsWith("fsync", EIO, 2, 2));
  EXPECT_TRUE(Has("old"));
  EXPECT_TRUE(Has("new"));
  EXPECT_EQ(Names{"x.plist"}, NamesLeft());
}

TEST_F(PropertyListFileFailuresTest, FileAndDirectoryAreSynchronized) {
  const FailingCall observed("fsync", EIO, INT_MAX);
  EXPECT_TRUE(Set("new", 1));
  EXPECT_EQ(2, observed.Count());
}

TEST_F(PropertyListFileFailuresTest, FileWithoutKeysIsRemovedAndTheRemovalIsSynchronized) {
  const auto removes = [this](const char* function) {
    const FailingCall fault(function, EIO);
    return ChangePropertyList(path_, {{"old", std::nullopt}}, Emptied::Remove);
  };
  EXPECT_FALSE(removes("unlinkat"));
  EXPECT_EQ(old_, Bytes());
  EXPECT_FALSE(removes("fsync"));
  EXPECT_EQ(Names{}, NamesLeft());
}

// The mode of the file must also be synced before the rename.
TEST_F(PropertyListFileFailuresTest, FileIsCompleteAndHasItsModeBeforeTheSyncAndTheRename) {
  const FailingCall observed("fsync", EIO, INT_MAX);
  EXPECT_TRUE(Set("new", 1));
  const std::string end = "openat write fchmod fsync renameat fsync ";
  ASSERT_GE(observed.Calls().size(), end.size());
  EXPECT_EQ(observed.Calls().substr(observed.Calls().size() - end.size()), end);
}

TEST_F(PropertyListFileFailuresTest, TemporaryFileIsNewAndClosedToOthers) {
  const FailingCall observed("openat", EIO, INT_MAX);
  EXPECT_TRUE(Set("new", 1));
  EXPECT_NE(observed.CreationFlags() & O_EXCL, 0);
  EXPECT_NE(observed.CreationFlags() & O_NOFOLLOW, 0);
  EXPECT_EQ(observed.CreationMode() & 077U, 0U);
}

TEST_F(PropertyListFileFailuresTest, InterruptedCallsAreRepeatedAHundredTimes) {
  for (const char* function : {"pread", "write", "fsync", "getrandom"}) {
    EXPECT_TRUE(SetsWith(function, EINTR, 1, kInterruptionsBorne)) << function;
  }
}

TEST_F(PropertyListFileFailuresTest, SuccessfulCallAfterAnInterruptionIsNotRepeated) {
  const FailingCall fault("fsync", EINTR, 1, 1);
  EXPECT_TRUE(Set("new", 1));
  EXPECT_EQ(3, fault.Count());  // two syncs of the file, one sync of the directory
}

TEST_F(PropertyListFileFailuresTest, CallThatIsAlwaysInterruptedFails) {
  for (const char* function : {"pread", "write", "fsync", "getrandom"}) {
    EXPECT_FALSE(SetsWith(function, EINTR, 1, kInterruptionsBorne + 1)) << function;
  }
  EXPECT_EQ(old_, Bytes());
  EXPECT_EQ(Names{"x.plist"}, NamesLeft());
}

TEST_F(PropertyListFileFailuresTest, OtherErrorsAreNotTriedAgain) {
  for (const char* function : {"pread", "write", "fsync", "getrandom"}) {
    const FailingCall fault(function, EAGAIN);
    EXPECT_FALSE(Set("new", 1)) << function;
    EXPECT_EQ(1, fault.Count()) << function;
  }
}

TEST_F(PropertyListFileFailuresTest, BytesTransferredInPartsAreComplete) {
  const std::string text(100000, 'x');
  for (const char* function : {"pread", "write"}) {
    const FailingCall fault(function, FailingCall::kShort);
    ASSERT_TRUE(ChangePropertyList(path_, {{"text", text}}, Emptied::Keep)) << function;
    const auto contents = ReadPropertyList(path_)->Values();
    EXPECT_EQ(1U, contents.count("old"));
    EXPECT_EQ(text, contents.at("text").text) << function;
    EXPECT_GT(fault.Count(), 2) << function;
  }
}

TEST_F(PropertyListFileFailuresTest, LockIsTriedOnce) {
  for (const int error : {EWOULDBLOCK, EINTR, ENOLCK}) {
    std::ofstream(path_ + ".tmp-1") << "another writer's";
    const FailingCall fault("flock", error);
    EXPECT_TRUE(Set("new", error));
    EXPECT_EQ(1, fault.Count());
    EXPECT_EQ((Names{"x.plist", "x.plist.tmp-1"}), NamesLeft());
  }
}

TEST_F(PropertyListFileFailuresTest, DirectoryThatCannotBeListedKeepsItsLeftovers) {
  std::ofstream(path_ + ".tmp-1") << "left";
  const int descriptors = Descriptors();
  EXPECT_TRUE(SetsWith("opendir", ENOMEM));
  EXPECT_EQ(descriptors, Descriptors());
  EXPECT_TRUE(Has("new"));
  EXPECT_EQ((Names{"x.plist", "x.plist.tmp-1"}), NamesLeft());
}

TEST_F(PropertyListFileFailuresTest, CorruptFileThatCannotBeRenamedFailsImmediatelyAndStays) {
  std::ofstream(path_) << "corrupt";
  const FailingCall fault("renameat2", EACCES);
  EXPECT_FALSE(Set("new", 1));
  EXPECT_EQ(1, fault.Count());
  EXPECT_EQ("corrupt", Bytes());
  EXPECT_EQ(Names{"x.plist"}, NamesLeft());
}

TEST_F(PropertyListFileFailuresTest, DirectoryThatCannotBeMadeFails) {
  path_ = root_ / "a/b/y.plist";
  EXPECT_FALSE(SetsWith("mkdir", EACCES));
  EXPECT_FALSE(fs::exists(root_ / "a"));
}

TEST_F(PropertyListFileFailuresTest, DirectoryWhoseModeCannotBeSetFails) {
  path_ = root_ / "a/b/y.plist";
  EXPECT_FALSE(SetsWith("chmod", EPERM));
  EXPECT_FALSE(fs::exists(root_ / "a/b"));
}

}  // namespace
