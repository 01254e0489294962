#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "OSUtils.h"
#include "Support.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLongestPath = 1023;

class Directories : public testing::Test {
 protected:
  std::string Root() const { return directory_ / "root/"; }
  std::string At(const std::string& name) const { return Root() + name; }

  void SetUp() override {
    fs::create_directory(Root());
    fs::permissions(Root(), fs::perms::all);
  }

  void MakeFile(const std::string& name) const { WriteFile(At(name), "contents"); }
  void MakeDirectory(const std::string& name) const { fs::create_directories(At(name)); }
  void MakeDirectory(const std::string& name, mode_t mode) const {
    MakeDirectory(name);
    ASSERT_EQ(chmod(At(name).c_str(), mode), 0);
  }
  void MakeLink(const std::string& target, const std::string& name) const {
    fs::create_symlink(target, At(name));
  }

  /// Returns a path of exactly `length` bytes below the root, with components that a file system
  /// accepts.
  std::string PathOfLength(std::size_t length) const {
    std::string path = directory_ / "root";
    while (path.length() < length) {
      // No component may be empty: a remainder of one byte would be only the "/".
      std::size_t component = std::min<std::size_t>(length - path.length() - 1, 200);
      component -= length - path.length() - 1 - component == 1 ? 1 : 0;
      path += "/" + std::string(component, 'd');
    }
    return path;
  }

  /// Makes a directory whose path has `length` bytes, and returns the path.
  std::string DirectoryOfLength(std::size_t length) const {
    std::string path = PathOfLength(length);
    EXPECT_EQ(path.length(), length);
    fs::create_directories(path);
    return path;
  }

  Tree Left() const { return TreeOf(directory_ / "root"); }

  ScopedDirectory directory_;
};

// GetUniqueDirectoryName ------------------------------------------------------------------------

class UniqueDirectoryName : public Directories {
 protected:
  std::string Name() const { return OSUtils::GetUniqueDirectoryName(Root()); }
};

TEST_F(UniqueDirectoryName, EmptyRootGivesZero) {
  EXPECT_EQ(Name(), "Resource0");
}

TEST_F(UniqueDirectoryName, MissingRootGivesZero) {
  EXPECT_EQ(OSUtils::GetUniqueDirectoryName(At("missing/")), "Resource0");
}

TEST_F(UniqueDirectoryName, RootBelowAFileGivesZero) {
  MakeFile("file");
  EXPECT_EQ(OSUtils::GetUniqueDirectoryName(At("file/")), "Resource0");
}

TEST_F(UniqueDirectoryName, NextFreeNumberIsTaken) {
  MakeDirectory("Resource0");
  MakeDirectory("Resource1");
  EXPECT_EQ(Name(), "Resource2");
}

TEST_F(UniqueDirectoryName, GapIsFilledFirst) {
  MakeDirectory("Resource1");
  EXPECT_EQ(Name(), "Resource0");
}

TEST_F(UniqueDirectoryName, ReadableFileIsNotFree) {
  MakeFile("Resource0");
  EXPECT_EQ(Name(), "Resource1");
}

TEST_F(UniqueDirectoryName, DanglingLinkIsFree) {
  MakeLink("nowhere", "Resource0");
  EXPECT_EQ(Name(), "Resource0");
}

TEST_F(UniqueDirectoryName, NumbersGrowBeyondOneDigit) {
  for (int number = 0; number < 112; ++number) {
    MakeDirectory("Resource" + std::to_string(number));
  }
  EXPECT_EQ(Name(), "Resource112");
}

TEST_F(UniqueDirectoryName, RootIsJoinedWithoutASeparator) {
  MakeDirectory("xResource0");
  EXPECT_EQ(OSUtils::GetUniqueDirectoryName(At("x")), "Resource1");
}

TEST_F(UniqueDirectoryName, UnreadableEntryCountsAsFree) {
  MakeDirectory("Resource0", 0);
  EXPECT_TRUE(AsOrdinaryUser([this] { return Name() == "Resource0"; }));
}

