#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "InstallerUtils.h"
#include "PackageReader.h"
#include "Support.h"
#include "ZipBuilder.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kCopySize = 8192;

/// Returns bytes that do not compress, equal in every run.
std::string Noise(std::size_t length) {
  std::minstd_rand generator(1);
  std::string bytes;
  while (bytes.length() < length) {
    bytes += static_cast<char>(generator() >> 8);
  }
  return bytes;
}

/// Returns bytes that compress well.
std::string Text(std::size_t length) {
  std::string text;
  while (text.length() < length) {
    text += "line " + std::to_string(text.length() % 977) + "\n";
  }
  return text.substr(0, length);
}

/// Returns a name of exactly `length` bytes, with components that a file system accepts.
std::string NameOfLength(std::size_t length) {
  std::string name;
  while (length - name.length() > 200) {
    name += std::string(99, 'n') + "/";
  }
  return name + std::string(length - name.length(), 'n');
}

class Extraction : public testing::Test {
 protected:
  std::string Package() const { return directory_ / "package.zip"; }
  std::string Destination() const { return directory_ / "out"; }

  bool Uncompress(std::string package, std::string destination) const {
    return InstallerUtils::UncompressPackageFiles(package, destination);
  }

  /// Extracts the archive `bytes` and returns the tree of the destination. Expects a success, no
  /// change outside the destination, and no open descriptor.
  Tree ExtractBytes(const std::string& bytes) const {
    WriteFile(Package(), bytes);
    const int descriptors = OpenDescriptors();
    EXPECT_TRUE(Uncompress(Package(), Destination()));
    EXPECT_EQ(OpenDescriptors(), descriptors);
    const auto entries = fs::directory_iterator(directory_ / "");
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 2);
    EXPECT_EQ(ReadFile(Package()), bytes);
    return TreeOf(Destination());
  }

  Tree Extract(const std::vector<ZipEntry>& entries) const { return ExtractBytes(Zip(entries)); }

  ScopedDirectory directory_;
};

// The kind of an entry --------------------------------------------------------------------------

TEST(KindOfEntry, DependsOnTheNameAlone) {
  using Kind = PackageEntry::Kind;
  EXPECT_EQ(PackageReader::KindOf("a", 1), Kind::File);
  EXPECT_EQ(PackageReader::KindOf("a/", 2), Kind::Directory);
  EXPECT_EQ(PackageReader::KindOf("", 0), Kind::NameEmpty);
  EXPECT_EQ(PackageReader::KindOf("a/../..", 7), Kind::ClimbsOut);
  EXPECT_EQ(PackageReader::KindOf("a", 512), Kind::NameTooLong);
}

// Extracted entries -----------------------------------------------------------------------------

TEST_F(Extraction, DirectoryEntryBeforeItsFileCreatesBoth) {
  EXPECT_EQ(Extract({{"css/", ""}, {"css/a.css", "a"}}), (Tree{{"css/", ""}, {"css/a.css", "a"}}));
}

// On purpose: a package must have an entry for each directory.
TEST_F(Extraction, FileWithoutAnEntryForItsDirectoryIsNotWritten) {
  EXPECT_EQ(Extract({{"css/a.css", "a"}}), Tree());
}

TEST_F(Extraction, OnlyTopLevelFilesComeOutOfAnArchiveWithoutDirectoryEntries) {
  EXPECT_EQ(Extract({{"a", "1"}, {"css/a.css", "2"}, {"b", "3"}, {"css/js/x", "4"}}),
            (Tree{{"a", "1"}, {"b", "3"}}));
}

// Entries are extracted in the order of the archive, without sorting.
TEST_F(Extraction, DirectoryEntryAfterItsFileIsTooLateForIt) {
  EXPECT_EQ(Extract({{"css/a.css", "a"}, {"css/", ""}, {"css/b.css", "b"}}),
            (Tree{{"css/", ""}, {"css/b.css", "b"}}));
}

