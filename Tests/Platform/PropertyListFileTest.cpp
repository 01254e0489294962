// Property-list files on the disk, with other writers, killed writers, and other entries at the
// path. Python's plistlib checks the values of every type.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <set>
#include <string>

#include "PropertyListFile.h"
#include "TestFiles.h"

namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

class PropertyListFileTest : public testing::Test {
 protected:
  bool Set(const std::string& key, int number) {
    return ChangePropertyList(path_, {{key, number}}, Emptied::Keep);
  }
  PropertyList::Contents Read() {
    return ReadPropertyList(path_).value_or(PropertyList()).Values();
  }
  bool Has(const std::string& key) { return Read().count(key) != 0; }

  void Write(const std::string& bytes) { std::ofstream(path_) << bytes; }
  static std::string BytesOf(const fs::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  Names NamesIn(const fs::path& directory) {
    Names names;
    for (const auto& entry : fs::directory_iterator(directory)) {
      names.insert(entry.path().filename());
    }
    return names;
  }
  mode_t ModeOf(const fs::path& path) {
    struct stat status = {};
    stat(path.c_str(), &status);
    return status.st_mode & 07777;
  }

  /// Runs `script` with the file's path as `path`. Returns false if the script raises an exception.
  bool Python(const std::string& script) {
    const fs::path program = root_.string() + ".py";
    std::ofstream(program) << "import plistlib, sys\npath = sys.argv[1]\n" << script;
    const int status = std::system(("python3 '" + program.string() + "' '" + path_ + "'").c_str());
    fs::remove(program);
    return status == 0;
  }

  ScopedDirectory directory_;
  fs::path root_ = directory_ / "";
  std::string path_ = directory_ / "x.plist";
};

/// Returns the result of `run` in a child process.
bool InChild(const std::function<bool()>& run) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(run() ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Reading and writing ---------------------------------------------------------------------------

TEST_F(PropertyListFileTest, AbsentFileReadsAsEmpty) {
  EXPECT_TRUE(Read().empty());
}

TEST_F(PropertyListFileTest, ChangesAreWrittenAsXml) {
  ASSERT_TRUE(ChangePropertyList(path_, {{"text", "a<b"}, {"number", -7}}, Emptied::Keep));
  EXPECT_EQ(0U, BytesOf(path_).find("<?xml"));
  EXPECT_TRUE(Python("assert plistlib.load(open(path, 'rb')) == {'text': 'a<b', 'number': -7}"));
}

TEST_F(PropertyListFileTest, RemovingTheLastKeyLeavesAnEmptyDictionary) {
  ASSERT_TRUE(Set("key", 1));
  ASSERT_TRUE(ChangePropertyList(path_, {{"key", std::nullopt}}, Emptied::Keep));
  EXPECT_TRUE(Python("assert plistlib.load(open(path, 'rb')) == {}"));
}

TEST_F(PropertyListFileTest, MissingDirectoriesAreMade) {
  path_ = root_ / "a/b/c/x.plist";
  EXPECT_TRUE(Set("key", 1));
  EXPECT_TRUE(Has("key"));
}

TEST_F(PropertyListFileTest, NewEntriesHaveTheirModeForEveryUmask) {
  for (const mode_t mask : {0U, 022U, 077U, 0777U & ~0300U}) {
    const fs::path top = root_ / std::to_string(mask);
    path_ = top / "b/x.plist";
    const mode_t old = umask(mask);
    const bool isSet = Set("key", 1);
    umask(old);
    EXPECT_TRUE(isSet) << mask;
    EXPECT_EQ(0755U, ModeOf(top)) << mask;
    EXPECT_EQ(0755U, ModeOf(top / "b")) << mask;
    EXPECT_EQ(0644U, ModeOf(path_)) << mask;
  }
}

TEST_F(PropertyListFileTest, OnlyANewDirectoryGetsItsMode) {
  for (const mode_t mode : {0700U, 01777U}) {
    const fs::path there = root_ / std::to_string(mode);
    fs::create_directory(there);
    ASSERT_EQ(0, chmod(there.c_str(), mode));
    for (const char* name : {"x.plist", "made/x.plist", "made/x.plist"}) {
      path_ = there / name;
      ASSERT_TRUE(Set("key", 1));
      EXPECT_EQ(mode, ModeOf(there)) << name;
    }
    EXPECT_EQ(0755U, ModeOf(there / "made"));
    ASSERT_EQ(0, chmod((there / "made").c_str(), mode));
    ASSERT_TRUE(Set("key", 2));
    EXPECT_EQ(mode, ModeOf(there / "made"));
  }
}

// Other writers ---------------------------------------------------------------------------------

TEST_F(PropertyListFileTest, KeysThatAnotherWriterHasWrittenAreKept) {
  ASSERT_TRUE(Set("mine", 1));
  ASSERT_TRUE(InChild([&] { return Set("theirs", 2); }));
  ASSERT_TRUE(Set("mine", 3));
  EXPECT_TRUE(Python("assert plistlib.load(open(path, 'rb')) == {'mine': 3, 'theirs': 2}"));
}

TEST_F(PropertyListFileTest, LockIsFreeAfterwards) {
  ASSERT_TRUE(Set("key", 1));
  const int directory = open(root_.c_str(), O_RDONLY | O_DIRECTORY);
  EXPECT_EQ(0, flock(directory, LOCK_EX | LOCK_NB));
  close(directory);
}

// Kills -----------------------------------------------------------------------------------------

TEST_F(PropertyListFileTest, KillLeavesAWholeFileAndTheNextWriterNoLeftovers) {
  const std::string text(200000, 'x');
  ASSERT_TRUE(ChangePropertyList(path_, {{"text", text}}, Emptied::Keep));
  for (int i = 0; i < 100; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      for (int number = 0;; ++number) {
        ChangePropertyList(path_, {{"number", number}}, Emptied::Keep);
      }
    }
    usleep(static_cast<useconds_t>(100 + i * 97 % 5000));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const auto contents = Read();
    ASSERT_EQ(1U, contents.count("text")) << i;
    ASSERT_EQ(text, contents.at("text").text) << i;
  }
  EXPECT_TRUE(Set("last", 1));
  EXPECT_EQ(Names{"x.plist"}, NamesIn(root_));
}

TEST_F(PropertyListFileTest, LeftoversAreRemovedAndNothingElse) {
  for (const char* name : {"x.plist.tmp-1", "x.plist.tmp-", "x.plist.tm", "y.plist.tmp-1"}) {
    std::ofstream(root_ / name) << "x";
  }
  ASSERT_TRUE(Set("key", 1));
  EXPECT_EQ((Names{"x.plist", "x.plist.tm", "y.plist.tmp-1"}), NamesIn(root_));
}

TEST_F(PropertyListFileTest, LinkAmongTheLeftoversIsRemovedNotFollowed) {
  std::ofstream(root_ / "target") << "x";
  fs::create_symlink(root_ / "target", root_ / "x.plist.tmp-1");
  ASSERT_TRUE(Set("key", 1));
  EXPECT_EQ((Names{"target", "x.plist"}), NamesIn(root_));
  EXPECT_EQ("x", BytesOf(root_ / "target"));
}

TEST_F(PropertyListFileTest, LeftoversOfAnotherWriterStayWithoutTheLock) {
  std::ofstream(root_ / "x.plist.tmp-1") << "x";
  const int directory = open(root_.c_str(), O_RDONLY | O_DIRECTORY);
  EXPECT_EQ(0, flock(directory, LOCK_EX | LOCK_NB));
  EXPECT_TRUE(Set("key", 1));
  close(directory);
  EXPECT_EQ((Names{"x.plist", "x.plist.tmp-1"}), NamesIn(root_));
}

// Corrupt files ---------------------------------------------------------------------------------

TEST_F(PropertyListFileTest, CorruptFileReadsAsEmptyAndStays) {
  Write("corrupt");
  EXPECT_TRUE(Read().empty());
  EXPECT_EQ(Names{"x.plist"}, NamesIn(root_));
}

TEST_F(PropertyListFileTest, CorruptFilesAreMovedAsideAndNoneIsLost) {
  for (const char* bytes : {"first", "second", "third"}) {
    Write(bytes);
    EXPECT_TRUE(Set("key", 1));
  }
  EXPECT_EQ("first", BytesOf(path_ + ".corrupt"));
  EXPECT_EQ("second", BytesOf(path_ + ".corrupt.1"));
  EXPECT_EQ("third", BytesOf(path_ + ".corrupt.2"));
  EXPECT_EQ(1U, Read().size());
}

TEST_F(PropertyListFileTest, EachKindOfDamagedFileIsMovedAside) {
  const std::string utf16("\xFF\xFE<\0p\0/\0>\0", 10);
  std::string deep = "<plist><dict><key>k</key>";
  for (int i = 0; i < 100; ++i) {
    deep += "<array>";
  }
  for (int i = 0; i < 100; ++i) {
    deep += "</array>";
  }
  for (const std::string& bytes :
       {std::string(), std::string("<plist><array/></plist>"), std::string("bplist00"), utf16,
        std::string("<plist><dict><key>k</key></dict></plist>"), deep + "</dict></plist>"}) {
    Write(bytes);
    EXPECT_TRUE(Set("key", 1));
    EXPECT_EQ(bytes, BytesOf(path_ + ".corrupt"));
    EXPECT_EQ(1U, Read().size());
    fs::remove(path_ + ".corrupt");
  }
}

TEST_F(PropertyListFileTest, HundredCorruptFilesAreKeptAndTheNextFailsAndStays) {
  Write("hundredth");
  std::ofstream(path_ + ".corrupt") << "older";
  for (int i = 1; i < 99; ++i) {
    std::ofstream(path_ + ".corrupt." + std::to_string(i)) << "older";
  }
  EXPECT_TRUE(Set("key", 1));
  EXPECT_EQ("hundredth", BytesOf(path_ + ".corrupt.99"));
  Write("corrupt");
  EXPECT_FALSE(Set("key", 1));
  EXPECT_EQ("corrupt", BytesOf(path_));
  EXPECT_EQ("hundredth", BytesOf(path_ + ".corrupt.99"));
}

// Other entries at the file's path ---------------------------------------------------------------

TEST_F(PropertyListFileTest, DirectoryInItsPlaceFails) {
  fs::create_directory(path_);
  EXPECT_TRUE(Read().empty());
  EXPECT_FALSE(Set("key", 1));
  EXPECT_FALSE(ReadPropertyList(path_));
  EXPECT_EQ(Names{"x.plist"}, NamesIn(root_));
}

TEST_F(PropertyListFileTest, FifoInItsPlaceFailsAndDoesNotHang) {
  ASSERT_EQ(0, mkfifo(path_.c_str(), 0666));
  EXPECT_TRUE(Read().empty());
  EXPECT_FALSE(Set("key", 1));
  EXPECT_EQ(Names{"x.plist"}, NamesIn(root_));
}

TEST_F(PropertyListFileTest, LinkInItsPlaceFailsAndIsNotFollowed) {
  ASSERT_TRUE(ChangePropertyList(root_ / "target", {{"secret", 1}}, Emptied::Keep));
  const std::string before = BytesOf(root_ / "target");
  for (const char* target : {"target", "nowhere", "/dev/zero"}) {
    fs::remove(path_);
    fs::create_symlink(target, path_);
    EXPECT_TRUE(Read().empty()) << target;
    EXPECT_FALSE(Set("key", 1)) << target;
    EXPECT_TRUE(fs::is_symlink(path_)) << target;
  }
  EXPECT_EQ(before, BytesOf(root_ / "target"));
  EXPECT_EQ((Names{"target", "x.plist"}), NamesIn(root_));
}

TEST_F(PropertyListFileTest, FileOfOneMiBIsReadAndALargerOneFailsAndStays) {
  constexpr std::size_t kOneMiB = 1048576;
  const std::string list = "<plist><dict><key>theirs</key><true/></dict></plist>";
  Write(list + std::string(kOneMiB - list.size(), '\n'));
  EXPECT_TRUE(Has("theirs"));
  const std::string larger = BytesOf(path_) + "\n";
  Write(larger);
  EXPECT_FALSE(ReadPropertyList(path_));
  EXPECT_FALSE(Set("key", 1));
  EXPECT_TRUE(BytesOf(path_) == larger);
  EXPECT_EQ(Names{"x.plist"}, NamesIn(root_));
}

TEST_F(PropertyListFileTest, ChangeThatMakesTheFileLargerThanOneMiBFailsAndTheFileStays) {
  ASSERT_TRUE(ChangePropertyList(path_, {{"text", "x"}, {"key", 1}}, Emptied::Keep));
  const std::string text(1 + PropertyList::kLargest - fs::file_size(path_), 'x');
  EXPECT_TRUE(ChangePropertyList(path_, {{"text", text}}, Emptied::Keep));
  EXPECT_EQ(PropertyList::kLargest, fs::file_size(path_));
  EXPECT_FALSE(ChangePropertyList(path_, {{"text", text + "x"}}, Emptied::Keep));
  EXPECT_EQ(PropertyList::kLargest, fs::file_size(path_));
  EXPECT_TRUE(Read().at("text").text == text);
  EXPECT_EQ(Names{"x.plist"}, NamesIn(root_));
}

TEST_F(PropertyListFileTest, FileInPlaceOfItsDirectoryFails) {
  Write("x");
  EXPECT_FALSE(ChangePropertyList(path_ + "/y.plist", {{"key", 1}}, Emptied::Keep));
  EXPECT_FALSE(ChangePropertyList(path_ + "/d/y.plist", {{"key", 1}}, Emptied::Keep));
  EXPECT_EQ("x", BytesOf(path_));
}

// Failures --------------------------------------------------------------------------------------

/// Gives up the permissions of root, if the process has them.
void BecomeOrdinary() {
  if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) {
    _exit(2);
  }
}