TEST_F(UniqueDirectoryName, InaccessibleRootCountsAsFree) {
  MakeDirectory("closed/Resource0");
  MakeDirectory("closed", 0);
  EXPECT_TRUE(AsOrdinaryUser(
      [this] { return OSUtils::GetUniqueDirectoryName(At("closed/")) == "Resource0"; }));
}

TEST_F(UniqueDirectoryName, NothingIsCreated) {
  Name();
  EXPECT_EQ(Left(), Tree());
}

// EnsureDirectoryExists -------------------------------------------------------------------------

class EnsureDirectory : public Directories {
 protected:
  static bool Ensure(const std::string& path) { return OSUtils::EnsureDirectoryExists(path); }
};

TEST_F(EnsureDirectory, MissingAncestorsAreCreated) {
  EXPECT_TRUE(Ensure(At("a/b/c")));
  EXPECT_EQ(Left(), (Tree{{"a/", ""}, {"a/b/", ""}, {"a/b/c/", ""}}));
}

TEST_F(EnsureDirectory, TrailingSlashIsAllowed) {
  EXPECT_TRUE(Ensure(At("a/b/c/")));
  EXPECT_EQ(Left(), (Tree{{"a/", ""}, {"a/b/", ""}, {"a/b/c/", ""}}));
}

TEST_F(EnsureDirectory, RelativePathIsTakenFromTheWorkingDirectory) {
  const ScopedWorkingDirectory here(Root());
  EXPECT_TRUE(Ensure("a/b/c/"));
  EXPECT_TRUE(Ensure("d"));
  EXPECT_EQ(Left(), (Tree{{"a/", ""}, {"a/b/", ""}, {"a/b/c/", ""}, {"d/", ""}}));
}

TEST_F(EnsureDirectory, RelativePathOfOneCharacter) {
  const ScopedWorkingDirectory here(Root());
  EXPECT_TRUE(Ensure("a"));
  EXPECT_TRUE(Ensure("b/"));
  EXPECT_EQ(Left(), (Tree{{"a/", ""}, {"b/", ""}}));
}

// A second creation of the directory would fail, and the call would then return false.
TEST_F(EnsureDirectory, ExistingDirectoryIsNotCreatedAgain) {
  EXPECT_TRUE(Ensure(At("a/b/c/")));
  EXPECT_TRUE(Ensure(At("a/b/c/")));
  EXPECT_TRUE(Ensure(At("a/b/c")));
}

TEST_F(EnsureDirectory, ExistingDirectoryInAnUnwritableParentIsEnough) {
  MakeDirectory("closed/there");
  MakeDirectory("closed", 0555);
  EXPECT_TRUE(AsOrdinaryUser([this] { return Ensure(At("closed/there/")); }));
}

TEST_F(EnsureDirectory, FileSystemRootExists) {
  EXPECT_TRUE(Ensure("/"));
}

// The test is for readable only, on purpose.
TEST_F(EnsureDirectory, ReadableFileCountsAsExisting) {
  MakeFile("file");
  EXPECT_TRUE(Ensure(At("file")));
  EXPECT_EQ(Left(), (Tree{{"file", "contents"}}));
}

TEST_F(EnsureDirectory, ParentThatIsAFileFails) {
  MakeFile("file");
  EXPECT_FALSE(Ensure(At("file/a")));
  EXPECT_FALSE(Ensure(At("file/a/b/")));
  EXPECT_EQ(Left(), (Tree{{"file", "contents"}}));
}

TEST_F(EnsureDirectory, FileAskedForAsADirectoryFails) {
  MakeFile("file");
  EXPECT_FALSE(Ensure(At("file/")));
}

TEST_F(EnsureDirectory, AncestorsCreatedBeforeAFailureStay) {
  const std::string tooLong(300, 'x');
  EXPECT_FALSE(Ensure(At("a/b/" + tooLong + "/c")));
  EXPECT_EQ(Left(), (Tree{{"a/", ""}, {"a/b/", ""}}));
}

TEST_F(EnsureDirectory, UnreadableDirectoryYieldsFalseThoughItExists) {
  MakeDirectory("closed", 0);
  EXPECT_FALSE(AsOrdinaryUser([this] { return Ensure(At("closed")); }));
}

