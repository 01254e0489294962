// Property-list files on the disk, among other writers, kills, and things in their place. The
// reader that judges values of every type is Python's.

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
using std::chrono::milliseconds;
using Names = std::set<std::string>;

constexpr milliseconds kShortWait{50};
constexpr bool kIsSanitized = SANITIZED != 0;

class PropertyListFileTest : public testing::Test {
 protected:
  bool Set(const std::string& key, int number) {
    return PropertyListFile(path_, kShortWait).Apply({{key, number}});
  }
  PropertyList::Contents Read() { return PropertyListFile(path_).Read(); }
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

  /// Runs `script` with the file's path as `path`; false when it raises.
  bool Python(const std::string& script) {
    const fs::path program = root_.string() + ".py";
    std::ofstream(program) << "import datetime, plistlib, sys\npath = sys.argv[1]\n" << script;
    const int status = std::system(("python3 '" + program.string() + "' '" + path_ + "'").c_str());
    fs::remove(program);
    return status == 0;
  }

  ScopedDirectory directory_;
  fs::path root_ = directory_ / "";
  std::string path_ = directory_ / "x.plist";
};

/// Lists as large as they may be: most of the time is libplist's.
class LargePropertyListFileTest : public PropertyListFileTest {};

/// What `run` returns in a child process, which ends there.
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
  PropertyListFile file(path_);
  ASSERT_TRUE(file.Apply({{"text", "a<b"}, {"number", -7}}));
  EXPECT_EQ(0U, BytesOf(path_).find("<?xml"));
  EXPECT_TRUE(Python("assert plistlib.load(open(path, 'rb')) == {'text': 'a<b', 'number': -7}"));
}

TEST_F(PropertyListFileTest, WithoutChangesNothingIsWritten) {
  const PropertyListFile file(root_ / "missing/x.plist");
  EXPECT_TRUE(file.Apply({}));
  EXPECT_EQ(Names{}, NamesIn(root_));
  Write("not a list");
  EXPECT_TRUE(PropertyListFile(path_).Apply({}));
  EXPECT_EQ(Names{"x.plist"}, NamesIn(root_));
  EXPECT_EQ("not a list", BytesOf(path_));
}

TEST_F(PropertyListFileTest, RemovingTheLastKeyLeavesAnEmptyDictionary) {
  ASSERT_TRUE(Set("key", 1));
  ASSERT_TRUE(PropertyListFile(path_).Apply({{"key", std::nullopt}}));
  EXPECT_TRUE(Python("assert plistlib.load(open(path, 'rb')) == {}"));
}

TEST_F(PropertyListFileTest, MissingDirectoriesAreMade) {
  path_ = root_ / "a/b/c/x.plist";
  EXPECT_TRUE(Set("key", 1));
  EXPECT_TRUE(Has("key"));
}

TEST_F(PropertyListFileTest, WhatIsMadeHasItsModeWhateverTheUmask) {
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

TEST_F(PropertyListFileTest, RelativePathsAreAllowed) {
  EXPECT_TRUE(InChild([&] {
    return chdir(root_.c_str()) == 0 && PropertyListFile("d/y.plist").Apply({{"key", 1}}) &&
           PropertyListFile("z.plist").Apply({{"key", 1}});
  }));
  EXPECT_EQ((Names{"d", "z.plist"}), NamesIn(root_));
  EXPECT_EQ(Names{"y.plist"}, NamesIn(root_ / "d"));
}

// Values of every type --------------------------------------------------------------------------

const char kValues[] = R"(
values = dict(
    string="a&b<c>\"' \té\U0001F600\n", empty='', integer=7, negative=-7, smallest=-2**63,
    unsigned=2**64 - 1, real=0.1, large=1e300, small=5e-324, infinite=float('-inf'), true=True,
    false=False, date=datetime.datetime(2020, 1, 2, 3, 4, 5), early=datetime.datetime(1000, 1, 1),
    late=datetime.datetime(4001, 1, 1), data=bytes(range(256)), nodata=b'',
    array=[1, 'x', [], {}, [True, 1.5]], dictionary={'': 1, '&': {'k': [b'x']}})
strange = dict(
    first=datetime.datetime(1, 1, 1), uid=plistlib.UID(5), control='a\x01\r\x1f',
    nocharacter='\uffff', zero=-0.0,
    fraction=datetime.datetime(2020, 1, 2, 3, 4, 5, 500000), **{'k\x02': 1})
def check(expected, form):
    expected = dict(expected, mine=1)
    data = open(path, 'rb').read()
    assert data.startswith(form), data
    found = plistlib.loads(data)
    assert sorted(found) == sorted(expected)
    for key in expected:
        assert repr(found[key]) == repr(expected[key]) or found[key] == expected[key] and \
            isinstance(expected[key], dict), (key, found[key])
)";

