// The comparison of trees, and the parts of the comparison.

#include <gtest/gtest.h>
#include <unistd.h>

#include "Support.h"
#include "prediction/TreeComparison.h"
#include "support/AtomicFile.h"
#include "support/Error.h"
#include "support/Files.h"
#include "support/Text.h"

using namespace webresources;

namespace {

namespace fs = std::filesystem;

FileItem File(const std::string& path, const std::string& content) {
  FileItem item;
  item.path = path;
  item.type = FileItem::Type::File;
  item.size = content.length();
  Sha256 hash;
  hash.Update(content.data(), content.length());
  item.sha256 = hash.Finish();
  return item;
}

FileItem Directory(const std::string& path) {
  FileItem item;
  item.path = path;
  return item;
}

std::string Text(const Differences& differences) {
  std::string text;
  for (const Difference& difference : differences) {
    text += std::to_string(static_cast<int>(difference.kind)) + difference.path + " ";
  }
  return text;
}

TEST(Trees, EqualTreesHaveNoDifferences) {
  const FileTree tree = {Directory("."), File("a", "x"), Directory("b")};
  EXPECT_EQ(Text(Compare(tree, tree)), "");
}

TEST(Trees, SameSizeWithOtherContentIsADifference) {
  EXPECT_EQ(Text(Compare({File("a", "x")}, {File("a", "y")})), "3a ");
}

TEST(Trees, SameChecksumDoesNotHideOtherContent) {
  FileItem expected = File("a", "x");
  FileItem actual = File("a", "y");
  expected.crc32 = actual.crc32 = 1;
  EXPECT_EQ(Text(Compare({expected}, {actual})), "3a ");
}

TEST(Trees, AttributesAreComparedWhereBothAreKnown) {
  FileItem expected = File("a", "x");
  FileItem actual = expected;
  actual.mode = 0600;
  EXPECT_EQ(Text(Compare({expected}, {actual}, 0)), "");
  actual.owner = 1;
  EXPECT_EQ(Text(Compare({expected}, {actual})), "");
  EXPECT_EQ(Text(Compare({expected}, {actual}, 1)), "");
  expected.mode = 0644;
  EXPECT_EQ(Text(Compare({expected}, {actual}, 0)), "4a 5a ");
  EXPECT_EQ(Text(OfContent(Compare({expected}, {actual}, 0))), "");
}

TEST(Trees, DifferencesNameTheDefect) {
  FileItem ours = File("i", "x");
  FileItem strangers = ours;
  ours.mode = 0644;
  strangers.mode = 04755;
  strangers.owner = 1;
  std::string said;
  for (const Difference& difference :
       Compare({Directory("a"), File("b", ""), File("d", ""), File("e", "1"), File("f", "1"), ours},
               {File("a", ""), Directory("b"), File("c", ""), File("e", "22"), File("f", "2"),
                strangers},
               0)) {
    said += difference.path + " " + difference.reason + "\n";
  }
  EXPECT_EQ(said,
            "a it is not a directory\n"
            "b it is not a regular file\n"
            "c it does not belong there\n"
            "d it is missing\n"
            "e it has 2 bytes instead of 1\n"
            "f it has other content\n"
            "i its mode is 4755 instead of 0644\n"
            "i its owner is user 1 instead of 0\n");
}

TEST(Trees, DirectoryIncludesItsContentAtTheTopmostDifference) {
  // In the order of bytes, "a-" is between "a" and "a/b".
  const FileTree expected = {Directory("."), Directory("a"), File("a-", "x"), File("a/b", "x")};
  const FileTree actual = {Directory(".")};
  EXPECT_EQ(Text(Compare(expected, actual)), "0a 0a- 0a/b ");
  EXPECT_EQ(Text(Topmost(Compare(expected, actual))), "0a 0a- ");
  EXPECT_EQ(Text(Topmost(Compare(expected, {Directory("."), File("a", "")}))), "2a 0a- ");
}

TEST(Trees, PathsThatSomeVolumesRefuseOrMergeAreLeftOutWithEverythingBelow) {
  const FileTree expected = {Directory("."),         Directory("D"),    File("D/x", "1"),
                             Directory("E"),         File("\xE4", "x"), File("d", "2"),
                             File("e\xCC\x81", "1"), File("f", "x"),    File("\xC3\xA9", "2")};
  const std::vector<std::string> paths = PathsForSomeVolumesOnly(expected);
  EXPECT_EQ(paths, (std::vector<std::string>{"D", "d", "e\xCC\x81", "\xC3\xA9", "\xE4"}));
  EXPECT_EQ(Text(Without(paths, Compare(expected, {Directory(".")}))), "0E 0f ");
}

TEST(Trees, ChangesAreCountedByFiles) {
  const TreeChanges changes = ChangesBetween(
      {Directory("."), File("changed", "1"), File("gone", ""), File("same", "x")},
      {Directory("."), File("changed", "2"), Directory("d"), File("d/new", ""), File("same", "x")});
  EXPECT_EQ(changes.added, 1U);
  EXPECT_EQ(changes.changed, 1U);
  EXPECT_EQ(changes.removed, 1U);
  EXPECT_EQ(changes.unchanged, 1U);
}

TEST(Trees, DiskIsReadWithoutFollowingOrOpeningAnythingElse) {
  ScopedDirectory directory;
  WriteFile(directory / "file", "abc");
  fs::create_directory(std::string(directory / "d"));
  fs::create_symlink("file", std::string(directory / "link"));
  ASSERT_EQ(mkfifo(std::string(directory / "fifo").c_str(), 0644), 0);
  std::string found;
  for (const FileItem& item : ReadTree(directory / "", Checksum::Sha256)) {
    found += item.path + std::to_string(static_cast<int>(item.type)) + " ";
  }
  EXPECT_EQ(found, ".0 d0 fifo2 file1 link2 ");
  EXPECT_EQ(DigestText(*ReadTree(directory / "", Checksum::Sha256)[3].sha256),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(Digest, TextIsReadBack) {
  const Sha256::Digest digest = Sha256().Finish();
  EXPECT_EQ(DigestFrom(DigestText(digest)), digest);
  for (const char* text : {"", "00", "zz"}) {
    EXPECT_THROW(DigestFrom(text), std::invalid_argument) << text;
  }
  try {
    DigestFrom("zz");
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "it is not a SHA-256 digest: zz");
  }
}

TEST(Digest, FifoAndLinkToNothingAreNotRead) {
  ScopedDirectory directory;
  fs::create_symlink("missing", std::string(directory / "link"));
  ASSERT_EQ(mkfifo(std::string(directory / "fifo").c_str(), 0644), 0);
  for (const char* name : {"link", "fifo", "missing"}) {
    EXPECT_THROW(DigestOfFile(directory / name), Error) << name;
  }
}

TEST(Names, HexadecimalIsReadBack) {
  EXPECT_EQ(FromHexadecimal(Hexadecimal("\xE4\x01z")), "\xE4\x01z");
  for (const char* text : {"0", "0g", "G0", "000"}) {
    EXPECT_EQ(FromHexadecimal(text), std::nullopt) << text;
  }
}

TEST(Names, SuggestionIsTheNearestWordWithinTwoChanges) {
  const std::vector<std::string> words = {"install", "installcheck", "plan", "status"};
  EXPECT_EQ(Suggestion("instal", words), "install");
  EXPECT_EQ(Suggestion("isntall", words), "install");
  EXPECT_EQ(Suggestion("plann", words), "plan");
  EXPECT_EQ(Suggestion("plann", {"plan", "plaza"}), "plan");
  EXPECT_EQ(Suggestion("stat", words), "status");
  for (const char* typed : {"", "x", "pl", "remove", "installchecker!!"}) {
    EXPECT_EQ(Suggestion(typed, words), std::nullopt) << typed;
  }
}

TEST(Text, QuotedWordIsOneWordForAShell) {
  EXPECT_EQ(ShellQuoted("it's a \"$x\""), "'it'\\''s a \"$x\"'");
}

TEST(AtomicFile, LinkWithTheNameOfTheBackupIsNoFailure) {
  const ScopedDirectory directory;
  const std::string path = directory / "f";
  WriteFile(path, "old");
  fs::create_symlink("nowhere", directory / (".f.old-" + std::to_string(getpid())));
  {
    AtomicFile file(path);
    file.Write("new");
    file.CommitDurably();
    EXPECT_EQ(ReadFile(path), "new");
    file.Rollback();
  }
  EXPECT_EQ(ReadFile(path), "old");
  EXPECT_EQ(std::distance(fs::directory_iterator(std::string(directory / "")), {}), 1);
}

TEST(AtomicFile, CommittedFileIsInPlaceWithoutLeftovers) {
  ScopedDirectory directory;
  const std::string path = directory / "file";
  WriteFile(path, "old");
  {
    AtomicFile file(path);
    WriteFile(file.temporary(), "new");
    file.CommitDurably();
  }
  EXPECT_EQ(ReadFile(path), "new");
  EXPECT_EQ(std::distance(fs::directory_iterator(std::string(directory / "")), {}), 1);
}

}  // namespace
