// The behaviour of the command when system calls fail: an error message, and no leftover files.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <tuple>

#include "AccessControlList.h"
#include "Descriptor.h"
#include "FailingCall.h"
#include "InstallerConstants.h"
#include "PackageReader.h"
#include "Support.h"
#include "TrialStart.h"
#include "ZipBuilder.h"
#include "bundle/ArchiveLayout.h"
#include "bundle/BundleFiles.h"
#include "bundle/Metadata.h"
#include "commands/Commands.h"
#include "machine/Access.h"
#include "machine/InstallLock.h"
#include "machine/InstallPlan.h"
#include "machine/Installation.h"
#include "machine/InstallerProcess.h"
#include "machine/PrivateCopy.h"
#include "machine/Receipt.h"
#include "packing/ArchiveWriter.h"
#include "packing/SourceTree.h"
#include "prediction/FileTree.h"
#include "prediction/PackageFindings.h"
#include "prediction/Prediction.h"
#include "report/Rules.h"
#include "support/AtomicFile.h"
#include "support/Error.h"
#include "support/Files.h"
#include "support/Progress.h"
#include "support/Text.h"

using namespace webresources;

// The linker calls this function instead of zlib's function (see FailingCall.cpp).
extern "C" int __real_deflateInit2_(z_streamp stream, int level, int method, int windowBits,
                                    int memoryLevel, int strategy, const char* version, int size);
extern "C" int __wrap_deflateInit2_(z_streamp stream, int level, int method, int windowBits,
                                    int memoryLevel, int strategy, const char* version, int size) {
  return FailingCall::Strikes("deflateInit2_")
             ? Z_MEM_ERROR
             : __real_deflateInit2_(stream, level, method, windowBits, memoryLevel, strategy,
                                    version, size);
}

namespace {

/// Returns the message of the Error that `call` throws, or an empty string without an Error.
template <typename Call>
std::string Complaint(Call call) {
  try {
    call();
  } catch (const Error& error) {
    return error.what();
  }
  return {};
}

/// As Complaint(call), while all calls of `function` fail, starting with the `first` call.
template <typename Call>
std::string ComplaintWithout(const char* function, Call call, int first = 1) {
  const FailingCall fault(function, EIO, first);
  return Complaint(call);
}

const char kInputOutputError[] = "Input/output error";

/// Returns whether `text` has the form "cannot do something: Input/output error".
bool IsComplaint(const std::string& text) {
  const std::string begin = "cannot ";
  return text.compare(0, begin.length(), begin) == 0 && std::islower(text[begin.length()]) != 0 &&
         text.find(kInputOutputError) != std::string::npos;
}

#define EXPECT_COMPLAINT(complaint) EXPECT_PRED1(IsComplaint, complaint)

/// A directory with the file "f", whose content is "old".
class FailuresTest : public testing::Test {
 protected:
  FailuresTest() { WriteFile(file_, "old"); }

  Tree Files() const { return TreeOf(directory_ / ""); }