TEST_F(PropertyListFileTest, ValuesOfEveryTypeSurvive) {
  const std::string values = kValues;
  for (const char* form : {"XML", "BINARY"}) {
    ASSERT_TRUE(
        Python(values + "plistlib.dump(values, open(path, 'wb'), fmt=plistlib.FMT_" + form + ")"));
    ASSERT_TRUE(Set("mine", 1));
    EXPECT_TRUE(Python(values + "check(values, b'<?xml')")) << form;
  }
}

TEST_F(PropertyListFileTest, EachValueThatXmlCannotHoldSurvivesInABinaryList) {
  for (const char* key : {"first", "uid", "control", "nocharacter", "zero", "fraction", "k\\x02"}) {
    const std::string values =
        std::string(kValues) + "values['" + key + "'] = strange['" + key + "']\n";
    ASSERT_TRUE(
        Python(values + "plistlib.dump(values, open(path, 'wb'), fmt=plistlib.FMT_BINARY)"));
    ASSERT_TRUE(Set("mine", 1));
    EXPECT_TRUE(Python(values + "check(values, b'bplist00')")) << key;
  }
}

TEST_F(PropertyListFileTest, ListReturnsToXmlWithTheLastValueThatItCannotHold) {
  ASSERT_TRUE(PropertyListFile(path_).Apply({{"control", "\x01"}}));
  EXPECT_EQ(0U, BytesOf(path_).find("bplist00"));
  ASSERT_TRUE(PropertyListFile(path_).Apply({{"control", std::nullopt}, {"key", 1}}));
  EXPECT_EQ(0U, BytesOf(path_).find("<?xml"));
}

// Judged by Python's plistlib -------------------------------------------------------------------

/// Changes that damage a list or give it another meaning: at a place, of bytes into others.
std::string Damaged(const std::string& list, std::mt19937& random) {
  static const std::string kParts[] = {
      "<true/>", "<dict>", "</dict>", "<array/>", "&amp;", "&lt",       "<!--",       "-->",
      "<key>",   "</key>", "0x",      "-",        "_",     " ",         "=",          "9999999999",
      "abc",     "\r",     ".",       "<data>",   "\xFF",  "<integer>", "</integer>", "<string/>"};
  std::string damaged = list;
  const std::size_t at = random() % damaged.size();
  switch (random() % 4) {
    case 0:
      damaged[at] = static_cast<char>(random());
      break;
    case 1:
      damaged.erase(at, 1 + random() % 8);
      break;
    case 2:
      damaged.insert(at, kParts[random() % std::size(kParts)]);
      break;
    default:
      damaged.insert(at, damaged.substr(random() % damaged.size(), 1 + random() % 20));
  }
  return damaged;
}

