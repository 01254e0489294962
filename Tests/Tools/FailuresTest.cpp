// What the command does when the system refuses its calls: it says so, and leaves no trace.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "ArchiveLayout.h"
#include "ArchiveWriter.h"
#include "AtomicFile.h"
#include "Check.h"
#include "Error.h"
#include "FailingCall.h"
#include "FileTree.h"
#include "Files.h"
#include "PackageReader.h"
#include "Prediction.h"
#include "SourceTree.h"
#include "Support.h"
#include "ZipBuilder.h"

namespace {

/// What the Error of `call` says; empty if it throws none.
template <typename Call>
std::string Complaint(Call call) {
  try {
    call();
  } catch (const Error& error) {
    return error.what();
  }
  return {};
}

/// The same, while all calls of `function` fail, from the `first` one on.
template <typename Call>
std::string ComplaintWithout(const char* function, Call call, int first = 1) {
  const FailingCall fault(function, EIO, first);
  return Complaint(call);
}

const char kInputOutputError[] = "Input/output error";

#define EXPECT_COMPLAINT(complaint) \
  EXPECT_NE((complaint).find(kInputOutputError), std::string::npos)

/// A directory with the file "f", which holds "old".
class FailuresTest : public testing::Test {
 protected:
  FailuresTest() { WriteFile(file_, "old"); }

  Tree Files() const { return TreeOf(directory_ / ""); }

  const ScopedDirectory directory_;
  const std::string file_ = directory_ / "f";
  const Tree before_ = {{"f", "old"}};
};

TEST_F(FailuresTest, DirectoryThatCannotBeListedToItsEndIsNotTakenForAShortOne) {
  EXPECT_COMPLAINT(ComplaintWithout(
      "readdir", [&] { NamesIn(directory_ / ""); }, 2));
}

TEST_F(FailuresTest, FileThatCannotBeLookedAtIsNotTakenForAMissingOne) {
  EXPECT_COMPLAINT(ComplaintWithout("lstat", [&] { Exists(file_); }));
  EXPECT_COMPLAINT(ComplaintWithout("stat", [&] { StateOf(file_); }));
  EXPECT_COMPLAINT(ComplaintWithout("lstat", [&] { ReadTree(directory_ / "", Checksum::None); }));
}

TEST_F(FailuresTest, FileThatDisappearsMeanwhileIsNotInTheTree) {
  const FailingCall fault("lstat", ENOENT, 2);  // not of the top
  const FileTree tree = ReadTree(directory_ / "", Checksum::None);
  EXPECT_EQ(tree.size(), 1U);
}

TEST_F(FailuresTest, VolumeWithoutAnswerHasNoKnownSpace) {
  EXPECT_NE(Complaint([&] { FreeBytesAt(directory_ / "none"); }), "");
}

TEST_F(FailuresTest, FileThatCannotBeReadToItsEndIsTold) {
  const auto ignore = [](const char*, std::size_t) {};
  EXPECT_COMPLAINT(ComplaintWithout(
      "read", [&] { ForEachPortion(file_, ignore); }, 2));
  EXPECT_COMPLAINT(ComplaintWithout("fstat", [&] { ForEachPortion(file_, ignore); }));
}

TEST_F(FailuresTest, PackageThatCannotBeLaidOutIsTold) {
  WriteFile(file_, Zip({{"a", "1"}}));
  EXPECT_COMPLAINT(ComplaintWithout("fstat", [&] { ReadArchiveLayout(file_); }));
  EXPECT_COMPLAINT(ComplaintWithout("pread", [&] { ReadArchiveLayout(file_); }));
}

TEST_F(FailuresTest, DirectoryThatCannotBeMadeEndsAProof) {
  WriteFile(file_, Zip({{"a", "1"}}));
  PackageReader package(file_);
  const FailingCall fault("mkdir", EIO);
  EXPECT_NE(Complaint([&] { PredictAndExtract(package, directory_ / "new", [] {}); }), "");
}

TEST_F(FailuresTest, FileThatCannotBePackedWholeIsTold) {
  ArchiveWriter archive(directory_ / "package", 0);
  EXPECT_COMPLAINT(ComplaintWithout("read", [&] { archive.AddFile("f", file_); }));
  EXPECT_NE(Complaint([&] { archive.AddFile("none", directory_ / "none"); }), "");
}

TEST_F(FailuresTest, SourceThatCannotBeLookedAtIsTold) {
  EXPECT_COMPLAINT(ComplaintWithout("stat", [&] { CollectSource(directory_ / "", {}); }));
  EXPECT_COMPLAINT(ComplaintWithout("lstat", [&] { CollectSource(directory_ / "", {}); }));
}

// Check -------------------------------------------------------------------------------------------

/// A bundle whose package has one file. Temporary files are in the directory, too.
class FailingCheckTest : public FailuresTest {
 protected:
  FailingCheckTest() {
    std::filesystem::create_directory(directory_ / "tmp");
    WriteFile(directory_ / "OrloWebResources.zip", Zip({{"a", "content"}}));
    WriteFile(directory_ / "metadata.txt", R"({"clear":false,"updateid":1,"regenerate":false})");
    options_.path = directory_ / "";
    options_.prove = true;
    UseForTemporaryFiles("tmp");
  }
  ~FailingCheckTest() override { unsetenv("TMPDIR"); }