TEST_F(PropertyListFileTest, UnreadableFileFailsAndStays) {
  ASSERT_TRUE(Set("key", 1));
  const std::string before = BytesOf(path_);
  fs::permissions(path_, fs::perms::none);
  fs::permissions(root_, fs::perms::all);
  EXPECT_TRUE(InChild([&] {
    BecomeOrdinary();
    return !Set("other", 1) && Read().empty() && !ReadPropertyList(path_);
  }));
  fs::permissions(path_, fs::perms::owner_all);
  EXPECT_EQ(before, BytesOf(path_));
  EXPECT_EQ(Names{"x.plist"}, NamesIn(root_));
}

TEST_F(PropertyListFileTest, UnwritableDirectoryFailsAndKeepsTheFile) {
  ASSERT_TRUE(Set("key", 1));
  fs::permissions(root_, fs::perms(0555));
  EXPECT_TRUE(InChild([&] {
    BecomeOrdinary();
    return !Set("other", 1) && Has("key") &&
           !ChangePropertyList(root_ / "d/x.plist", {{"key", 1}}, Emptied::Keep);
  }));
  Write("corrupt");
  EXPECT_TRUE(InChild([&] {
    BecomeOrdinary();
    return !Set("other", 1);
  }));
  fs::permissions(root_, fs::perms::owner_all);
  EXPECT_EQ("corrupt", BytesOf(path_));
  EXPECT_EQ(Names{"x.plist"}, NamesIn(root_));
}

TEST_F(PropertyListFileTest, WithoutDescriptorsItFails) {
  ASSERT_TRUE(Set("key", 1));
  for (rlim_t descriptors = 3; descriptors < 6; ++descriptors) {
    EXPECT_TRUE(InChild([&] {
      closefrom(3);
      const rlimit limit{descriptors, descriptors};
      return setrlimit(RLIMIT_NOFILE, &limit) == 0 && Set("other", 1) == (descriptors == 5);
    })) << descriptors;
  }
  EXPECT_EQ(Names{"x.plist"}, NamesIn(root_));
}

TEST_F(PropertyListFileTest, NoDescriptorStaysOpen) {
  const auto openDescriptors = [] {
    int count = 0;
    for (int descriptor = 0; descriptor < 64; ++descriptor) {
      count += fcntl(descriptor, F_GETFD) >= 0 ? 1 : 0;
    }
    return count;
  };
  const int before = openDescriptors();
  ASSERT_TRUE(Set("key", 1));
  Write("corrupt");
  ASSERT_TRUE(Set("key", 1));
  fs::remove(path_);
  fs::create_directory(path_);
  ASSERT_FALSE(Set("key", 1));
  EXPECT_EQ(before, openDescriptors());
}

}  // namespace
