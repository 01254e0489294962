// Resource directories, metadata and extraction when the system refuses its calls.

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "FailingCall.h"
#include "InstallerUtils.h"
#include "MetadataHelper.h"
#include "OSUtils.h"
#include "Support.h"
#include "ZipBuilder.h"

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

TEST(FailingExtraction, FileThatCannotBeWrittenWholeIsKeptAndTheRestGoesOn) {
  constexpr std::size_t kPortion = 8192;
  constexpr int kPortions = 5;
  const ScopedDirectory directory;
  const std::string big(kPortion * kPortions, 'x');
  WriteFile(directory / "package", Zip({{"big", big}, {"small", "2"}}));
  std::string package = directory / "package";
  std::string destination = directory / "new";
  const FailingCall fault("fwrite", ENOSPC, 2, kPortions);
  EXPECT_TRUE(InstallerUtils::UncompressPackageFiles(package, destination));
  EXPECT_EQ(TreeOf(destination), (Tree{{"big", big.substr(0, kPortion)}, {"small", "2"}}));
}

TEST(FailingMetadata, FileThatCannotBeReadToItsEndHasNoWord) {
  const ScopedDirectory directory;
  WriteFile(directory / "metadata.txt", "word");
  EXPECT_EQ(MetadataHelper::LastWord(directory / "metadata.txt"), "word");
  const FailingCall fault("ferror", EIO);
  EXPECT_EQ(MetadataHelper::LastWord(directory / "metadata.txt"), "");
}

}  // namespace