// On purpose: a creation also fails if the directory exists.
TEST_F(EnsureDirectory, UnreadableAncestorYieldsFalse) {
  MakeDirectory("closed", 0333);
  EXPECT_FALSE(AsOrdinaryUser([this] { return Ensure(At("closed/a")); }));
  EXPECT_EQ(chmod(At("closed").c_str(), 0777), 0);
  EXPECT_EQ(Left(), (Tree{{"closed/", ""}}));
}

TEST_F(EnsureDirectory, UnwritableParentYieldsFalse) {
  MakeDirectory("closed", 0555);
  EXPECT_FALSE(AsOrdinaryUser([this] { return Ensure(At("closed/a")); }));
}

TEST_F(EnsureDirectory, DanglingLinkYieldsFalse) {
  MakeLink("nowhere", "link");
  EXPECT_FALSE(Ensure(At("link")));
  EXPECT_FALSE(Ensure(At("link/a")));
  EXPECT_EQ(Left(), (Tree{{"link//", ""}}));
}

TEST_F(EnsureDirectory, LinkToADirectoryIsFollowed) {
  MakeDirectory("a");
  MakeLink("a", "link");
  EXPECT_TRUE(Ensure(At("link/b")));
  EXPECT_TRUE(fs::is_directory(At("a/b")));
}

TEST_F(EnsureDirectory, UmaskApplies) {
  const ScopedUmask mask(027);
  EXPECT_TRUE(Ensure(At("a/b")));
  EXPECT_EQ(Mode(At("a")), 0750U);
  EXPECT_EQ(Mode(At("a/b")), 0750U);
}

TEST_F(EnsureDirectory, ModeIsOpenToAllWithoutAUmask) {
  const ScopedUmask mask(0);
  EXPECT_TRUE(Ensure(At("a/b")));
  EXPECT_EQ(Mode(At("a")), 0777U);
  EXPECT_EQ(Mode(At("a/b")), 0777U);
}

TEST_F(EnsureDirectory, EmptyPathFails) {
  EXPECT_FALSE(Ensure(""));
}

TEST_F(EnsureDirectory, DoubledSlashIsNoComponent) {
  EXPECT_TRUE(Ensure(At("/a//b")));
  EXPECT_EQ(Left(), (Tree{{"a/", ""}, {"a/b/", ""}}));
}

// Only the last "/" is removed. The loop creates the directory, and the final creation then fails.
TEST_F(EnsureDirectory, TwoTrailingSlashesCreateTheDirectoryYetYieldFalse) {
  EXPECT_FALSE(Ensure(At("a//")));
  EXPECT_EQ(Left(), (Tree{{"a/", ""}}));
  EXPECT_TRUE(Ensure(At("a//")));
}

TEST_F(EnsureDirectory, DotsAreComponentsLikeOthers) {
  EXPECT_TRUE(Ensure(At("a/./b")));
  EXPECT_TRUE(Ensure(At("a/../c")));
  EXPECT_EQ(Left(), (Tree{{"a/", ""}, {"a/b/", ""}, {"c/", ""}}));
}

TEST_F(EnsureDirectory, PathOf1023BytesIsCreatedWhole) {
  EXPECT_TRUE(Ensure(PathOfLength(kLongestPath)));
  EXPECT_TRUE(fs::is_directory(PathOfLength(kLongestPath)));
}

TEST_F(EnsureDirectory, PathOf1023BytesAndASlashIsCreatedWhole) {
  EXPECT_TRUE(Ensure(PathOfLength(kLongestPath) + "/"));
  EXPECT_TRUE(fs::is_directory(PathOfLength(kLongestPath)));
}

TEST_F(EnsureDirectory, LongerPathIsTruncatedTo1023Bytes) {
  const std::string path = PathOfLength(kLongestPath);
  EXPECT_TRUE(Ensure(path + "x"));
  EXPECT_TRUE(fs::is_directory(path));
  EXPECT_FALSE(IsThere(path + "x"));
}