TEST_F(Extraction, DirectoryEntryCreatesItsMissingParents) {
  EXPECT_EQ(Extract({{"a/b/c/", ""}, {"a/x", "x"}, {"a/b/y", "y"}}),
            (Tree{{"a/", ""}, {"a/b/", ""}, {"a/b/c/", ""}, {"a/x", "x"}, {"a/b/y", "y"}}));
}

TEST_F(Extraction, DirectoryEntryThatIsThereAlreadyIsNoError) {
  fs::create_directories(Destination() + "/x");
  EXPECT_EQ(Extract({{"x/", ""}, {"x/", ""}, {"x/a", "a"}}), (Tree{{"x/", ""}, {"x/a", "a"}}));
}

TEST_F(Extraction, EmptyFileIsCreated) {
  EXPECT_EQ(Extract({{"a", ""}, {"b", "", kDeflated}}), (Tree{{"a", ""}, {"b", ""}}));
}

TEST_F(Extraction, FilesOfEverySizeAroundTheBuffersAreWhole) {
  for (const std::size_t size :
       {1U, 2U, 8191U, 8192U, 8193U, 16384U, 16385U, 65535U, 65536U, 65537U, 73728U, 1000000U}) {
    EXPECT_EQ(Extract({{"stored", Noise(size)},
                       {"noise", Noise(size), kDeflated},
                       {"text", Text(size), kDeflated}}),
              (Tree{{"stored", Noise(size)}, {"noise", Noise(size)}, {"text", Text(size)}}))
        << size;
  }
}

TEST_F(Extraction, ContentsMayHoldEveryByte) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) {
    bytes += static_cast<char>(byte);
  }
  EXPECT_EQ(Extract({{"a", bytes}, {"b", bytes, kDeflated}}), (Tree{{"a", bytes}, {"b", bytes}}));
}

TEST_F(Extraction, DirectoryEntrysDataIsNotWritten) {
  EXPECT_EQ(Extract({{"a/", "data"}}), (Tree{{"a/", ""}}));
}

TEST_F(Extraction, ManyEntriesAreAllExtracted) {
  std::vector<ZipEntry> entries;
  Tree expected;
  for (int number = 0; number < 1000; ++number) {
    const std::string text = std::to_string(number);
    entries.push_back({text, text, number % 2 == 0 ? kStored : kDeflated});
    expected[text] = text;
  }
  EXPECT_EQ(Extract(entries), expected);
}

TEST_F(Extraction, ArchiveBehindOtherBytesIsExtracted) {
  EXPECT_EQ(ExtractBytes("#!/bin/sh\n" + Zip({{"a", "1"}})), (Tree{{"a", "1"}}));
}

TEST_F(Extraction, ModesAndTimesOfTheArchiveAreNotApplied) {
  const ScopedUmask mask(027);
  ZipEntry file("a", "1");
  file.attributes = 0100777U << 16U;
  ZipEntry directory("d/", "");
  directory.attributes = 040700U << 16U;
  Extract({file, directory});
  EXPECT_EQ(Mode(Destination() + "/a"), 0640U);
  EXPECT_EQ(Mode(Destination() + "/d"), 0750U);
  EXPECT_GE(fs::last_write_time(Destination() + "/a") + std::chrono::hours(1),
            fs::file_time_type::clock::now());
}

TEST_F(Extraction, LinkInTheArchiveBecomesAPlainFile) {
  ZipEntry link("link", "../../etc");
  link.attributes = 0120777U << 16U;
  EXPECT_EQ(Extract({link}), (Tree{{"link", "../../etc"}}));
}

// Entries with the same path --------------------------------------------------------------------

TEST_F(Extraction, LastOfDuplicateEntriesWins) {
  EXPECT_EQ(Extract({{"a", "long contents"}, {"a", "short"}}), (Tree{{"a", "short"}}));
}

TEST_F(Extraction, FileInADirectorysPlaceIsSkipped) {
  EXPECT_EQ(Extract({{"x/", ""}, {"x", "file"}, {"y", "y"}}), (Tree{{"x/", ""}, {"y", "y"}}));
}