  void UseForTemporaryFiles(const std::string& name) {
    setenv("TMPDIR", (directory_ / name).c_str(), 1);
  }

  CheckOptions options_;
};

TEST_F(FailingCheckTest, ExtractionThatDiffersFromThePredictionIsADefect) {
  const FailingCall fault("fwrite", ENOSPC);
  const Report report = Check(options_);
  EXPECT_EQ(report.status, kCouldNotTell);
  EXPECT_EQ(report.details["proof"]["agrees"], false);
  EXPECT_EQ(report.details["proof"]["differences"][0]["path"], "a");
  EXPECT_EQ(TreeOf(directory_ / "tmp"), Tree());
}

TEST_F(FailingCheckTest, ScratchDirectoryThatCannotBeMadeIsTold) {
  UseForTemporaryFiles("none");
  EXPECT_NE(Complaint([&] { Check(options_); }).find("none/webresources-"), std::string::npos);
}

TEST_F(FailingCheckTest, ScratchDirectoryIsGoneWhenTheExtractionFails) {
  const FailingCall fault("mkdir", EIO);  // not of mkdtemp(), which the C library calls for itself
  EXPECT_NE(Complaint([&] { Check(options_); }), "");
  EXPECT_EQ(TreeOf(directory_ / "tmp"), Tree());
}

// AtomicFile --------------------------------------------------------------------------------------

void Replace(const std::string& path) {
  AtomicFile file(path);
  WriteFile(file.temporary(), "new");
  file.CommitDurably();
}

TEST_F(FailuresTest, FileThatCannotBeReplacedStaysAndNoOtherIsLeft) {
  for (const char* function : {"fsync", "link", "rename"}) {
    EXPECT_COMPLAINT(ComplaintWithout(function, [&] { Replace(file_); }));
    EXPECT_EQ(Files(), before_) << function;
  }
}

TEST_F(FailuresTest, FileIsReplacedWhereThereAreNoLocks) {
  EXPECT_EQ(ComplaintWithout("flock", [&] { Replace(file_); }), "");
  EXPECT_EQ(Files(), (Tree{{"f", "new"}}));
}

TEST_F(FailuresTest, FirstOfTwoFilesIsAsBeforeWhenTheSecondCannotBeReplaced) {
  WriteFile(directory_ / "g", "old");
  EXPECT_COMPLAINT(ComplaintWithout(
      "link",
      [&] {
        AtomicFile first(file_);
        AtomicFile second(directory_ / "g");
        AtomicFile::CommitBoth(first, second);
      },
      2));
  EXPECT_EQ(Files(), (Tree{{"f", "old"}, {"g", "old"}}));
}

TEST_F(FailuresTest, NothingIsUndoneBeforeTheCommit) {
  AtomicFile(file_).Rollback();
  EXPECT_EQ(Files(), before_);
}

TEST_F(FailuresTest, TemporaryFileThatCannotBeMadeIsTold) {
  EXPECT_NE(Complaint([&] { AtomicFile file(directory_ / "none/f"); }), "");
}

}  // namespace