TEST_F(EnsureDirectory, SlashAtTheTruncationIsRemoved) {
  const std::string path = PathOfLength(kLongestPath - 1);
  EXPECT_TRUE(Ensure(path + "/x"));
  EXPECT_EQ(TreeOf(path), Tree());
}

TEST_F(EnsureDirectory, PathTooLongForTheSystemIsTruncatedToo) {
  const std::string path = PathOfLength(kLongestPath);
  EXPECT_TRUE(Ensure(path + std::string(100000, 'x')));
  EXPECT_TRUE(fs::is_directory(path));
}

// The complete path does not exist, but the truncated path exists: its second creation fails.
TEST_F(EnsureDirectory, TruncatedPathYieldsFalseTheSecondTime) {
  EXPECT_TRUE(Ensure(PathOfLength(kLongestPath) + "x"));
  EXPECT_FALSE(Ensure(PathOfLength(kLongestPath) + "x"));
}

TEST_F(EnsureDirectory, ExistingLongPathIsNotTruncated) {
  SKIP_UNLESS_FILE_SYSTEM_TAKES(PathOfLength(kLongestPath + 1));
  const std::string path = DirectoryOfLength(1200);
  EXPECT_TRUE(Ensure(path));
}

// DeleteDir -------------------------------------------------------------------------------------

class DeleteDirectory : public Directories {
 protected:
  /// Deletes `path`. Expects that the result is true and that no descriptor stays open.
  static void Delete(const std::string& path) {
    const int before = OpenDescriptors();
    EXPECT_TRUE(OSUtils::DeleteDir(path));
    EXPECT_EQ(OpenDescriptors(), before);
  }
};

TEST_F(DeleteDirectory, MissingPathCountsAsDeleted) {
  MakeFile("other");
  Delete(At("missing"));
  EXPECT_EQ(Left(), (Tree{{"other", "contents"}}));
}

TEST_F(DeleteDirectory, EmptyPathDoesNothing) {
  const ScopedWorkingDirectory here(Root());
  MakeFile("other");
  Delete("");
  EXPECT_EQ(Left(), (Tree{{"other", "contents"}}));
}

TEST_F(DeleteDirectory, EmptyDirectoryIsRemoved) {
  MakeDirectory("a");
  Delete(At("a"));
  EXPECT_EQ(Left(), Tree());
}

TEST_F(DeleteDirectory, WholeTreeIsRemovedTopIncluded) {
  MakeDirectory("a/b/c");
  MakeDirectory("a/d");
  MakeFile("a/x");
  MakeFile("a/b/y");
  MakeFile("a/b/c/z");
  MakeFile("other");
  Delete(At("a"));
  EXPECT_EQ(Left(), (Tree{{"other", "contents"}}));
}

TEST_F(DeleteDirectory, RelativePathIsTakenFromTheWorkingDirectory) {
  const ScopedWorkingDirectory here(Root());
  MakeDirectory("a/b");
  Delete("a");
  EXPECT_EQ(Left(), Tree());
}

TEST_F(DeleteDirectory, PlainFileIsNotRemoved) {
  MakeFile("file");
  Delete(At("file"));
  EXPECT_EQ(Left(), (Tree{{"file", "contents"}}));
}

TEST_F(DeleteDirectory, ManyEntriesAreRemovedWhileListed) {
  MakeDirectory("a");
  for (int number = 0; number < 1000; ++number) {
    MakeFile("a/" + std::to_string(number));
  }
  Delete(At("a"));
  EXPECT_EQ(Left(), Tree());
}

TEST_F(DeleteDirectory, NamesStartingWithDotsAreNotSkipped) {
  MakeDirectory("a/...");
  MakeDirectory("a/..b");
  MakeFile("a/.c");
  Delete(At("a"));
  EXPECT_EQ(Left(), Tree());
}

TEST_F(DeleteDirectory, NamesMayHoldEveryByte) {
  MakeDirectory("a");
  for (int byte = 1; byte < 256; ++byte) {
    const std::string name(1, static_cast<char>(byte));
    if (name != "/" && name != "." && FileSystemTakes(At("a/" + name))) {
      MakeFile("a/" + name);
      MakeFile("a/x" + name + "%s");
    }
  }
  Delete(At("a"));
  EXPECT_EQ(Left(), Tree());
}