TEST_F(Extraction, DirectoryInAFilesPlaceIsSkippedWithItsFiles) {
  EXPECT_EQ(Extract({{"x", "file"}, {"x/", ""}, {"x/a", "a"}, {"y", "y"}}),
            (Tree{{"x", "file"}, {"y", "y"}}));
}

TEST_F(Extraction, SecondRunOverwritesTheFirst) {
  Extract({{"a", "long contents"}, {"old", "stays"}});
  EXPECT_EQ(Extract({{"a", "short"}}), (Tree{{"a", "short"}, {"old", "stays"}}));
}

TEST_F(Extraction, SecondRunOfTheSameArchiveChangesNothing) {
  const std::vector<ZipEntry> entries = {{"d/", ""}, {"d/a", Noise(20000), kDeflated}};
  const Tree first = Extract(entries);
  EXPECT_EQ(Extract(entries), first);
}

// Existing files at output paths ----------------------------------------------------------------

ino_t FileNumber(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0);
  return status.st_ino;
}

TEST_F(Extraction, PlainFileAtAnOutputPathIsRewrittenInPlaceAndKeepsItsMode) {
  Extract({{"a", "long contents"}});
  const std::string path = Destination() + "/a";
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);
  const ino_t before = FileNumber(path);
  EXPECT_EQ(Extract({{"a", "short"}}), (Tree{{"a", "short"}}));
  EXPECT_EQ(FileNumber(path), before);
  EXPECT_EQ(Mode(path), 0640U);
}

TEST_F(Extraction, PlainFileThatMayNotBeWrittenIsSkipped) {
  Extract({{"a", "old"}});
  const std::string path = Destination() + "/a";
  ASSERT_EQ(chmod(path.c_str(), 0444), 0);
  fs::permissions(Destination(), fs::perms::all);  // so that the file could be replaced
  fs::permissions(directory_ / "", fs::perms::all);
  WriteFile(Package(), Zip({{"a", "new"}, {"b", "new"}}));
  EXPECT_TRUE(AsOrdinaryUser([this] { return Uncompress(Package(), Destination()); }));
  EXPECT_EQ(TreeOf(Destination()), (Tree{{"a", "old"}, {"b", "new"}}));
}

TEST_F(Extraction, LinkAtAnOutputPathIsReplacedAndNotWrittenThrough) {
  WriteFile(Package(), Zip({{"hard", "new"}, {"linked", "new"}, {"dangling", "new"}}));
  fs::create_directory(Destination());
  const std::string victim = directory_ / "victim";
  WriteFile(victim, "old");
  fs::create_hard_link(victim, Destination() + "/hard");
  fs::create_symlink(victim, Destination() + "/linked");
  fs::create_symlink(directory_ / "missing", Destination() + "/dangling");
  EXPECT_TRUE(Uncompress(Package(), Destination()));
  EXPECT_EQ(TreeOf(Destination()), (Tree{{"dangling", "new"}, {"hard", "new"}, {"linked", "new"}}));
  EXPECT_EQ(ReadFile(victim), "old");
  EXPECT_FALSE(fs::exists(directory_ / "missing"));
}

TEST_F(Extraction, FifoAtAnOutputPathIsReplacedAndNotWaitedFor) {
  WriteFile(Package(), Zip({{"a", "new"}}));
  fs::create_directory(Destination());
  ASSERT_EQ(mkfifo((Destination() + "/a").c_str(), 0666), 0);
  EXPECT_TRUE(Uncompress(Package(), Destination()));
  EXPECT_EQ(TreeOf(Destination()), (Tree{{"a", "new"}}));
}

TEST_F(Extraction, LinkInTheDestinationsPlaceFails) {
  WriteFile(Package(), Zip({{"a", "new"}}));
  fs::create_directory(directory_ / "elsewhere");
  fs::create_symlink(directory_ / "elsewhere", Destination());
  EXPECT_FALSE(Uncompress(Package(), Destination()));
  EXPECT_EQ(TreeOf(directory_ / "elsewhere"), Tree());
}

