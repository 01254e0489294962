// Resource directories, metadata and extraction with system calls that fail.

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "FailingCall.h"
#include "InstallerUtils.h"
#include "MetadataHelper.h"
#include "OSUtils.h"
#include "Support.h"
#include "ZipBuilder.h"

// The C++ library calls this function instead of the function of the C library. FailingCall.cpp
// reaches only the calls of the program itself.
extern "C" ssize_t read(int file, void* bytes, std::size_t size) {
  return FailingCall::Strikes("read") ? -1 : syscall(SYS_read, file, bytes, size);
}

// The linker calls these functions instead of the functions of the zip library (see
// FailingCall.cpp).
extern "C" {

void* __real_unzOpen(const char* path);
void* __wrap_unzOpen(const char* path) {
  return FailingCall::Strikes("unzOpen") ? nullptr : __real_unzOpen(path);
}

int __real_unzGetGlobalInfo(void* archive, void* info);
int __wrap_unzGetGlobalInfo(void* archive, void* info) {
  return FailingCall::Strikes("unzGetGlobalInfo") ? -1 : __real_unzGetGlobalInfo(archive, info);
}

}  // extern "C"

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
  EXPECT_EQ(TreeOf(directory / "").size(), 2U);  // one of the three directories, and its entry
}

TEST(FailingExtraction, FileThatCannotBeWrittenCompletelyIsKeptAndTheRestIsExtracted) {
  constexpr std::size_t kChunk = 8192;
  constexpr int kChunks = 5;
  const ScopedDirectory directory;
  const std::string big(kChunk * kChunks, 'x');
  WriteFile(directory / "package", Zip({{"big", big}, {"small", "2"}}));
  std::string package = directory / "package";
  std::string destination = directory / "new";
  const FailingCall fault("fwrite", ENOSPC, 2, kChunks);
  EXPECT_TRUE(InstallerUtils::UncompressPackageFiles(package, destination));
  EXPECT_EQ(TreeOf(destination), (Tree{{"big", big.substr(0, kChunk)}, {"small", "2"}}));
}

/// A package with the files "a" and "b", and a destination with a file "a".
class FailingRewriting : public testing::Test {
 protected:
  FailingRewriting() {
    WriteFile(package_, Zip({{"a", "new"}, {"b", "new"}}));
    std::filesystem::create_directory(destination_);
    WriteFile(destination_ + "/a", "old");
  }

  Tree Extracted() {
    std::filesystem::remove(destination_ + "/b");
    EXPECT_TRUE(InstallerUtils::UncompressPackageFiles(package_, destination_));
    return TreeOf(destination_);
  }

  const ScopedDirectory directory_;
  std::string package_ = directory_ / "package";
  std::string destination_ = directory_ / "out";
};

TEST_F(FailingRewriting, FileThatCannotBeTruncatedIsSkippedAndTheRestIsExtracted) {
  const int descriptors = OpenDescriptors();
  for (const char* function : {"open", "fstat", "ftruncate"}) {
    const FailingCall fault(function, EIO);
    EXPECT_EQ(Extracted(), (Tree{{"a", "old"}, {"b", "new"}})) << function;
  }
  const FailingCall fault("fdopen", ENOMEM);
  EXPECT_EQ(Extracted(), (Tree{{"a", ""}, {"b", "new"}}));
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(FailingRewriting, FileWithoutAReadableStatusIsReplaced) {
  std::filesystem::create_hard_link(destination_ + "/a", directory_ / "same");
  const FailingCall fault("lstat", EIO);
  EXPECT_EQ(Extracted(), (Tree{{"a", "new"}, {"b", "new"}}));
  EXPECT_EQ(ReadFile(directory_ / "same"), "old");
}

TEST_F(FailingRewriting, FileWithASecondNameMadeMeanwhileIsNotWritten) {
  const FailingCall fault("open", [this] {
    std::filesystem::create_hard_link(destination_ + "/a", directory_ / "same");
  });
  EXPECT_EQ(Extracted(), (Tree{{"a", "old"}, {"b", "new"}}));
  EXPECT_EQ(ReadFile(directory_ / "same"), "old");
}

class FailingPackage : public testing::Test {
 protected:
  FailingPackage() { WriteFile(package_, Zip({{"a", "1"}})); }

  const ScopedDirectory directory_;
  std::string package_ = directory_ / "package";
  std::string destination_ = directory_ / "out";
};

TEST_F(FailingPackage, OpeningIsNotRepeated) {
  const FailingCall fault("unzOpen", EINTR);
  EXPECT_TRUE(InstallerUtils::UncompressPackageFiles(package_, destination_));
  EXPECT_EQ(fault.Count(), 1);
  EXPECT_EQ(TreeOf(destination_), Tree());
}

TEST_F(FailingPackage, EntriesAreCountedOnceAndWhenTheDestinationExists) {
  const FailingCall question("unzGetGlobalInfo", [this] { EXPECT_TRUE(IsThere(destination_)); });
  EXPECT_TRUE(InstallerUtils::UncompressPackageFiles(package_, destination_));
  EXPECT_EQ(question.Count(), 1);
  EXPECT_EQ(TreeOf(destination_), (Tree{{"a", "1"}}));
}

TEST_F(FailingPackage, EntriesOfNoArchiveAreNotCounted) {
  package_ = directory_ / "none";
  const FailingCall question("unzGetGlobalInfo", EIO);
  EXPECT_TRUE(InstallerUtils::UncompressPackageFiles(package_, destination_));
  EXPECT_EQ(question.Count(), 0);
}

TEST_F(FailingPackage, EntriesThatCannotBeCountedAreNoEntries) {
  const FailingCall question("unzGetGlobalInfo", EIO);
  EXPECT_TRUE(InstallerUtils::UncompressPackageFiles(package_, destination_));
  EXPECT_EQ(question.Count(), 1);
  EXPECT_EQ(TreeOf(destination_), Tree());
}

/// A metadata file that needs several reads, and its words if those reads fail.
class FailingMetadata : public testing::Test {
 protected:
  FailingMetadata() { WriteFile(path_, std::string(100000, 'x') + " last"); }

  std::string TextWithReadsFailing(int error, int first, int last) {
    const FailingCall fault("read", error, first, last);
    const auto words = MetadataHelper::ReadWords(path_);
    EXPECT_GE(fault.Count(), first);
    EXPECT_EQ(words.count, words.last.empty() ? 0U : 2U);
    return words.Text();
  }

  const ScopedDirectory directory_;
  std::string path_ = directory_ / "metadata.txt";
};

TEST_F(FailingMetadata, FileThatCannotBeReadToItsEndHasNoWord) {
  EXPECT_EQ(TextWithReadsFailing(EIO, 1, INT_MAX), "");
  EXPECT_EQ(TextWithReadsFailing(EIO, 2, 2), "");
}

TEST_F(FailingMetadata, InterruptedReadIsRepeated) {
  EXPECT_EQ(TextWithReadsFailing(EINTR, 1, 1), "last");
  EXPECT_EQ(TextWithReadsFailing(EINTR, 2, 2), "last");
}

}  // namespace