TEST_F(DeleteDirectory, NameOf255BytesIsRemoved) {
  MakeDirectory("a/" + std::string(255, 'x'));
  Delete(At("a"));
  EXPECT_EQ(Left(), Tree());
}

TEST_F(DeleteDirectory, LinksAreRemovedAndNotFollowed) {
  MakeDirectory("outside");
  MakeFile("outside/file");
  MakeDirectory("a");
  MakeLink(At("outside"), "a/toDirectory");
  MakeLink(At("outside/file"), "a/toFile");
  MakeLink("nowhere", "a/dangling");
  MakeLink("..", "a/above");
  Delete(At("a"));
  EXPECT_EQ(Left(), (Tree{{"outside/", ""}, {"outside/file", "contents"}}));
}

TEST_F(DeleteDirectory, DirectoryIsDeletedWhenStandardInputIsClosed) {
  MakeDirectory("a");
  const int input = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  Delete(At("a"));
  dup2(input, STDIN_FILENO);
  close(input);
  EXPECT_EQ(Left(), Tree{});
}

TEST_F(DeleteDirectory, LinkGivenAsThePathIsNotFollowed) {
  MakeDirectory("outside");
  MakeFile("outside/file");
  MakeLink("outside", "link");
  Delete(At("link"));
  EXPECT_EQ(Left(), (Tree{{"link//", ""}, {"outside/", ""}, {"outside/file", "contents"}}));
}

TEST_F(DeleteDirectory, PipesAreRemovedWithoutBeingOpened) {
  MakeDirectory("a");
  ASSERT_EQ(mkfifo(At("a/pipe").c_str(), 0600), 0);
  Delete(At("a"));
  Delete(At("missing"));
  EXPECT_EQ(Left(), Tree());
}

TEST_F(DeleteDirectory, PipeGivenAsThePathIsNotOpened) {
  ASSERT_EQ(mkfifo(At("pipe").c_str(), 0600), 0);
  Delete(At("pipe"));
  EXPECT_TRUE(IsThere(At("pipe")));
}

TEST_F(DeleteDirectory, EntriesThatCannotBeRemovedStay) {
  MakeDirectory("a");
  fs::permissions(At("a"), fs::perms::all);
  MakeDirectory("a/closed");
  MakeFile("a/closed/stays");
  MakeFile("a/goes");
  MakeDirectory("a/closed", 0555);
  EXPECT_TRUE(AsOrdinaryUser([this] { return OSUtils::DeleteDir(At("a")); }));
  EXPECT_EQ(Left(), (Tree{{"a/", ""}, {"a/closed/", ""}, {"a/closed/stays", "contents"}}));
}

// Even an empty directory stays: a directory that cannot be opened counts as deleted.
TEST_F(DeleteDirectory, UnreadableDirectoryIsSkipped) {
  MakeDirectory("a");
  fs::permissions(At("a"), fs::perms::all);
  MakeDirectory("a/closed", 0);
  MakeFile("a/goes");
  EXPECT_TRUE(AsOrdinaryUser([this] { return OSUtils::DeleteDir(At("a")); }));
  EXPECT_EQ(chmod(At("a/closed").c_str(), 0755), 0);
  EXPECT_EQ(Left(), (Tree{{"a/", ""}, {"a/closed/", ""}}));
}

TEST_F(DeleteDirectory, DirectoriesBeyondTheDescriptorLimitAreSkipped) {
  MakeDirectory("a/b/c/d/e/f");
  EXPECT_TRUE(InChild([this] {
    const auto limit = static_cast<rlim_t>(OpenDescriptors()) + 3;
    const rlimit few = {limit, limit};
    return setrlimit(RLIMIT_NOFILE, &few) == 0 && OSUtils::DeleteDir(At("a"));
  }));
  EXPECT_TRUE(IsThere(At("a/b/c/d/e/f")));
}

TEST_F(DeleteDirectory, FileWithAPathOf1023BytesIsRemoved) {
  const std::string path = DirectoryOfLength(1000);
  WriteFile(path + "/" + std::string(22, 'x'), "");
  Delete(path);
  EXPECT_FALSE(IsThere(path));
}