// Names -----------------------------------------------------------------------------------------

TEST_F(Extraction, NamesAreUsedByteForByte) {
  for (int byte = 1; byte < 256; ++byte) {
    const std::string name = "x" + std::string(1, static_cast<char>(byte)) + "y%s";
    if (byte != '/' && FileSystemTakes(Destination() + "/" + name)) {
      EXPECT_EQ(Extract({{name, "1"}}), (Tree{{name, "1"}})) << byte;
      fs::remove_all(Destination());
    }
  }
}

TEST_F(Extraction, BackslashIsNoSeparator) {
  EXPECT_EQ(Extract({{"..\\a", "1"}, {"d\\", "2"}}), (Tree{{"..\\a", "1"}, {"d\\", "2"}}));
}

TEST_F(Extraction, NameOf511BytesIsWrittenWhole) {
  const std::string name = NameOfLength(511);
  EXPECT_EQ(Extract({{fs::path(name).parent_path().string() + "/", ""}, {name, "1"}})[name], "1");
}

TEST_F(Extraction, DirectoryNameOf511BytesIsMade) {
  Extract({{NameOfLength(510) + "/", ""}});
  EXPECT_TRUE(fs::is_directory(Destination() + "/" + NameOfLength(510)));
}

TEST_F(Extraction, NamesOf512BytesAndMoreAreSkipped) {
  for (const std::size_t length : {512U, 513U, 514U, 1023U, 1024U, 8192U, 65535U}) {
    EXPECT_EQ(Extract({{NameOfLength(length), "1"},
                       {NameOfLength(length - 1) + "/", ""},
                       {std::string(length, 'x'), "2"},
                       {"y", "y"}}),
              (Tree{{"y", "y"}}))
        << length;
  }
}

TEST_F(Extraction, NameThatTheFileSystemRefusesIsSkipped) {
  EXPECT_EQ(Extract({{std::string(300, 'x'), "1"}, {"y", "y"}}), (Tree{{"y", "y"}}));
}

TEST_F(Extraction, EmptyNameIsSkipped) {
  EXPECT_EQ(Extract({{"", "1"}, {"y", "y"}}), (Tree{{"y", "y"}}));
}

TEST_F(Extraction, NameEndsAtAZeroByte) {
  EXPECT_EQ(Extract({{std::string("a\0b", 3), "1"}, {std::string("d/\0e", 4), "2"}}),
            (Tree{{"a", "1"}, {"d/", ""}}));
}

TEST_F(Extraction, NameThatStartsWithAZeroByteIsSkipped) {
  EXPECT_EQ(Extract({{std::string("\0a", 2), "1"}, {"y", "y"}}), (Tree{{"y", "y"}}));
}

TEST_F(Extraction, PathTraversalsAreSkipped) {
  for (const char* name :
       {"../x", "..", "/../x", "//../x", "a/../../x", "./../x", "a/./../../x", "../out/x",
        "a/b/../../../x", "../../../../../../../../tmp/x", "a/../..", "..//x"}) {
    EXPECT_EQ(Extract({{"a/b/", ""}, {name, "1"}, {"y", "y"}}),
              (Tree{{"a/", ""}, {"a/b/", ""}, {"y", "y"}}))
        << name;
  }
}

TEST_F(Extraction, PathTraversalsOfDirectoriesAreSkipped) {
  for (const char* name : {"../", "../x/", "/../x/", "a/../../x/", "a/../../", "../../x/y/"}) {
    EXPECT_EQ(Extract({{"a/", ""}, {name, ""}, {"y", "y"}}), (Tree{{"a/", ""}, {"y", "y"}}))
        << name;
  }
}

