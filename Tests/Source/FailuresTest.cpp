// Resource directories and metadata when the system refuses its calls.

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "FailingCall.h"
#include "MetadataHelper.h"
#include "OSUtils.h"
#include "Support.h"

namespace {

TEST(FailingDirectories, DirectoryThatCannotBeListedStaysAndNoDescriptorIsLeftOpen) {
  const ScopedDirectory directory;
  std::filesystem::create_directories(directory / "a/b");
  const int descriptors = OpenDescriptors();
  {
    const FailingCall fault("fdopendir", ENOMEM);
    EXPECT_TRUE(OSUtils::DeleteDir(directory / "a"));
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_EQ(TreeOf(directory / ""), (Tree{{"a/", ""}, {"a/b/", ""}}));
}

TEST(FailingDirectories, DirectoryThatCannotBeListedDoesNotStopTheOthers) {
  const ScopedDirectory directory;
  for (const char* name : {"a/x", "b/x", "c/x"}) {
    std::filesystem::create_directories(directory / name);
  }
  {
    const FailingCall fault("fdopendir", ENOMEM, 1, 1);
    EXPECT_TRUE(OSUtils::DeleteAllDirectoryExceptOne(directory / "/", ""));
  }
  EXPECT_EQ(TreeOf(directory / "").size(), 2U);  // one of the three, and its entry
}

TEST(FailingMetadata, FileThatCannotBeReadToItsEndHasNoWord) {
  const ScopedDirectory directory;
  WriteFile(directory / "metadata.txt", "word");
  EXPECT_EQ(MetadataHelper::LastWord(directory / "metadata.txt"), "word");
  const FailingCall fault("ferror", EIO);
  EXPECT_EQ(MetadataHelper::LastWord(directory / "metadata.txt"), "");
}

}  // namespace