TEST_F(DeleteDirectory, FileWithALongerPathStays) {
  SKIP_UNLESS_FILE_SYSTEM_TAKES(PathOfLength(kLongestPath + 1));
  const std::string path = DirectoryOfLength(1000);
  WriteFile(path + "/" + std::string(23, 'x'), "");
  WriteFile(path + "/y", "");
  Delete(path);
  EXPECT_EQ(TreeOf(path), (Tree{{std::string(23, 'x'), ""}}));
}

// On purpose: the function deletes the entry at the truncated path, even if that is another entry.
TEST_F(DeleteDirectory, TruncatedPathNamesAnotherEntry) {
  SKIP_UNLESS_FILE_SYSTEM_TAKES(PathOfLength(kLongestPath + 1));
  const std::string path = DirectoryOfLength(1020);
  WriteFile(path + "/xy", "");
  WriteFile(path + "/xyz", "");
  Delete(path);
  EXPECT_EQ(TreeOf(path), (Tree{{"xyz", ""}}));
}

TEST_F(DeleteDirectory, LinkNamedByATruncatedPathIsNotFollowed) {
  SKIP_UNLESS_FILE_SYSTEM_TAKES(PathOfLength(kLongestPath + 1));
  MakeDirectory("outside");
  MakeFile("outside/file");
  const std::string path = DirectoryOfLength(1020);
  fs::create_symlink(At("outside"), path + "/xy");
  for (char last = 'a'; last <= 'z'; ++last) {  // for any order of the listing
    fs::create_directory(path + "/xy" + last);
  }
  Delete(path);
  EXPECT_EQ(ReadFile(At("outside/file")), "contents");
  EXPECT_FALSE(IsThere(path + "/xy"));
  EXPECT_TRUE(IsThere(path + "/xya"));
}

TEST_F(DeleteDirectory, NameTruncatedToTwoDotsIsSkipped) {
  SKIP_UNLESS_FILE_SYSTEM_TAKES(PathOfLength(kLongestPath + 1));
  const std::string above = DirectoryOfLength(1000);
  const std::string path = above + "/" + std::string(19, 'd');
  ASSERT_EQ(path.length(), kLongestPath - 3);
  fs::create_directories(path + "/..x/y");
  WriteFile(above + "/sibling", "");
  Delete(path);
  EXPECT_TRUE(IsThere(path + "/..x/y"));
  EXPECT_TRUE(IsThere(above + "/sibling"));
}

TEST_F(DeleteDirectory, NameTruncatedToOneDotIsSkipped) {
  SKIP_UNLESS_FILE_SYSTEM_TAKES(PathOfLength(kLongestPath + 1));
  const std::string path = DirectoryOfLength(kLongestPath - 2);
  fs::create_directories(path + "/.x/y");
  Delete(path);
  EXPECT_TRUE(IsThere(path + "/.x/y"));
}

TEST_F(DeleteDirectory, EmptyDirectoriesWithTheLongestPathsAreRemoved) {
  for (const std::size_t length : {kLongestPath - 2, kLongestPath - 1, kLongestPath}) {
    const std::string path = DirectoryOfLength(length);
    Delete(path);
    EXPECT_FALSE(IsThere(path)) << length;
  }
}

// No byte of an entry's name fits after such a path: the truncated path would name the directory
// itself.
TEST_F(DeleteDirectory, DirectoryWithoutRoomForANameIsNotEnteredAgain) {
  SKIP_UNLESS_FILE_SYSTEM_TAKES(PathOfLength(kLongestPath + 1));
  for (const std::size_t length : {kLongestPath - 1, kLongestPath}) {
    const std::string path = DirectoryOfLength(length);
    fs::create_directory(path + "/d");
    WriteFile(path + "/x", "");
    Delete(path);
    EXPECT_EQ(TreeOf(path), (Tree{{"d/", ""}, {"x", ""}})) << length;
  }
}