TEST_F(Extraction, NamesWithDotsInsideTheDestinationAreWritten) {
  for (const char* name :
       {"a/../x", "/x", "//x", "./x", "a/b/../../x", "a/../a/../x", "./a/.././x", "a//..//x"}) {
    EXPECT_EQ(Extract({{"a/b/", ""}, {name, "1"}}), (Tree{{"a/", ""}, {"a/b/", ""}, {"x", "1"}}))
        << name;
    fs::remove_all(Destination());
  }
}

TEST_F(Extraction, NameAfterALongPathTraversalEndsAtItsZeroByte) {
  EXPECT_EQ(Extract({{"long/../../x", "x"}, {"name", "y"}}), (Tree{{"name", "y"}}));
}

TEST_F(Extraction, NamesThatContainDotsAreOrdinary) {
  const Tree tree = {{"...", "1"}, {"..x", "2"}, {".x", "3"}, {"x..", "4"}, {".. ", "5"}};
  EXPECT_EQ(Extract({{"...", "1"}, {"..x", "2"}, {".x", "3"}, {"x..", "4"}, {".. ", "5"}}), tree);
}

TEST_F(Extraction, NamesOfTheDestinationItselfAreSkipped) {
  for (const char* name : {".", "a/..", "/", "./", "a/../", "a/."}) {
    EXPECT_EQ(Extract({{"a/", ""}, {name, ""}, {"y", "y"}}), (Tree{{"a/", ""}, {"y", "y"}}))
        << name;
  }
}

TEST_F(Extraction, AbsoluteNameStaysInsideTheDestination) {
  EXPECT_EQ(Extract({{"/etc/", ""}, {"/etc/x", "1"}}), (Tree{{"etc/", ""}, {"etc/x", "1"}}));
}

// Archives that cannot be read ------------------------------------------------------------------

TEST_F(Extraction, EmptyArchiveLeavesAnEmptyDestination) {
  EXPECT_EQ(Extract({}), Tree());
}