// The judge reads no list with control characters or without a well-formed declaration, which are
// kept here because their values are clear.
TEST_F(PropertyListFileTest, DamagedListKeepsEveryValueThatPlistlibReadsOrIsNoList) {
  constexpr int kLists = 3000;
  std::mt19937 random(20171130);
  for (const char* form : {"XML", "BINARY"}) {
    ASSERT_TRUE(Python(std::string(kValues) +
                       "plistlib.dump(values, open(path, 'wb'), fmt=plistlib.FMT_" + form + ")"));
    const std::string list = BytesOf(path_);
    for (int i = 0; i < kLists; ++i) {
      const std::string damaged = Damaged(list, random);
      if (auto read = PropertyList::Parse(damaged)) {
        read->Apply({{"mine", 1}});
        const std::string name = form + std::to_string(i);
        std::ofstream(root_ / (name + ".before")) << damaged;
        std::ofstream(root_ / (name + ".after")) << read->Print().value();
      }
    }
  }
  EXPECT_TRUE(Python(R"(
import pathlib
judged = 0
for before in pathlib.Path(path).parent.glob('*.before'):
    try:
        expected = {**plistlib.loads(before.read_bytes()), 'mine': 1}
    except Exception:
        continue
    found = plistlib.loads(before.with_suffix('.after').read_bytes())
    assert repr(sorted(found.items())) == repr(sorted(expected.items())), before
    judged += 1
assert judged > 500, judged
)"));
}

// Other writers ---------------------------------------------------------------------------------

TEST_F(PropertyListFileTest, WritersAtTheSameTimeKeepEachOthersKeys) {
  constexpr int kWriters = 4;
  constexpr int kKeys = 25;
  for (int writer = 0; writer < kWriters; ++writer) {
    if (fork() == 0) {
      const PropertyListFile file(path_, milliseconds(60000));
      bool isGood = true;
      for (int i = 0; i < kKeys; ++i) {
        isGood = file.Apply({{std::to_string(writer) + "." + std::to_string(i), i}}) && isGood;
      }
      _exit(isGood ? 0 : 1);
    }
  }
  for (int writer = 0; writer < kWriters; ++writer) {
    int status = -1;
    wait(&status);
    EXPECT_EQ(0, status);
  }
  EXPECT_EQ(std::size_t{kWriters} * kKeys, Read().size());
  EXPECT_EQ(Names{"x.plist"}, NamesIn(root_));
}

TEST_F(PropertyListFileTest, LockHeldForEverDoesNotStopAWriter) {
  const int directory = open(root_.c_str(), O_RDONLY | O_DIRECTORY);
  EXPECT_EQ(0, flock(directory, LOCK_EX | LOCK_NB));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(Set("key", 1));
  const auto waited = std::chrono::steady_clock::now() - start;
  close(directory);
  EXPECT_TRUE(Has("key"));
  EXPECT_GE(waited, kShortWait);
  EXPECT_LT(waited, milliseconds(2000));
}

TEST_F(PropertyListFileTest, WriterWaitsForTheLock) {
  const int directory = open(root_.c_str(), O_RDONLY | O_DIRECTORY);
  EXPECT_EQ(0, flock(directory, LOCK_EX | LOCK_NB));
  const pid_t child = fork();
  if (child == 0) {
    close(directory);
    _exit(PropertyListFile(path_, milliseconds(60000)).Apply({{"key", 1}}) ? 0 : 1);
  }
  usleep(100000);
  EXPECT_FALSE(Has("key"));
  close(directory);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(0, status);
  EXPECT_TRUE(Has("key"));
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
  ASSERT_TRUE(PropertyListFile(path_).Apply({{"text", text}}));
  for (int i = 0; i < 100; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      for (int number = 0;; ++number) {
        PropertyListFile(path_).Apply({{"number", number}});
      }
    }
    usleep(static_cast<useconds_t>(100 + i * 97 % 5000));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const auto contents = Read();
    ASSERT_EQ(1U, contents.count("text")) << i;
    ASSERT_EQ(text, std::get<std::string>(contents.at("text"))) << i;
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

TEST_F(PropertyListFileTest, CorruptFilesAreRenamedAsideAndNoneIsLost) {
  for (const char* bytes : {"first", "second", "third"}) {
    Write(bytes);
    EXPECT_TRUE(Set("key", 1));
  }
  EXPECT_EQ("first", BytesOf(path_ + ".corrupt"));
  EXPECT_EQ("second", BytesOf(path_ + ".corrupt.1"));
  EXPECT_EQ("third", BytesOf(path_ + ".corrupt.2"));
  EXPECT_EQ(1U, Read().size());
}

TEST_F(PropertyListFileTest, EmptyFileAndFileWithAnotherRootAreCorrupt) {
  for (const char* bytes : {"", "<plist version=\"1.0\"><array/></plist>"}) {
    Write(bytes);
    EXPECT_TRUE(Set("key", 1));
    EXPECT_EQ(bytes, BytesOf(path_ + ".corrupt"));
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

// Things in the file's place --------------------------------------------------------------------

TEST_F(PropertyListFileTest, DirectoryInItsPlaceFails) {
  fs::create_directory(path_);
  EXPECT_TRUE(Read().empty());
  EXPECT_FALSE(Set("key", 1));
  EXPECT_FALSE(PropertyListFile(path_).Apply({}));
  EXPECT_EQ(Names{"x.plist"}, NamesIn(root_));
}

TEST_F(PropertyListFileTest, FifoInItsPlaceFailsAndDoesNotHang) {
  ASSERT_EQ(0, mkfifo(path_.c_str(), 0666));
  EXPECT_TRUE(Read().empty());
  EXPECT_FALSE(Set("key", 1));
  EXPECT_EQ(Names{"x.plist"}, NamesIn(root_));
}

TEST_F(PropertyListFileTest, LinkInItsPlaceFailsAndIsNotFollowed) {
  ASSERT_TRUE(PropertyListFile(root_ / "target").Apply({{"secret", 1}}));
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

TEST_F(PropertyListFileTest, HugeFileFailsAndStays) {
  Write("x");
  fs::resize_file(path_, PropertyList::kLargest + 1);
  EXPECT_TRUE(Read().empty());
  EXPECT_FALSE(Set("key", 1));
  EXPECT_EQ(PropertyList::kLargest + 1, fs::file_size(path_));
  EXPECT_EQ(Names{"x.plist"}, NamesIn(root_));
}

TEST_F(LargePropertyListFileTest, LargestXmlFileIsWrittenAndReadAndALargerListIsBinary) {
  constexpr std::size_t kSixteenMiB = 16777216;
  ASSERT_TRUE(PropertyListFile(path_).Apply({{"text", "x"}}));
  const auto size = static_cast<std::size_t>(fs::file_size(path_));
  const std::string text(kSixteenMiB - size + 1, 'x');
  ASSERT_TRUE(PropertyListFile(path_).Apply({{"text", text}}));
  EXPECT_EQ(kSixteenMiB, fs::file_size(path_));
  EXPECT_TRUE(Has("text"));
  EXPECT_TRUE(PropertyListFile(path_).Apply({{"text", text + "x"}}));
  EXPECT_EQ(0U, BytesOf(path_).find("bplist00"));
  EXPECT_TRUE(Has("text"));
}

/// So many `values` in arrays that nest so deep.
std::string DeepList(int depth, int count, const std::string& value) {
  std::string list = "<dict><key>k</key>";
  for (int level = 0; level < depth; ++level) {
    list += "<array>";
  }
  for (int i = 0; i < count; ++i) {
    list += value;
  }
  for (int level = 0; level < depth; ++level) {
    list += "</array>";
  }
  return list + "</dict>";
}

// The shapes that took most: the second 312 MiB as long as the lines of data were not estimated.
TEST_F(LargePropertyListFileTest, FilesWithinTheBoundsTakeLessThan256MiB) {
  if (kIsSanitized) {
    GTEST_SKIP() << "the sanitizers need more memory";
  }
  constexpr rlim_t kMost = rlim_t{256} << 20;
  for (const int depth : {1, 50}) {
    Write(DeepList(depth, 524000, "<data>QQ==</data>"));
    EXPECT_TRUE(InChild([&] {
      const rlimit limit{kMost, kMost};
      return setrlimit(RLIMIT_AS, &limit) == 0 && Set("key", 1);
    })) << depth;
  }
}

// If it stayed, no run could ever record again, and each would leave one more directory.
TEST_F(PropertyListFileTest, ListThatCannotBePrintedIsRenamedAside) {
  const std::string list = DeepList(4991, 129000, "<true/>");
  Write(list);
  EXPECT_TRUE(Has("k"));
  EXPECT_TRUE(Set("key", 1));
  EXPECT_TRUE(Set("other", 1));
  EXPECT_EQ(2U, Read().size());
  EXPECT_EQ(list, BytesOf(path_ + ".corrupt"));
  EXPECT_EQ((Names{"x.plist", "x.plist.corrupt"}), NamesIn(root_));
}

TEST_F(PropertyListFileTest, ChangesThatFitNoListFailAndTheFileStays) {
  ASSERT_TRUE(Set("key", 1));
  const std::string before = BytesOf(path_);
  EXPECT_FALSE(PropertyListFile(path_).Apply({{"text", std::string(PropertyList::kLargest, 'x')}}));
  EXPECT_EQ(before, BytesOf(path_));
  EXPECT_EQ(Names{"x.plist"}, NamesIn(root_));
}

TEST_F(PropertyListFileTest, FileInPlaceOfItsDirectoryFails) {
  Write("x");
  EXPECT_FALSE(PropertyListFile(path_ + "/y.plist").Apply({{"key", 1}}));
  EXPECT_FALSE(PropertyListFile(path_ + "/d/y.plist").Apply({{"key", 1}}));
  EXPECT_EQ("x", BytesOf(path_));
}

// Failures --------------------------------------------------------------------------------------

/// Gives up root's power over permissions, if there.
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
    return !Set("other", 1) && Read().empty() && !PropertyListFile(path_).Apply({});
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
           !PropertyListFile(root_ / "d/x.plist").Apply({{"key", 1}});
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