TEST_F(DeleteDirectory, TreeIsRemovedDownToPathsOf1023Bytes) {
  const ScopedWorkingDirectory here(Root());
  std::string path = "d";
  while (path.length() < kLongestPath) {
    path += "/d";
  }
  fs::create_directories(path);
  Delete("d");
  EXPECT_EQ(Left(), Tree());
}

TEST_F(DeleteDirectory, DeeperTreeStaysBelowPathsOf1023Bytes) {
  SKIP_UNLESS_FILE_SYSTEM_TAKES(PathOfLength(kLongestPath + 1));
  const ScopedWorkingDirectory here(Root());
  std::string path = "d";
  while (path.length() < kLongestPath + 500) {
    path += "/d";
  }
  fs::create_directories(path);
  WriteFile("d/d/file", "");
  Delete("d");
  EXPECT_TRUE(IsThere(path));
  EXPECT_FALSE(IsThere("d/d/file"));
}

// DeleteAllDirectoryExceptOne -------------------------------------------------------------------

class DeleteAllButOne : public Directories {
 protected:
  void DeleteAllBut(const std::string& keep) const {
    EXPECT_TRUE(OSUtils::DeleteAllDirectoryExceptOne(Root(), keep));
  }
};

TEST_F(DeleteAllButOne, OnlyTheKeptDirectoryStays) {
  MakeDirectory("Resource0/css");
  MakeDirectory("Resource3");
  MakeFile("Resource0/css/a");
  MakeFile("Resource3/b");
  MakeFile("x");
  DeleteAllBut("Resource3");
  EXPECT_EQ(Left(), (Tree{{"Resource3/", ""}, {"Resource3/b", "contents"}}));
}

TEST_F(DeleteAllButOne, NameWithoutAnEntryEmptiesTheRoot) {
  MakeDirectory("Resource0");
  MakeFile("x");
  DeleteAllBut("Resource3");
  EXPECT_EQ(Left(), Tree());
}

TEST_F(DeleteAllButOne, EmptyRootStays) {
  DeleteAllBut("Resource0");
  EXPECT_TRUE(fs::is_directory(Root()));
}

TEST_F(DeleteAllButOne, MissingRootIsTrue) {
  EXPECT_TRUE(OSUtils::DeleteAllDirectoryExceptOne(At("missing/"), "Resource0"));
}

TEST_F(DeleteAllButOne, UnreadableRootIsTrueAndKeepsAll) {
  MakeFile("x");
  ASSERT_EQ(chmod(Root().c_str(), 0333), 0);
  EXPECT_TRUE(AsOrdinaryUser([this] { return OSUtils::DeleteAllDirectoryExceptOne(Root(), ""); }));
  ASSERT_EQ(chmod(Root().c_str(), 0777), 0);
  EXPECT_EQ(Left(), (Tree{{"x", "contents"}}));
}

TEST_F(DeleteAllButOne, NameIsComparedCaseSensitively) {
  MakeDirectory("Resource3");
  DeleteAllBut("resource3");
  EXPECT_EQ(Left(), Tree());
}

TEST_F(DeleteAllButOne, NameIsComparedWhole) {
  MakeDirectory("Resource");
  MakeDirectory("Resource1");
  MakeDirectory("Resource10");
  DeleteAllBut("Resource1");
  EXPECT_EQ(Left(), (Tree{{"Resource1/", ""}}));
}

TEST_F(DeleteAllButOne, EmptyNameKeepsNothing) {
  MakeDirectory("a");
  DeleteAllBut("");
  EXPECT_EQ(Left(), Tree());
}

TEST_F(DeleteAllButOne, EntryOfTheKeptNameFurtherDownIsRemoved) {
  MakeDirectory("a/Resource3");
  DeleteAllBut("Resource3");
  EXPECT_EQ(Left(), Tree());
}

TEST_F(DeleteAllButOne, PlainFileCanBeKept) {
  MakeFile("x");
  MakeFile("y");
  DeleteAllBut("x");
  EXPECT_EQ(Left(), (Tree{{"x", "contents"}}));
}