  const ScopedDirectory directory_;
  const std::string file_ = directory_ / "f";
  const Tree before_ = {{"f", "old"}};
};

/// Returns the number of times that `call` opens the file at `path`, counted by the system.
template <typename Call>
int OpensOf(const std::string& path, Call call) {
  const Descriptor watch(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  EXPECT_GE(inotify_add_watch(*watch, path.c_str(), IN_OPEN | IN_CLOSE), 0);
  call();
  std::array<inotify_event, 64> events = {};
  EXPECT_GE(read(*watch, events.data(), sizeof events), 0);
  return static_cast<int>(
      std::count_if(events.begin(), events.end(),
                    [](const inotify_event& event) { return (event.mask & IN_OPEN) != 0; }));
}

TEST(FailingMetadata, FileIsOpenedOnce) {
  const ScopedDirectory directory;
  const std::string path = directory / "metadata.txt";
  for (const char* text : {R"({"clear":true,"updateid":5,"regenerate":true,"clear":1})", "x", ""}) {
    WriteFile(path, text);
    EXPECT_EQ(OpensOf(path, [&path] { ReadMetadata(path); }), 1) << text;
  }
}

TEST(FailingMetadata, FileThatCannotBeReadIsNotTreatedAsEmpty) {
  const char* const unreadable = "/proc/self/mem";  // EIO
  EXPECT_EQ(Complaint([&] { ReadMetadata(unreadable); }),
            Error("read", unreadable, "its content is unknown").what());
}

TEST_F(FailuresTest, DirectoryThatCannotBeListedToItsEndIsAnError) {
  EXPECT_COMPLAINT(ComplaintWithout(
      "readdir", [&] { NamesIn(directory_ / ""); }, 2));
}

TEST_F(FailuresTest, FileWithoutAReadableStatusIsNotTreatedAsMissing) {
  EXPECT_COMPLAINT(ComplaintWithout("lstat", [&] { Exists(file_); }));
  EXPECT_COMPLAINT(ComplaintWithout("stat", [&] { IsPresent(file_); }));
  const auto readTree = [&] { ReadTree(directory_ / "", Checksum::None); };
  EXPECT_COMPLAINT(ComplaintWithout("fstatat", readTree));
  EXPECT_COMPLAINT(ComplaintWithout("open", readTree));
  EXPECT_EQ(ComplaintWithout("fstatat", readTree, 2),
            "cannot read " + file_ + ": Input/output error; check the disk, then try again");
}

TEST_F(FailuresTest, DirectoryWithoutAReadableStatusIsNotTreatedAsMissing) {
  for (const int error : {EIO, EMFILE, EACCES}) {
    const FailingCall fault("stat", error);
    EXPECT_THROW(IsDirectory(directory_ / ""), Error) << error;
  }
  for (const int error : {ENOENT, ENOTDIR, ELOOP}) {
    const FailingCall fault("stat", error);
    EXPECT_FALSE(IsDirectory(directory_ / "")) << error;
  }
}

TEST_F(FailuresTest, FileDeletedMeanwhileIsNotInTheTree) {
  const FailingCall fault("fstatat", ENOENT, 2);  // the first call is for the top directory
  const FileTree tree = ReadTree(directory_ / "", Checksum::None);
  EXPECT_EQ(tree.size(), 1U);
}

TEST_F(FailuresTest, NoEntryExistsBelowAFileOrAfterItsRemoval) {
  EXPECT_FALSE(IsPresent(file_ + "/x"));
  EXPECT_FALSE(Exists(file_ + "/x"));
  const FailingCall fault("access", ENOENT);
  EXPECT_FALSE(IsPresent(file_));
}

TEST_F(FailuresTest, FileThatMayNotBeReadIsNotTreatedAsMissing) {
  EXPECT_COMPLAINT(ComplaintWithout("access", [&] { IsPresent(file_); }));
}

TEST_F(FailuresTest, DirectoryThatCannotBeMadeIsReported) {
  EXPECT_NE(Complaint([&] { MakeDirectories(file_ + "/d"); }).find(file_ + "/d"),
            std::string::npos);
  EXPECT_TRUE(AsOrdinaryUser([] {
    return Complaint([] { MakeDirectories("/none/d"); }) ==
           "cannot make the directory /none/d: Permission denied; run it as root";
  }));
}

TEST_F(FailuresTest, OnlyTheOpenFileIsAtItsPath) {
  WriteFile(directory_ / "g", "old");
  const Descriptor file(open(file_.c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_TRUE(IsAt(*file, file_));
  EXPECT_FALSE(IsAt(*file, directory_ / "g"));
  EXPECT_FALSE(IsAt(*file, "/proc"));  // a path on another file system
  EXPECT_FALSE(IsAt(*file, directory_ / "none"));
  EXPECT_FALSE(IsAt(-1, file_));
}

TEST_F(FailuresTest, MissingDirectoryHasAnEmptyTree) {
  EXPECT_TRUE(ReadTree(directory_ / "none", Checksum::Sha256).empty());
}

TEST_F(FailuresTest, VolumeWithoutAStatusHasNoKnownSpace) {
  EXPECT_NE(Complaint([&] { FreeSpaceAt(directory_ / "none"); }), "");
}

TEST_F(FailuresTest, FileThatCannotBeReadToItsEndIsReported) {
  EXPECT_COMPLAINT(ComplaintWithout(
      "read", [&] { DigestOfFile(file_); }, 2));
  EXPECT_COMPLAINT(ComplaintWithout("fstat", [&] { DigestOfFile(file_); }));
  InputFile file(file_, Links::Refuse);
  EXPECT_COMPLAINT(ComplaintWithout("fdopen", [&] { file.TakeStream(); }));
}

TEST_F(FailuresTest, PackageWhoseLayoutCannotBeReadIsReported) {
  WriteFile(file_, Zip({{"a", "1"}}));
  EXPECT_COMPLAINT(ComplaintWithout("fstat", [&] { ReadArchiveLayout(file_); }));
  EXPECT_COMPLAINT(ComplaintWithout("pread", [&] { ReadArchiveLayout(file_); }));
  EXPECT_COMPLAINT(ComplaintWithout("open", [&] { ReadArchiveLayout(file_); }));
}

TEST_F(FailuresTest, DirectoryAndFileTruncatedMeanwhileHaveNoLayout) {
  EXPECT_FALSE(ReadArchiveLayout(directory_ / ""));
  WriteFile(file_, Zip({{"a", "1"}}));
  ASSERT_TRUE(ReadArchiveLayout(file_));
  const FailingCall fault("pread", [this] { std::filesystem::resize_file(file_, 50); });
  EXPECT_FALSE(ReadArchiveLayout(file_));
}

TEST_F(FailuresTest, DirectoryThatCannotBeMadeEndsATrialExtraction) {
  WriteFile(file_, Zip({{"a", "1"}}));
  PackageReader package(file_);
  const FailingCall fault("mkdir", EIO);
  EXPECT_NE(Complaint([&] { PredictAndExtract(package, 0, directory_ / "new"); }), "");
}

Descriptor OpenNew(const std::string& path) {
  return Descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
}

TEST_F(FailuresTest, FileThatCannotBePackedCompletelyIsReported) {
  const Descriptor package = OpenNew(directory_ / "package");
  ArchiveWriter archive(*package, "package", {});
  EXPECT_COMPLAINT(ComplaintWithout("read", [&] { archive.AddFile("f", file_, 3); }));
  EXPECT_NE(Complaint([&] { archive.AddFile("none", directory_ / "none", 3); }), "");
}

TEST_F(FailuresTest, FileThatChangesDuringPackingIsReported) {
  for (const char* changed : {"changed", "new"}) {  // another size; the same size
    WriteFile(file_, "old");
    const Descriptor package = OpenNew(directory_ / "package");
    ArchiveWriter archive(*package, "package", {});
    constexpr int kSecondReading = 2;
    const FailingCall fault(
        "lseek", [&] { WriteFile(file_, changed); }, kSecondReading, kSecondReading);
    EXPECT_NE(Complaint([&] { archive.AddFile("f", file_, 3); }).find("changed while"),
              std::string::npos);
  }
}

TEST_F(FailuresTest, ExhaustedMemoryForDeflatingEndsThePacking) {
  const Descriptor package = OpenNew(directory_ / "package");
  const FailingCall fault("deflateInit2_", 0);
  EXPECT_THROW(ArchiveWriter(*package, "package", {}), std::bad_alloc);
}

TEST_F(FailuresTest, SourceWithoutAReadableStatusIsReported) {
  EXPECT_COMPLAINT(ComplaintWithout("stat", [&] { CollectSource(directory_ / "", {}); }));
  EXPECT_COMPLAINT(ComplaintWithout("lstat", [&] { CollectSource(directory_ / "", {}); }));
}

// Check -------------------------------------------------------------------------------------------

/// A bundle with a package of one file. Temporary files are also in the directory.
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

TEST_F(FailingCheckTest, BundleThatMayNotBeReadIsReported) {
  for (const int first : {1, 2}) {  // the bundle, and the Resources directory
    EXPECT_COMPLAINT(ComplaintWithout(
        "access", [&] { FindBundleFiles(options_.path); }, first));
  }
}

TEST_F(FailingCheckTest, PackageWithTooManyDirectoriesIsNotRead) {
  PackageExtent extent;
  extent.directories = options_.limits.maxDirectories;
  const std::string package = directory_ / "OrloWebResources.zip";
  EXPECT_TRUE(FindOutOfBounds(package, extent, options_.limits).empty());
  ++extent.directories;
  const Findings findings = FindOutOfBounds(package, extent, options_.limits);
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_EQ(findings[0].rule, &kTooManyDirectories);
}

TEST_F(FailingCheckTest, FileThatIsReplacedBetweenTwoReadingsIsReported) {
  const auto assertReported = [this](const char* call, const std::function<void()>& read) {
    for (const char* name : {"OrloWebResources.zip", "metadata.txt"}) {
      const FailingCall fault(call, [&] {  // replaces the file by an equal file
        std::filesystem::copy_file(directory_ / name, directory_ / "copy");
        std::filesystem::rename(directory_ / "copy", directory_ / name);
      });
      EXPECT_EQ(Complaint(read), "cannot read " + (directory_ / name) +
                                     ": it changed while it was read; run the command again");
    }
  };
  options_.prove = false;
  assertReported("open", [&] { Check(options_); });  // the layout
  assertReported("read", [&] { Check(options_); });  // the digest
  assertReported("read", [&] { Info(options_.path); });
  assertReported("open", [&] { Diff(options_.path, options_.path, options_.limits); });
  assertReported("read", [&] { ReadBundle(options_.path, std::nullopt, options_.limits); });
}

TEST_F(FailingCheckTest, ScratchDirectoryThatCannotBeMadeIsReported) {
  UseForTemporaryFiles("none");
  EXPECT_NE(Complaint([&] { Check(options_); }).find("none/webresources-"), std::string::npos);
}

TEST_F(FailingCheckTest, ScratchDirectoryIsInTmpWithoutAnotherPlace) {
  setenv("TMPDIR", "", 1);
  EXPECT_EQ(Check(options_).status, kAsItShouldBe);
  unsetenv("TMPDIR");
  EXPECT_EQ(Check(options_).status, kAsItShouldBe);
}

TEST_F(FailingCheckTest, FullVolumeIsReportedBeforeTheExtraction) {
  const FailingCall fault("statvfs", FailingCall::kShort);
  EXPECT_NE(Complaint([&] { Check(options_); }).find("7 bytes are needed and 0 are free"),
            std::string::npos);
  EXPECT_EQ(TreeOf(directory_ / "tmp"), Tree());
}

TEST_F(FailingCheckTest, MissingPackageAllowsATrialExtraction) {
  std::filesystem::remove(directory_ / "OrloWebResources.zip");
  const Report report = Check(options_);
  ASSERT_EQ(report.findings.size(), 1U);
  EXPECT_STREQ(report.findings[0].rule->id, "package-missing");
}

TEST_F(FailingCheckTest, ListingHasTheReasonForASkippedEntry) {
  WriteFile(directory_ / "OrloWebResources.zip", Zip({{"a", "content"}, {"d/b", "x"}}));
  const Report report = Check(options_);
  EXPECT_EQ(report.listing,
            (std::vector<std::string>{
                "file               7  a",
                "skip                  d/b  (no entry before it makes its directory: it is not "
                "installed)"}));
}

TEST_F(FailingCheckTest, ScratchDirectoryIsGoneWhenTheExtractionFails) {
  const FailingCall fault("mkdir", EIO);  // not the call inside mkdtemp()
  EXPECT_NE(Complaint([&] { Check(options_); }), "");
  EXPECT_EQ(TreeOf(directory_ / "tmp"), Tree());
}

// AtomicFile --------------------------------------------------------------------------------------

void Replace(const std::string& path) {
  AtomicFile file(path);
  file.Write("new");
  file.CommitDurably();
}

TEST_F(FailuresTest, FileThatCannotBeReplacedStaysWithoutLeftovers) {
  for (const char* function : {"fsync", "link", "rename", "write"}) {
    EXPECT_COMPLAINT(ComplaintWithout(function, [&] { Replace(file_); }));
    EXPECT_EQ(Files(), before_) << function;
  }
  EXPECT_COMPLAINT(ComplaintWithout(
      "fsync", [&] { Replace(file_); }, 2));  // of the directory
  EXPECT_EQ(Files(), before_);
}

TEST_F(FailuresTest, FileWhoseTemporaryFileIsGoneIsNotReplaced) {
  AtomicFile file(file_);
  std::filesystem::remove(file.temporary());
  EXPECT_NE(Complaint([&] { file.Commit(); }).find("another process has moved"), std::string::npos);
  EXPECT_EQ(Files(), before_);
}

TEST_F(FailuresTest, FileIsReplacedWhereThereAreNoLocks) {
  EXPECT_EQ(ComplaintWithout("flock", [&] { Replace(file_); }), "");
  EXPECT_EQ(Files(), (Tree{{"f", "new"}}));
}

void ReplaceBoth(const std::string& path, const std::string& other) {
  AtomicFile first(path);
  AtomicFile second(other);
  AtomicFile::CommitBoth(first, second);
}

TEST_F(FailuresTest, BothFilesAreSyncedBeforeTheFirstRenameAndTheDirectoryAfterwards) {
  WriteFile(directory_ / "g", "old");
  const FailingCall none("fsync", EIO, INT_MAX);
  ReplaceBoth(file_, directory_ / "g");
  std::istringstream calls(none.Calls());
  std::string found;
  for (std::string call; calls >> call;) {
    found += call == "fsync" || call == "rename" ? call + " " : "";
  }
  EXPECT_EQ(found, "fsync fsync rename rename fsync ");
}

TEST_F(FailuresTest, PackSyncsTheCompletePackageTheMetadataAndTheirDirectory) {
  PackOptions options;
  options.directory = directory_ / "site";
  std::filesystem::create_directory(options.directory);
  WriteFile(directory_ / "site/f", "content");
  options.output = directory_ / "new";
  options.createsOutput = true;
  const FailingCall none("fsync", EIO, INT_MAX);
  ASSERT_EQ(Pack(options).status, kAsItShouldBe);
  std::vector<std::pair<ino_t, off_t>> expected;
  for (const char* name : {"new/OrloWebResources.zip", "new/metadata.txt", "new"}) {
    const struct stat status = StatusOf(directory_ / name);
    expected.emplace_back(status.st_ino, status.st_size);
  }
  EXPECT_EQ(none.Synced(), expected);
}

TEST_F(FailuresTest, FirstOfTwoFilesIsRestoredIfTheSecondCannotBeReplaced) {
  WriteFile(directory_ / "g", "old");
  EXPECT_COMPLAINT(ComplaintWithout(
      "link", [&] { ReplaceBoth(file_, directory_ / "g"); }, 2));
  EXPECT_EQ(Files(), (Tree{{"f", "old"}, {"g", "old"}}));
}

TEST_F(FailuresTest, ShortWritesAreContinued) {
  const FailingCall fault("write", FailingCall::kShort, 1, 1);
  Replace(file_);
  EXPECT_EQ(fault.Count(), 2);
  EXPECT_EQ(Files(), (Tree{{"f", "new"}}));
}

TEST_F(FailuresTest, DirectoryThatCannotBeSyncedIsReported) {
  constexpr int kOfTheDirectory = 3;  // after the syncs of the new file and the old file
  EXPECT_COMPLAINT(ComplaintWithout(
      "open", [&] { Replace(file_); }, kOfTheDirectory));
}

TEST_F(FailuresTest, OldFileKeepsItsSecondNameIfItCannotBeRestored) {
  WriteFile(directory_ / "g", "old");
  EXPECT_COMPLAINT(ComplaintWithout(
      "rename", [&] { ReplaceBoth(file_, directory_ / "g"); }, 2));
  EXPECT_EQ(Files(),
            (Tree{{"f", ""}, {".f.old-" + std::to_string(getpid()), "old"}, {"g", "old"}}));
}

TEST_F(FailuresTest, PipeWithTheNameOfALeftoverIsRemovedWithoutWaiting) {
  mkfifo((directory_ / ".f.tmp-1").c_str(), 0600);
  Replace(file_);
  EXPECT_EQ(Files(), (Tree{{"f", "new"}}));
}

TEST_F(FailuresTest, FileThatTakesTheNameOfALeftoverIsNotRemoved) {
  const std::string leftover = directory_ / ".f.tmp-1";
  WriteFile(leftover, "left");
  const FailingCall fault("flock", [&] {
    std::filesystem::remove(leftover);
    WriteFile(directory_ / "other", "new");
    std::filesystem::rename(directory_ / "other", leftover);
  });
  const AtomicFile file(file_);
  EXPECT_EQ(ReadFile(leftover), "new");
}

TEST_F(FailuresTest, TemporaryFileRemovedMeanwhileIsMadeAgain) {
  const std::string temporary = directory_ / (".f.tmp-" + std::to_string(getpid()));
  const auto remove = [&] { std::filesystem::remove(temporary); };
  {
    const FailingCall fault("flock", remove);
    Replace(file_);
    EXPECT_EQ(Files(), (Tree{{"f", "new"}}));
  }
  const FailingCall fault("flock", remove, 1, INT_MAX);
  EXPECT_NE(Complaint([&] { Replace(file_); }).find("keep removing it"), std::string::npos);
}

TEST_F(FailuresTest, TemporaryFileThatCannotBeMadeIsReported) {
  EXPECT_NE(Complaint([&] { AtomicFile file(directory_ / "none/f"); }), "");
  EXPECT_COMPLAINT(ComplaintWithout("open", [&] { AtomicFile file(file_); }));
}

// Interruption ------------------------------------------------------------------------------------

TEST(Interruptions, IgnoredSignalStaysIgnored) {
  const auto before = std::signal(SIGHUP, SIG_IGN);
  CatchInterruptions();
  EXPECT_EQ(std::signal(SIGHUP, before), SIG_IGN);
}

// Trial start -------------------------------------------------------------------------------------

/// Returns whether the trial succeeds and leaves no child.
bool CanStart(const std::string& path) {
  const bool can = TrialStart::CanStart(path);
  EXPECT_TRUE(waitpid(-1, nullptr, 0) == -1 && errno == ECHILD);
  return can;
}

TEST(TrialStart, FailsOnlyIfTheProgramIsTheReason) {
  EXPECT_TRUE(CanStart("/bin/true"));
  EXPECT_FALSE(CanStart("/none"));
  for (const int error : {ENOEXEC, ENOENT, ELIBBAD}) {
    const FailingCall fault("execve", error);
    EXPECT_FALSE(CanStart("/bin/true")) << error;
  }
  for (const int error : {EACCES, EPERM, ENOMEM}) {
    const FailingCall fault("execve", error);
    EXPECT_TRUE(CanStart("/bin/true")) << error;
  }
}

TEST(TrialStart, RunsNoInstructionOfTheProgram) {
  const ScopedDirectory directory;
  const std::string program = directory / "program";
  const std::string trace = directory / "trace";
  WriteFile(program, "#!/bin/sh\n: >" + ShellQuoted(trace) + "\n");
  chmod(program.c_str(), 0755);
  EXPECT_TRUE(CanStart(program));
  EXPECT_FALSE(IsThere(trace));
}

TEST(TrialStart, ThatIsRefusedByTheSystemCountsAsASuccess) {
  for (const char* function : {"pipe2", "fork", "ptrace", "write"}) {
    const FailingCall fault(function, EPERM);
    EXPECT_TRUE(CanStart("/none")) << function;  // nothing is executed
    EXPECT_EQ(fault.Count(), 1) << function;
  }
}

// Access control lists ----------------------------------------------------------------------------

TEST(AccessControlLists, FileSystemWithoutListsIsNoFailure) {
  const Descriptor directory(open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  ASSERT_TRUE(directory);
  EXPECT_TRUE(AccessControlList::Restrict(*directory));
}

// Installation ------------------------------------------------------------------------------------

/// A host without an installation, whose root is the directory, and the lock.
class FailingLockTest : public testing::Test {
 protected:
  std::string TryToLock(std::chrono::milliseconds wait = std::chrono::milliseconds(0)) const {
    return Complaint([&] { InstallLock lock(directory_ / "", wait); });
  }

  const ScopedDirectory directory_;
  const std::string path_ = BesideInstallRoot(directory_ / "", ".WebResources.lock");
};

TEST_F(FailingLockTest, LockThatCannotBeMadeIsReported) {
  const std::string locked = "lock " + path_;
  const std::pair<const char*, std::string> operations[] = {
      {"mkdir", "make " + ParentOf(path_)}, {"open", locked}, {"flock", locked}};
  for (const auto& [function, operation] : operations) {
    const FailingCall fault(function, EIO);
    EXPECT_EQ(TryToLock().find("cannot " + operation + ": Input/output error"), 0U) << function;
  }
  EXPECT_EQ(TryToLock(), "");
}

TEST_F(FailingLockTest, LockThatCannotBeExaminedIsReported) {
  EXPECT_EQ(TryToLock(), "");
  chmod(path_.c_str(), 0644);
  for (const char* function : {"fstat", "fchmod"}) {
    EXPECT_COMPLAINT(ComplaintWithout(
        function, [&] { InstallLock lock(directory_ / "", std::chrono::milliseconds(0)); }));
  }
  const InstallLock lock(directory_ / "", std::chrono::milliseconds(0));
  EXPECT_COMPLAINT(ComplaintWithout("unlink", [&] { lock.RemoveFile(); }));
  EXPECT_TRUE(IsThere(path_));
}

TEST_F(FailingLockTest, HostWithoutAReadableDirectoryIsReported) {
  for (const int call : {1, 2}) {  // of the owner, and of the first directory
    EXPECT_COMPLAINT(ComplaintWithout(
        "stat", [&] { FindInAccess(directory_ / "", Places::Host); }, call));
  }
  EXPECT_EQ(TryToLock(), "");
  EXPECT_NE(Complaint([this] { RequireHost(path_); }).find("it is not a directory"),
            std::string::npos);
}

TEST_F(FailingLockTest, BundleThatCannotBeCopiedLeavesNoCopy) {
  const std::string bundle = directory_ / "X.app";
  std::filesystem::create_directories(bundle + "/Contents/Resources");
  WriteFile(bundle + "/Contents/Resources/metadata.txt", "{}");
  const auto copy = [&] { PrivateCopy(directory_ / "", bundle, Limits()); };
  EXPECT_NE(Complaint(copy).find("No such file"), std::string::npos);  // there is no directory yet
  EXPECT_EQ(TryToLock(), "");
  for (const char* function : {"mkdir", "open", "write", "ftruncate"}) {
    const FailingCall fault(function, EIO, 1, 1);
    EXPECT_COMPLAINT(Complaint(copy)) << function;
    EXPECT_TRUE(TemporaryEntries(directory_ / "").empty()) << function;
  }
  EXPECT_EQ(Complaint(copy), "");
}

TEST_F(FailingLockTest, InterruptedLockIsTriedAgain) {
  const FailingCall fault("flock", EINTR, 1, 1);
  EXPECT_EQ(TryToLock(std::chrono::seconds(10)), "");
  EXPECT_EQ(fault.Count(), 2);
}

TEST_F(FailingLockTest, LockRemovedMeanwhileIsMadeAgain) {
  const FailingCall fault("flock", [this] { std::filesystem::remove(path_); });
  EXPECT_EQ(TryToLock(std::chrono::seconds(10)), "");
  EXPECT_EQ(fault.Count(), 2);
  EXPECT_TRUE(IsThere(path_));
}

TEST_F(FailingLockTest, DirectoriesThatAnotherInstallationMakesMeanwhileAreNoFailure) {
  const FailingCall fault("mkdir",
                          [this] { std::filesystem::create_directories(ParentOf(path_)); });
  EXPECT_EQ(TryToLock(), "");
}

TEST_F(FailingLockTest, HeldLockEndsTheWaiting) {
  const InstallLock lock(directory_ / "", std::chrono::milliseconds(0));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_NE(TryToLock(std::chrono::milliseconds(30)).find("another installation is running"),
            std::string::npos);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(20));  // one pause
}

TEST_F(FailingLockTest, LockOfAnotherUserOrWritableByOthersIsRefused) {
  { const InstallLock lock(directory_ / "", std::chrono::milliseconds(0)); }
  for (const mode_t mode : {0620U, 0602U}) {
    chmod(path_.c_str(), mode);
    EXPECT_EQ(TryToLock(), "cannot lock " + path_ +
                               ": another user owns it or can write to it; remove it with rm " +
                               ShellQuoted(path_));
  }
  for (const mode_t mode : {0640U, 0604U}) {
    chmod(path_.c_str(), mode);
    EXPECT_EQ(TryToLock(), "");
    EXPECT_EQ(StatusOf(path_).st_mode & 07777U, 0600U);
  }
}

TEST_F(FailingLockTest, ReceiptThatCannotBeWrittenIsReported) {
  std::filesystem::create_directories(ParentOf(path_));
  Receipt begun;
  begun.isBegun = true;
  EXPECT_COMPLAINT(ComplaintWithout("write", [&] {
    AtomicFile file(ReceiptPath(directory_ / ""));
    WriteReceipt(file, begun);
  }));
  EXPECT_EQ(TreeOf(ParentOf(path_)), Tree());
}

TEST_F(FailuresTest, RecordThatCannotBeReadIsReportedWithARemedy) {
  const std::string root = directory_ / "root";
  const std::string record = root + "/Library/Preferences/" + PLIST_SECTION_KEY + ".plist";
  std::filesystem::create_directories(record);
  const auto reason = [&] {
    const std::string complaint = Complaint([&] { ReadInstallation(root); });
    const std::string begin = "cannot read the record " + RecordLocation(root) + ": ";
    EXPECT_EQ(complaint.find(begin), 0U) << complaint;
    return complaint.substr(std::min(begin.length(), complaint.length()));
  };
  if (RecordLocation(root) != record) {
    EXPECT_EQ(reason(), "Operation not supported; run the command on that host");
    return;
  }
  const std::string removal = "; remove it, then run webresources install";
  EXPECT_EQ(reason(), "it is not a regular file" + removal);
  std::filesystem::remove(record);
  std::filesystem::create_symlink("missing", record);
  EXPECT_EQ(reason(), "Too many levels of symbolic links" + removal);
  std::filesystem::remove(record);
  ASSERT_EQ(mkfifo(record.c_str(), 0666), 0);
  EXPECT_EQ(reason(), "it is not a regular file" + removal);
  std::filesystem::remove(record);
  WriteFile(record, std::string((1U << 20U) + 1, ' '));
  EXPECT_EQ(reason(), "File too large" + removal);
  WriteFile(record, "x");
  chmod(record.c_str(), 0);
  EXPECT_TRUE(AsOrdinaryUser([&] { return reason() == "Permission denied; run it as root"; }));
  chmod(record.c_str(), 0644);
  const std::tuple<const char*, int, const char*> failures[] = {
      {"pread", EIO, "Input/output error; check the disk, then try again"},
      {"openat", ENFILE,
       "Too many open files in system; raise the limit with ulimit -n, or end other programs"}};
  for (const auto& [call, error, expected] : failures) {
    const FailingCall fault(call, error);
    EXPECT_EQ(reason(), expected);
  }
}

// The installer as a child process ----------------------------------------------------------------

class StepTest : public FailuresTest {
 protected:
  /// Runs the shell script in place of the installer, and returns the description of the exit
  /// status.
  std::string ToldOf(const std::string& script) {
    WriteFile(step_, "#!/bin/sh\n" + script);
    chmod(step_.c_str(), 0755);
    return Run();
  }

  std::string Run() {
    const Descriptor lock(open(file_.c_str(), O_RDONLY | O_CLOEXEC));
    const ScopedUmask mask(022);
    return RunInstaller(step_, *lock, 0).value_or("");
  }

  const std::string step_ = directory_ / "step";
};

// With 297 open descriptors, an earlier version also closed the lock. Descriptor 10 is the shell's
// own script.
TEST_F(StepTest, HasTheLockAndNoOtherOfThreeHundredDescriptors) {
  std::vector<Descriptor> open;
  for (int i = 0; i < 300; ++i) {
    open.emplace_back(dup(STDIN_FILENO));
  }
  EXPECT_EQ(ToldOf("i=2; while [ $((i += 1)) -lt 400 ]; do [ $i != 10 ] && [ -e /dev/fd/$i ] && "
                   "n=$((n + 1)); done; exit $n"),
            "it exited with 1");
}

TEST_F(StepTest, EndIsKnownWhenTheCallerIgnoresIt) {
  const auto before = std::signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(ToldOf("exit 3\n"), "it exited with 3");
  std::signal(SIGCHLD, before);
}

TEST_F(StepTest, EndIsAwaitedEvenIfTheStateCannotBeLearned) {
  const FailingCall fault("waitid", EIO);
  EXPECT_EQ(ToldOf("sleep 0.2; exit 3\n"), "it exited with 3");
}

TEST_F(StepTest, HangUpThatTheCallerIgnoresStaysIgnored) {
  const auto before = std::signal(SIGHUP, SIG_IGN);
  EXPECT_EQ(ToldOf("kill -HUP $$; exit 3\n"), "it exited with 3");
  std::signal(SIGHUP, SIG_DFL);
  EXPECT_EQ(ToldOf("kill -HUP $$; exit 3\n"), "it was ended by signal 1");
  std::signal(SIGHUP, before);
}

TEST_F(StepTest, ForAnotherProcessorIsReported) {
  WriteFile(step_, "\177ELF");
  chmod(step_.c_str(), 0755);
  EXPECT_NE(Complaint([this] { Run(); }).find("for another processor"), std::string::npos);
}

TEST_F(StepTest, HasNoDescriptorOfTheCommandExceptTheLock) {
  EXPECT_EQ(
      ToldOf("n=0; for i in 3 4 5 6 7 8 9; do [ -e /dev/fd/$i ] && n=$((n + 1)); done; exit $n"),
      "it exited with 1");
}

TEST_F(StepTest, ReadsNothingAndMayWrite) {
  EXPECT_EQ(ToldOf("read -r line && exit 3; echo x || exit 4; echo x >&2 || exit 5\n"), "");
}

TEST_F(StepTest, GetsTheSignalsThatTheCommandBlocks) {
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  sigprocmask(SIG_BLOCK, &blocked, nullptr);
  EXPECT_EQ(ToldOf("kill -TERM $$; exit 3\n"), "it was ended by signal 15");
  sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
}

TEST_F(StepTest, RunsWithoutANullDevice) {
  const FailingCall fault("open", ENXIO, 2);  // after the open of the lock
  EXPECT_EQ(ToldOf("[ ! -e /dev/fd/0 ] && exit 3\n"), "it exited with 3");
}

TEST_F(StepTest, ThatCannotBeRunIsReported) {
  EXPECT_NE(Complaint([this] { Run(); }).find("No such file"), std::string::npos);
}

}  // namespace