TEST_F(Extraction, MissingArchiveLeavesAnEmptyDestination) {
  const int descriptors = OpenDescriptors();
  EXPECT_TRUE(Uncompress(directory_ / "missing.zip", directory_ / "a/b"));
  EXPECT_TRUE(Uncompress("", Destination()));
  EXPECT_EQ(TreeOf(directory_ / ""), (Tree{{"a/", ""}, {"a/b/", ""}, {"out/", ""}}));
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(Extraction, DirectoryInTheArchivesPlaceLeavesAnEmptyDestination) {
  EXPECT_TRUE(Uncompress(directory_ / "", Destination()));
  EXPECT_EQ(TreeOf(Destination()), Tree());
}

TEST_F(Extraction, UnreadableArchiveLeavesAnEmptyDestination) {
  WriteFile(Package(), Zip({{"a", "1"}}));
  ASSERT_EQ(chmod(Package().c_str(), 0), 0);
  EXPECT_TRUE(AsOrdinaryUser([this] { return Uncompress(Package(), Destination()); }));
  EXPECT_EQ(TreeOf(Destination()), Tree());
}

TEST_F(Extraction, FileThatIsNotAnArchiveLeavesAnEmptyDestination) {
  for (const std::string& bytes : {std::string(), std::string("x"), std::string("not a zip\n"),
                                   std::string("PK\x05\x06"), Noise(100000)}) {
    EXPECT_EQ(ExtractBytes(bytes), Tree()) << bytes.length();
  }
}

TEST_F(Extraction, ArchiveWithoutItsEndLeavesAnEmptyDestination) {
  const std::string bytes = Zip({{"d/", ""}, {"d/a", Text(300), kDeflated}, {"b", "2"}});
  const std::size_t endRecord = 22;
  for (std::size_t length = 0; length <= bytes.length() - endRecord; ++length) {
    EXPECT_EQ(ExtractBytes(bytes.substr(0, length)), Tree()) << length;
  }
}

TEST_F(Extraction, ArchiveWithOneByteChangedNeverFailsOrEscapes) {
  const std::string bytes = Zip({{"d/", ""}, {"d/a", Text(300), kDeflated}, {"b", "2"}});
  for (std::size_t index = 0; index < bytes.length(); ++index) {
    for (const char mask : {'\x01', '\xff'}) {
      std::string damaged = bytes;
      damaged[index] = static_cast<char>(damaged[index] ^ mask);
      ExtractBytes(damaged);
    }
  }
}

// Entries that cannot be read -------------------------------------------------------------------

TEST_F(Extraction, UnsupportedMethodIsSkippedWithoutAFile) {
  ZipEntry entry("a", "1");
  entry.method = entry.localMethod = 99;
  EXPECT_EQ(Extract({entry, {"b", "2"}}), (Tree{{"b", "2"}}));
}

TEST_F(Extraction, EntryThatCannotBeOpenedLeavesAnOlderFileAlone) {
  ZipEntry entry("b", "new");
  entry.method = entry.localMethod = 99;
  EXPECT_EQ(Extract({{"b", "old"}, entry}), (Tree{{"b", "old"}}));
}

TEST_F(Extraction, DamagedLocalHeaderIsSkippedWithoutAFile) {
  ZipEntry signature("a", "1");
  signature.localSignature = 0x04034b51;
  ZipEntry method("b", "2", kDeflated);
  method.localMethod = kStored;
  EXPECT_EQ(Extract({signature, method, {"c", "3"}}), (Tree{{"c", "3"}}));
}

TEST_F(Extraction, UnreadableRecordEndsTheExtraction) {
  ZipEntry damaged("b", "2");
  damaged.centralSignature = 0x02014b51;
  EXPECT_EQ(Extract({{"a", "1"}, damaged, {"c", "3"}}), (Tree{{"a", "1"}}));
}

TEST_F(Extraction, UnreadableFirstRecordLeavesAnEmptyDestination) {
  ZipEntry damaged("a", "1");
  damaged.centralSignature = 0x02014b51;
  EXPECT_EQ(Extract({damaged, {"b", "2"}}), Tree());
}

TEST_F(Extraction, WrongChecksumKeepsTheFileAsWritten) {
  ZipEntry stored("a", Noise(20000));
  stored.crc ^= 1;
  ZipEntry deflated("b", Text(20000), kDeflated);
  deflated.crc ^= 1;
  EXPECT_EQ(Extract({stored, deflated, {"c", "3"}}),
            (Tree{{"a", Noise(20000)}, {"b", Text(20000)}, {"c", "3"}}));
}

/// Returns an entry of which the first `intact` bytes can be inflated. No deflate block follows
/// these bytes.
ZipEntry DamagedAfter(std::size_t intact) {
  ZipEntry entry("a", Noise(intact), kDeflated);
  entry.data = Deflated(Noise(intact), Z_FULL_FLUSH) + std::string(100, '\xff');
  entry.compressed = static_cast<std::uint32_t>(entry.data.length());
  entry.size = static_cast<std::uint32_t>(intact) + 50000;
  return entry;
}

TEST_F(Extraction, DamagedDataKeepsTheReadsThatSucceeded) {
  for (const std::size_t intact : {1U, 8191U, 8193U, 16383U, 20000U, 65537U, 100000U}) {
    const std::string kept = Noise(intact).substr(0, intact / kCopySize * kCopySize);
    EXPECT_EQ(Extract({DamagedAfter(intact), {"b", "2"}}), (Tree{{"a", kept}, {"b", "2"}}))
        << intact;
  }
}

TEST_F(Extraction, DataThatEndsTooEarlyKeepsTheReadsThatSucceeded) {
  ZipEntry entry("a", Noise(20000));
  entry.size = entry.compressed = 100000;  // more bytes than the archive has
  EXPECT_EQ(Extract({{"b", "2"}, entry})["a"], Noise(20000).substr(0, 16384));
}

TEST_F(Extraction, DataShorterThanItsStatedSizeIsKept) {
  ZipEntry entry("a", Text(20000), kDeflated);
  entry.size = 30000;
  EXPECT_EQ(Extract({entry, {"b", "2"}}), (Tree{{"a", Text(20000)}, {"b", "2"}}));
}

TEST_F(Extraction, DataLongerThanItsStatedSizeIsTruncated) {
  ZipEntry entry("a", Text(20000), kDeflated);
  entry.size = 10000;
  EXPECT_EQ(Extract({entry, {"b", "2"}}), (Tree{{"a", Text(10000)}, {"b", "2"}}));
}

TEST_F(Extraction, TooLargeEntryCountEndsTheExtractionAtTheLastEntry) {
  std::string bytes = Zip({{"a", "1"}, {"b", "2"}});
  bytes[bytes.length() - 14] = bytes[bytes.length() - 12] = 9;
  EXPECT_EQ(ExtractBytes(bytes), (Tree{{"a", "1"}, {"b", "2"}}));
}

TEST_F(Extraction, TooSmallEntryCountLimitsTheExtraction) {
  std::string bytes = Zip({{"a", "1"}, {"b", "2"}});
  bytes[bytes.length() - 14] = bytes[bytes.length() - 12] = 1;
  EXPECT_EQ(ExtractBytes(bytes), (Tree{{"a", "1"}}));
}

// Files that cannot be written ------------------------------------------------------------------

TEST_F(Extraction, FileThatCannotBeCreatedIsSkipped) {
  WriteFile(Package(), Zip({{"closed/a", "1"}, {"closed/d/", ""}, {"open/a", "2"}}));
  fs::create_directories(Destination() + "/closed");
  fs::create_directories(Destination() + "/open");
  fs::permissions(Destination() + "/closed", fs::perms(0555));
  fs::permissions(Destination() + "/open", fs::perms::all);
  EXPECT_TRUE(AsOrdinaryUser([this] { return Uncompress(Package(), Destination()); }));
  EXPECT_EQ(TreeOf(Destination()), (Tree{{"closed/", ""}, {"open/", ""}, {"open/a", "2"}}));
}

// The destination -------------------------------------------------------------------------------

TEST_F(Extraction, DestinationIsMadeWithItsParents) {
  WriteFile(Package(), Zip({{"a", "1"}}));
  EXPECT_TRUE(Uncompress(Package(), directory_ / "x/y/z"));
  EXPECT_EQ(TreeOf(directory_ / "x"), (Tree{{"y/", ""}, {"y/z/", ""}, {"y/z/a", "1"}}));
}

TEST_F(Extraction, DestinationMayEndInASlash) {
  WriteFile(Package(), Zip({{"d/", ""}, {"d/a", "1"}}));
  EXPECT_TRUE(Uncompress(Package(), Destination() + "/"));
  EXPECT_EQ(TreeOf(Destination()), (Tree{{"d/", ""}, {"d/a", "1"}}));
}

TEST_F(Extraction, DestinationBelowAFileFails) {
  const std::string bytes = Zip({{"a", "1"}});
  WriteFile(Package(), bytes);
  const int descriptors = OpenDescriptors();
  EXPECT_FALSE(Uncompress(Package(), Package() + "/out"));
  EXPECT_FALSE(Uncompress(directory_ / "missing.zip", Package() + "/out"));
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_EQ(TreeOf(directory_ / ""), (Tree{{"package.zip", bytes}}));
}

TEST_F(Extraction, DestinationInAnUnwritableDirectoryFails) {
  WriteFile(Package(), Zip({{"a", "1"}}));
  fs::create_directory(Destination());
  fs::permissions(Destination(), fs::perms(0555));
  EXPECT_FALSE(AsOrdinaryUser([this] { return Uncompress(Package(), Destination() + "/x"); }));
  EXPECT_EQ(TreeOf(Destination()), Tree());
}

// The path is made up to its truncated length, on purpose. No file can be written below the
// complete path.
TEST_F(Extraction, DestinationWithATooLongPathReturnsTrue) {
  WriteFile(Package(), Zip({{"a", "1"}, {"d/", ""}}));
  std::string path = Destination();
  while (path.length() < 5000) {
    path += "/" + std::string(200, 'd');
  }
  EXPECT_TRUE(Uncompress(Package(), path));
  for (const auto& [name, contents] : TreeOf(Destination())) {
    EXPECT_EQ(name.back(), '/') << name;
  }
}

TEST_F(Extraction, EmptyDestinationFails) {
  WriteFile(Package(), Zip({{"a", "1"}}));
  EXPECT_FALSE(Uncompress(Package(), ""));
}

// A readable file counts as an existing directory, on purpose. No file can be written below the
// file.
TEST_F(Extraction, FileAtTheDestinationReturnsTrueAndStays) {
  WriteFile(Package(), Zip({{"a", "1"}, {"d/", ""}}));
  WriteFile(Destination(), "file");
  EXPECT_TRUE(Uncompress(Package(), Destination()));
  EXPECT_EQ(ReadFile(Destination()), "file");
}

TEST_F(Extraction, ArgumentsAreNotChanged) {
  WriteFile(Package(), Zip({{"a", "1"}, {"d/", ""}}));
  std::string package = Package();
  std::string destination = Destination() + "/";
  EXPECT_TRUE(InstallerUtils::UncompressPackageFiles(package, destination));
  EXPECT_EQ(package, Package());
  EXPECT_EQ(destination, Destination() + "/");
}

// fopen_s ---------------------------------------------------------------------------------------

class OpenFile : public testing::Test {
 protected:
  /// Returns the result of fopen_s(). Expects that the result is 0 exactly if there is a stream.
  int Open(const std::string& path, const char* mode) const {
    FILE* stream = reinterpret_cast<FILE*>(1);
    errno = 0;
    const int result = fopen_s(&stream, path.c_str(), mode);
    EXPECT_EQ(result == 0, stream != nullptr);
    if (stream != nullptr) {
      std::fclose(stream);
    }
    return result;
  }

  ScopedDirectory directory_;
};

TEST_F(OpenFile, CreatesAndTruncatesForWriting) {
  EXPECT_EQ(Open(directory_ / "a", "wb"), 0);
  WriteFile(directory_ / "a", "contents");
  EXPECT_EQ(Open(directory_ / "a", "wb"), 0);
  EXPECT_EQ(TreeOf(directory_ / ""), (Tree{{"a", ""}}));
}

TEST_F(OpenFile, OpensForReading) {
  WriteFile(directory_ / "a", "contents");
  EXPECT_EQ(Open(directory_ / "a", "rb"), 0);
  EXPECT_EQ(ReadFile(directory_ / "a"), "contents");
}

TEST_F(OpenFile, SuccessIsZeroForEveryOldErrno) {
  FILE* stream = nullptr;
  errno = EINVAL;
  EXPECT_EQ(fopen_s(&stream, (directory_ / "a").c_str(), "wb"), 0);
  ASSERT_NE(stream, nullptr);
  std::fclose(stream);
}

TEST_F(OpenFile, FailureIsErrnoAndNoStream) {
  WriteFile(directory_ / "file", "");
  EXPECT_EQ(Open(directory_ / "missing", "rb"), ENOENT);
  EXPECT_EQ(Open(directory_ / "missing/a", "wb"), ENOENT);
  EXPECT_EQ(Open(directory_ / "", "wb"), EISDIR);
  EXPECT_EQ(Open(directory_ / "file/a", "wb"), ENOTDIR);
  EXPECT_EQ(Open("", "wb"), ENOENT);
  EXPECT_EQ(Open(directory_ / "file", "?"), EINVAL);
}

TEST_F(OpenFile, DeniedAccessIsErrno) {
  WriteFile(directory_ / "file", "");
  ASSERT_EQ(chmod((directory_ / "file").c_str(), 0), 0);
  EXPECT_TRUE(AsOrdinaryUser([this] { return Open(directory_ / "file", "wb") == EACCES; }));
}

}  // namespace