TEST_F(DeleteAllButOne, LinksAreRemovedAndNotFollowed) {
  const std::string outside = directory_ / "outside";
  fs::create_directory(outside);
  WriteFile(outside + "/file", "contents");
  MakeLink(outside, "toDirectory");
  MakeLink(outside + "/file", "toFile");
  MakeLink("nowhere", "dangling");
  DeleteAllBut("Resource0");
  EXPECT_EQ(Left(), Tree());
  EXPECT_EQ(TreeOf(outside), (Tree{{"file", "contents"}}));
}

TEST_F(DeleteAllButOne, OddNamesAreRemoved) {
  for (int byte = 1; byte < 256; ++byte) {
    const std::string name = "x" + std::string(1, static_cast<char>(byte));
    if (byte != '/' && FileSystemTakes(At(name))) {
      MakeDirectory(name);
    }
  }
  MakeDirectory("...");
  MakeFile(".hidden");
  DeleteAllBut("Resource0");
  EXPECT_EQ(Left(), Tree());
}

TEST_F(DeleteAllButOne, RootIsJoinedWithoutASeparator) {
  MakeDirectory("sub");
  MakeFile("sub/x");
  MakeFile("subx");
  EXPECT_TRUE(OSUtils::DeleteAllDirectoryExceptOne(At("sub"), ""));
  EXPECT_EQ(Left(), (Tree{{"sub/", ""}, {"sub/x", "contents"}}));
}

TEST_F(DeleteAllButOne, EntriesThatCannotBeRemovedStay) {
  MakeDirectory("closed");
  MakeFile("closed/stays");
  MakeFile("goes");
  MakeDirectory("closed", 0555);
  EXPECT_TRUE(
      AsOrdinaryUser([this] { return OSUtils::DeleteAllDirectoryExceptOne(Root(), "none"); }));
  EXPECT_EQ(Left(), (Tree{{"closed/", ""}, {"closed/stays", "contents"}}));
}

// On purpose, because the process is short-lived.
TEST_F(DeleteAllButOne, RootStreamAloneStaysOpen) {
  MakeDirectory("a/b/c");
  MakeDirectory("d");
  const int before = OpenDescriptors();
  DeleteAllBut("d");
  EXPECT_EQ(OpenDescriptors(), before + 1);
}

TEST_F(DeleteAllButOne, RootStreamOfEveryCallStaysOpen) {
  const int before = OpenDescriptors();
  DeleteAllBut("d");
  DeleteAllBut("d");
  EXPECT_EQ(OpenDescriptors(), before + 2);
}

TEST_F(DeleteAllButOne, MissingRootLeavesNoStream) {
  const int before = OpenDescriptors();
  OSUtils::DeleteAllDirectoryExceptOne(At("missing/"), "d");
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(DeleteAllButOne, KeptDirectoryCanBeRenamedNext) {
  MakeDirectory("Resource0");
  MakeDirectory("Resource1");
  DeleteAllBut("Resource1");
  fs::rename(At("Resource1"), At("Resource0"));
  EXPECT_EQ(Left(), (Tree{{"Resource0/", ""}}));
}

TEST_F(DeleteAllButOne, PathsOver1023BytesAreTruncated) {
  SKIP_UNLESS_FILE_SYSTEM_TAKES(PathOfLength(kLongestPath + 1));
  const std::string root = DirectoryOfLength(1020) + "/";
  WriteFile(root + "xy", "");
  WriteFile(root + "xyz", "");
  EXPECT_TRUE(OSUtils::DeleteAllDirectoryExceptOne(root, "none"));
  EXPECT_EQ(TreeOf(root.substr(0, 1020)), (Tree{{"xyz", ""}}));
}

TEST_F(DeleteAllButOne, RootWithoutRoomForANameKeepsAll) {
  SKIP_UNLESS_FILE_SYSTEM_TAKES(PathOfLength(kLongestPath + 1));
  const std::string root = DirectoryOfLength(kLongestPath - 1) + "/";
  fs::create_directory(root + "d");
  WriteFile(root + "x", "");
  EXPECT_TRUE(OSUtils::DeleteAllDirectoryExceptOne(root, "none"));
  EXPECT_EQ(TreeOf(root.substr(0, kLongestPath - 1)), (Tree{{"d/", ""}, {"x", ""}}));
}

}  // namespace
