#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <random>

#include "Descriptor.h"
#include "PackageReader.h"
#include "Support.h"
#include "commands/Commands.h"
#include "packing/ArchiveWriter.h"
#include "support/AtomicFile.h"
#include "support/Error.h"
#include "support/Files.h"

using namespace webresources;

namespace {

namespace fs = std::filesystem;

/// A directory "site" to pack, and an output directory "Resources".
class PackTest : public testing::Test {
 protected:
  PackTest() {
    fs::create_directory(directory_ / "site");
    fs::create_directory(directory_ / "Resources");
    options_.directory = directory_ / "site";
    options_.output = directory_ / "Resources";
    options_.metadata.updateId = 7;
  }

  std::string Site(const std::string& name) const { return directory_ / ("site/" + name); }
  std::string Written(const std::string& name) const { return directory_ / ("Resources/" + name); }

  /// Returns the identifiers of the findings, each followed by a space.
  std::string Refusals() {
    std::string ids;
    for (const Finding& finding : Pack(options_).findings) {
      ids += std::string(finding.rule->id) + " ";
    }
    return ids;
  }

  /// Returns the names that `check` finds in the written package. Expects that the package is
  /// correct.
  std::string Packed() {
    CheckOptions options;
    options.path = options_.output;
    options.prove = true;
    options.asJson = true;
    const Report report = Check(options);
    EXPECT_EQ(report.status, 0);
    std::string entries;
    for (const auto& entry : report.details["entries"]) {
      entries += entry["name"].get<std::string>() + " ";
    }
    return entries;
  }

  ScopedDirectory directory_;
  PackOptions options_;
};

TEST_F(PackTest, EntriesStandInTheOrderOfBytesWithEachDirectoryBeforeItsFiles) {
  fs::create_directories(Site("a/b"));
  for (const char* name : {"a/b/f", "a.txt", "a-", "B", "a/z"}) {
    WriteFile(Site(name), name);
  }
  EXPECT_EQ(Refusals(), "");
  EXPECT_EQ(Packed(), "B a- a.txt a/ a/b/ a/b/f a/z ");
  EXPECT_EQ(ReadFile(Written("metadata.txt")),
            "{\"clear\":false,\"updateid\":7,\"regenerate\":false}\n");
}

TEST_F(PackTest, MetadataHasTheRequestedValues) {
  WriteFile(Site("f"), "x");
  options_.metadata.clear = options_.metadata.regenerate = true;
  options_.metadata.updateId = -2;
  EXPECT_EQ(Refusals(), "");
  EXPECT_EQ(ReadFile(Written("metadata.txt")),
            "{\"clear\":true,\"updateid\":-2,\"regenerate\":true}\n");
}

TEST_F(PackTest, ModesAndTimesAreNotPacked) {
  WriteFile(Site("f"), "x");
  EXPECT_EQ(Refusals(), "");
  const std::string first = ReadFile(Written("OrloWebResources.zip"));
  chmod(Site("f").c_str(), 0700);
  fs::last_write_time(Site("f"), fs::file_time_type::clock::now() - std::chrono::hours(50));
  EXPECT_EQ(Refusals(), "");
  EXPECT_EQ(ReadFile(Written("OrloWebResources.zip")), first);
}

TEST_F(PackTest, ReportCountsThePackedFiles) {
  fs::create_directories(Site("a/b"));
  WriteFile(Site("a/b/f"), "12");
  WriteFile(Site("g"), "3");
  const Report report = Pack(options_);
  const auto package = report.details["package"];
  const std::string path = Written("OrloWebResources.zip");
  const std::size_t packedBytes = ReadFile(path).size();
  EXPECT_EQ(package["directories"], 2);
  EXPECT_EQ(package["files"], 2);
  EXPECT_EQ(package["bytes"], 3);
  EXPECT_EQ(package["packedBytes"], packedBytes);
  const std::string sha256 = DigestText(DigestOfFile(path));
  EXPECT_EQ(package["sha256"], sha256);
  EXPECT_EQ(report.summary,
            (std::vector<std::string>{"directories: 2, files: 2, bytes: 3, packed into " +
                                          std::to_string(packedBytes) + " bytes: " + path,
                                      "sha256: " + sha256}));
}

TEST_F(PackTest, JunkIsOmittedAndReported) {
  fs::create_directories(Site("__MACOSX"));
  for (const char* name : {".DS_Store", "._f", "__MACOSX/f", "f"}) {
    WriteFile(Site(name), "x");
  }
  const Report report = Pack(options_);
  EXPECT_EQ(report.listing.size(), 3U);
  EXPECT_EQ(Packed(), "f ");
}

TEST_F(PackTest, JunkIsKeptOnRequest) {
  WriteFile(Site(".DS_Store"), "x");
  WriteFile(Site("._f"), "x");
  options_.selection.kept = {".DS_*"};
  const Report report = Pack(options_);
  ASSERT_EQ(report.details["leftOut"].size(), 1U);
  EXPECT_EQ(report.details["leftOut"][0]["path"], "._f");
}

TEST_F(PackTest, GlobsExcludeByNameOrByPath) {
  fs::create_directories(Site("a/b"));
  for (const char* name : {"x.map", "a/y.map", "a/b/f", "a/f"}) {
    WriteFile(Site(name), "x");
  }
  options_.selection.excluded = {"*.map", "a/b"};
  EXPECT_EQ(Pack(options_).listing,
            (std::vector<std::string>{"left out: a/b (excluded by a/b)",
                                      "left out: a/y.map (excluded by *.map)",
                                      "left out: x.map (excluded by *.map)"}));
  EXPECT_EQ(Packed(), "a/ a/f ");
  options_.selection.excluded = {"f", "x.map"};
  EXPECT_EQ(Refusals(), "");
  EXPECT_EQ(Packed(), "a/ a/b/ a/y.map ");
}

TEST_F(PackTest, LinksAreRefusedUnlessFollowed) {
  fs::create_directory(Site("d"));
  WriteFile(Site("d/f"), "x");
  fs::create_symlink("d", Site("link"));
  EXPECT_EQ(Refusals(), "link-entry ");
  EXPECT_FALSE(IsThere(Written("OrloWebResources.zip")));
  options_.selection.followLinks = true;
  EXPECT_EQ(Refusals(), "");
  EXPECT_EQ(Packed(), "d/ d/f link/ link/f ");
}

TEST_F(PackTest, LinkThatLeadsNowhereOrBackIsRefused) {
  WriteFile(Site("f"), "x");
  options_.selection.followLinks = true;
  fs::create_symlink("nowhere", Site("a"));
  fs::create_symlink(".", Site("b"));
  EXPECT_EQ(Refusals(), "link-broken link-broken ");
}

TEST_F(PackTest, SpecialFileIsRefused) {
  WriteFile(Site("f"), "x");
  mkfifo(Site("fifo").c_str(), 0600);
  EXPECT_EQ(Refusals(), "special-file ");
}

TEST_F(PackTest, FilesThatCouldFillAPackageOf4GiBTogetherAreRefused) {
  WriteFile(Site("a"), "x");
  WriteFile(Site("b"), "");
  WriteFile(Site("c"), "");
  fs::resize_file(Site("b"), std::uintmax_t{3} << 30U);  // a sparse file
  fs::resize_file(Site("c"), std::uintmax_t{1} << 30U);
  const Report report = Pack(options_);
  ASSERT_EQ(report.findings.size(), 1U);
  EXPECT_STREQ(report.findings[0].rule->id, "package-too-large");
  EXPECT_EQ(report.findings[0].subject, "OrloWebResources.zip");
  EXPECT_EQ(report.findings[0].reason, "its files have 4294967297 bytes together");
  EXPECT_FALSE(IsThere(Written("OrloWebResources.zip")));
}

TEST_F(PackTest, OnlyFilesThatAreTooLargeAreNamed) {
  for (const char* name : {"a", "b", "c"}) {
    WriteFile(Site(name), "x");
  }
  fs::resize_file(Site("b"), std::uintmax_t{4} << 30U);
  const Report report = Pack(options_);
  ASSERT_EQ(report.findings.size(), 1U);
  EXPECT_EQ(report.findings[0].subject, "b");
}

TEST_F(PackTest, EmptyDirectoryIsRefused) {
  EXPECT_EQ(Refusals(), "package-empty ");
  WriteFile(Site(".DS_Store"), "x");
  EXPECT_EQ(Refusals(), "package-empty ");
}

TEST_F(PackTest, UncleanNamesAreRefused) {
  WriteFile(Site("a\\b"), "x");
  WriteFile(Site("a\nb"), "x");
  EXPECT_EQ(Refusals(), "name-unclean name-unclean ");
}

TEST_F(PackTest, DirectoryIsRefusedBeforeItsContent) {
  fs::create_directory(Site("a\\b"));
  WriteFile(Site("a\\b/c"), "x");
  const Report report = Pack(options_);
  ASSERT_EQ(report.findings.size(), 2U);
  EXPECT_EQ(report.findings[0].subject, "a\\b/");
  EXPECT_EQ(report.findings[1].subject, "a\\b/c");
}

TEST_F(PackTest, RequiredFileMustBePacked) {
  WriteFile(Site("f"), "x");
  fs::create_directory(Site("index.html"));
  options_.selection.required = {"index.html", "f"};
  EXPECT_EQ(Refusals(), "required-missing ");
  fs::remove(Site("index.html"));
  WriteFile(Site("index.html"), "x");
  EXPECT_EQ(Refusals(), "");
}

TEST_F(PackTest, OutputMustBeABundleOrItsResources) {
  WriteFile(Site("f"), "x");
  options_.output = directory_ / "elsewhere";
  fs::create_directory(options_.output);
  EXPECT_THROW(Pack(options_), Error);
  EXPECT_EQ(TreeOf(options_.output), Tree{});
  fs::create_directories(directory_ / "A.app/Contents/Resources");
  fs::create_directories(directory_ / "B.app/Resources");
  for (const char* output : {"A.app", "A.app/Contents", "B.app", "B.app/Resources", "Resources"}) {
    options_.output = directory_ / output;
    EXPECT_EQ(Refusals(), "") << output;
  }
}

TEST_F(PackTest, OutputIsMadeOnRequest) {
  WriteFile(Site("f"), "x");
  options_.output = directory_ / "new/directory";
  EXPECT_THROW(Pack(options_), Error);
  options_.createsOutput = true;
  EXPECT_EQ(Refusals(), "");
  EXPECT_EQ(Packed(), "f ");
}

TEST_F(PackTest, NoDirectoryIsMadeForARefusedPackageOrAWrongTime) {
  options_.output = directory_ / "new/directory";
  options_.createsOutput = true;
  EXPECT_EQ(Refusals(), "package-empty ");
  EXPECT_FALSE(IsThere(directory_ / "new"));
  WriteFile(Site("f"), "x");
  setenv("SOURCE_DATE_EPOCH", "today", 1);
  EXPECT_THROW(Pack(options_), Error);
  unsetenv("SOURCE_DATE_EPOCH");
  EXPECT_FALSE(IsThere(directory_ / "new"));
}

TEST_F(PackTest, MissingOutputInThePackedDirectoryIsRefusedByItsPathAlone) {
  WriteFile(Site("f"), "x");
  fs::create_symlink("site", directory_ / "link");
  const ScopedWorkingDirectory there(directory_ / "");
  options_.createsOutput = true;
  for (const char* output : {"site/new", "./new/../site/new/directory/", "link/new"}) {
    options_.output = output;
    EXPECT_THROW(Pack(options_), Error) << output;
  }
  EXPECT_EQ(TreeOf(options_.directory), (Tree{{"f", "x"}}));
  EXPECT_FALSE(IsThere(directory_ / "new"));
  options_.output = "site2/new";
  EXPECT_EQ(Refusals(), "");
}

TEST_F(PackTest, HardLinkPlantedWhereATemporaryFileIsMadeIsNotWrittenTo) {
  WriteFile(Site("f"), "x");
  WriteFile(directory_ / "victim", "not to be written to");
  const Descriptor victim(open((directory_ / "victim").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(*victim, LOCK_SH), 0);  // so that the link is not removed as a leftover
  for (const std::string name : {"OrloWebResources.zip", "metadata.txt"}) {
    const std::string planted = Written("." + name + ".tmp-" + std::to_string(getpid()));
    fs::create_hard_link(directory_ / "victim", planted);
    EXPECT_THROW(Pack(options_), Error) << name;
    EXPECT_EQ(ReadFile(directory_ / "victim"), "not to be written to");
    EXPECT_EQ(TreeOf(options_.output).size(), 1U);
    fs::remove(planted);
  }
}

TEST_F(PackTest, OnlyLeftoversOfKilledRunsAreRemoved) {
  WriteFile(Site("f"), "x");
  for (const char* name :
       {".OrloWebResources.zip.tmp-1", ".OrloWebResources.zip.old-99999999", ".metadata.txt.tmp-7",
        ".metadata.txt.tmp-x", ".metadata.txt.tmp-", ".other.tmp-7"}) {
    WriteFile(Written(name), "left");
  }
  AtomicFile inUse(Written("metadata.txt"));
  fs::rename(inUse.temporary(), Written(".metadata.txt.tmp-8"));  // as if in use elsewhere
  EXPECT_EQ(Refusals(), "");
  Tree tree = TreeOf(options_.output);
  tree.erase("OrloWebResources.zip");
  tree.erase("metadata.txt");
  EXPECT_EQ(tree, (Tree{{".metadata.txt.tmp-8", ""},
                        {".metadata.txt.tmp-x", "left"},
                        {".metadata.txt.tmp-", "left"},
                        {".other.tmp-7", "left"}}));
}

TEST(UpdateId, IsWrittenInPlainDecimalDigits) {
  for (const char* text : {"0", "7", "-2", "-1", "999999999", "-99999999"}) {
    EXPECT_EQ(ProblemOfUpdateId(text), "") << text;
  }
  for (const char* text : {"", "-", "-0", "010", "-07", "0x7", "+7", " 7", "7 ", "1e3", "7.0",
                           "1000000000", "-100000000", "99999999999999999999"}) {
    EXPECT_NE(ProblemOfUpdateId(text), "") << text;
  }
}

TEST_F(PackTest, CollidingNamesAreRefused) {
  WriteFile(Site("a"), "x");
  if (VolumeIgnoresCase(Site("a"))) {
    GTEST_SKIP() << "this file system cannot hold both names";
  }
  WriteFile(Site("A"), "x");
  EXPECT_EQ(Refusals(), "case-collision ");
  for (const char* name : {"A", "a"}) {
    fs::resize_file(Site(name), std::uintmax_t{2} << 30U);  // a sparse file
  }
  options_.selection.required = {"none"};
  EXPECT_EQ(Refusals(), "case-collision package-too-large required-missing ");
}

TEST_F(PackTest, NamesThatTheInstallerSkipsAreRefused) {
  const std::string deep = std::string(250, 'd') + "/" + std::string(250, 'e');
  fs::create_directories(Site(deep));
  WriteFile(Site(deep + "/" + std::string(10, 'f')), "x");
  WriteFile(Site(deep + "/" + std::string(9, 'f')), "x");
  EXPECT_EQ(Refusals(), "name-too-long ");
}

TEST_F(PackTest, NameThatIsNotUtf8IsRefused) {
  SKIP_UNLESS_FILE_SYSTEM_TAKES(Site("\xE4"));
  WriteFile(Site("\xE4"), "x");
  EXPECT_EQ(Refusals(), "name-not-utf8 ");
}

TEST_F(PackTest, UpdateNumberThatCountsAsAbsentIsRefused) {
  WriteFile(Site("f"), "x");
  options_.metadata.updateId = -1;
  EXPECT_EQ(Refusals(), "metadata-updateid-absent ");
}

TEST_F(PackTest, OutputInThePackedDirectoryIsRefused) {
  WriteFile(Site("f"), "x");
  for (const char* output : {"", "Resources"}) {
    options_.output = Site(output);
    options_.createsOutput = true;
    EXPECT_THROW(Pack(options_), Error) << output;
  }
  EXPECT_EQ(TreeOf(options_.directory), (Tree{{"f", "x"}}));
}

TEST_F(PackTest, SourceDateIsANumberOfSecondsOrLeftOut) {
  WriteFile(Site("f"), "x");
  const auto packedWith = [this](const char* date) {
    setenv("SOURCE_DATE_EPOCH", date, 1);
    const std::string refusals = Refusals();
    unsetenv("SOURCE_DATE_EPOCH");
    return refusals + ReadFile(Written("OrloWebResources.zip"));
  };
  const std::string plain = packedWith("315532800");
  EXPECT_EQ(packedWith(""), plain);
  EXPECT_NE(packedWith("1000000000"), plain);
  for (const char* date : {"today", "99999999999999999999"}) {
    EXPECT_THROW(packedWith(date), Error) << date;
    unsetenv("SOURCE_DATE_EPOCH");
  }
}

TEST_F(PackTest, NothingIsWrittenWhenTheSecondFileCannotTakeItsPlace) {
  WriteFile(Site("f"), "x");
  WriteFile(Written("OrloWebResources.zip"), "old");
  fs::create_directory(Written("metadata.txt"));
  EXPECT_THROW(Pack(options_), Error);
  EXPECT_EQ(TreeOf(options_.output),
            (Tree{{"OrloWebResources.zip", "old"}, {"metadata.txt/", ""}}));
}

TEST_F(PackTest, RollbackOfAFirstFileLeavesNone) {
  WriteFile(Site("f"), "x");
  fs::create_directory(Written("metadata.txt"));
  EXPECT_THROW(Pack(options_), Error);
  EXPECT_EQ(TreeOf(options_.output), (Tree{{"metadata.txt/", ""}}));
}

TEST_F(PackTest, FileThatCannotBeReadLeavesTheOldOutput) {
  WriteFile(Site("f"), "x");
  ASSERT_EQ(Refusals(), "");
  const Tree before = TreeOf(options_.output);
  chmod((directory_ / "Resources").c_str(), 0777);
  WriteFile(Site("secret"), "x");
  chmod(Site("secret").c_str(), 0);
  EXPECT_TRUE(AsOrdinaryUser([this] {
    try {
      Pack(options_);
    } catch (const Error& error) {
      return error.what() ==
             "cannot read " + Site("secret") + ": Permission denied; run it as root";
    }
    return false;
  }));
  EXPECT_EQ(TreeOf(options_.output), before);
}

/// An archive that is written to the file at `path`, starting at the offset `begin`.
struct WrittenArchive {
  explicit WrittenArchive(const std::string& path, const ArchiveWriter::Options& options = {},
                          off_t begin = 0)
      : file(open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)),
        writer(lseek(*file, begin, SEEK_SET) == begin ? *file : -1, path, options) {}

  const Descriptor file;
  ArchiveWriter writer;
};

TEST(ArchiveWriter, DataIsStoredWhereDeflatingDoesNotShrinkIt) {
  ScopedDirectory directory;
  WriteFile(directory / "short", "abc");
  WriteFile(directory / "equal", "ababab");
  WriteFile(directory / "long", std::string(1000, 'a'));
  WrittenArchive archive(directory / "zip");
  archive.writer.AddFile("short", directory / "short", 3);
  archive.writer.AddFile("equal", directory / "equal", 6);
  archive.writer.AddFile("long", directory / "long", 1000);
  archive.writer.Close();
  const std::string bytes = ReadFile(directory / "zip");
  EXPECT_NE(bytes.find("shortabc"), std::string::npos);
  EXPECT_NE(bytes.find("equalababab"), std::string::npos);
  EXPECT_LT(bytes.length(), 500U);
}

TEST(ArchiveWriter, FileThatIsNotOpenIsReportedImmediately) {
  EXPECT_THROW(ArchiveWriter(-1, "zip", {}), Error);
}

TEST(ArchiveWriter, LargeDataThatDoesNotShrinkIsStoredAndWhatFollowsIsWhole) {
  ScopedDirectory directory;
  std::minstd_rand generator(1);
  std::string noise;
  while (noise.length() < 300000) {
    noise += static_cast<char>(generator() >> 8U);
  }
  WriteFile(directory / "noise", noise);
  WriteFile(directory / "text", noise + std::string(100000, 'a'));
  WrittenArchive archive(directory / "zip");
  archive.writer.AddFile("noise", directory / "noise", 300000);
  archive.writer.AddFile("text", directory / "text", 400000);
  archive.writer.Close();
  EXPECT_EQ(ReadFile(directory / "zip").find(noise), 30U + 5U);
  EXPECT_LT(fs::file_size(directory / "zip"), 650000U);
  PackageReader package(directory / "zip");
  for (const char* name : {"noise", "text"}) {
    ASSERT_TRUE(package.Next() && package.Open());
    std::string data;
    for (int count = 0; (count = package.Read()) > 0;) {
      data.append(package.chunk(), static_cast<std::size_t>(count));
    }
    package.Close();
    EXPECT_TRUE(data == ReadFile(directory / name)) << name;
    EXPECT_EQ(package.data().end, EntryData::End::Complete) << name;
  }
}

TEST(ArchiveWriter, FileOfAnotherSizeIsRefusedBeforeItsEndIsReached) {
  ScopedDirectory directory;
  WriteFile(directory / "f", std::string(1000000, 'a'));
  std::size_t read = 0;
  ArchiveWriter::Options options;
  options.onRead = [&read](const std::string&, std::size_t bytes) { read += bytes; };
  WrittenArchive archive(directory / "zip", options);
  EXPECT_THROW(archive.writer.AddFile("f", directory / "f", 1000001), Error);
  EXPECT_EQ(read, 1000000U);
  EXPECT_THROW(archive.writer.AddFile("f", directory / "f", 10), Error);
  EXPECT_LT(read, 1500000U);
}

TEST(ArchiveWriter, FifoInThePlaceOfAFileIsNotWaitedFor) {
  ScopedDirectory directory;
  mkfifo((directory / "f").c_str(), 0600);
  WrittenArchive archive(directory / "zip");
  EXPECT_THROW(archive.writer.AddFile("f", directory / "f", 1), Error);
}

TEST(ArchiveWriter, NumberOfEntriesBeyond16BitsIsInZip64Records) {
  constexpr std::size_t kSizeOfEntry = 30 + 46 + 2 * 6;
  for (const std::size_t count : {65534U, 65535U, 65536U}) {
    ScopedDirectory directory;
    WrittenArchive archive(directory / "zip");
    for (std::size_t i = 0; i < count; ++i) {
      archive.writer.AddDirectory(std::to_string(10000 + i) + "/");
    }
    archive.writer.Close();
    PackageReader package(directory / "zip");
    EXPECT_EQ(package.EntryCount(), count);
    std::size_t reached = 0;
    while (package.Next()) {
      ++reached;
    }
    EXPECT_EQ(reached, count);
    const std::size_t records = count < 65535 ? 0 : 56 + 20;
    EXPECT_EQ(fs::file_size(directory / "zip"), count * kSizeOfEntry + records + 22);
  }
}

TEST(ArchiveWriter, ArchiveOf4GiBIsRefused) {
  constexpr off_t kSize = 30 + 46 + 2 * 2 + 22;
  constexpr off_t k4GiB = off_t{4} << 30U;
  ScopedDirectory directory;
  const auto isWritten = [&directory](off_t size) {
    // The file is sparse before this offset.
    WrittenArchive archive(directory / "zip", {}, size - kSize);
    archive.writer.AddDirectory("d/");
    try {
      archive.writer.Close();
    } catch (const Error&) {
      return false;
    }
    PackageReader package(directory / "zip");
    return package.Next();
  };
  EXPECT_TRUE(isWritten(k4GiB - 1));
  EXPECT_FALSE(isWritten(k4GiB));
}

TEST(ArchiveWriter, TimesOutsideTheFormatBecomeTheNearestTimes) {
  ScopedDirectory directory;
  const auto bytesAt = [&directory](std::int64_t seconds) {
    ArchiveWriter::Options options;
    options.seconds = seconds;
    WrittenArchive archive(directory / "zip", options);
    archive.writer.AddDirectory("d/");
    archive.writer.Close();
    return ReadFile(directory / "zip").substr(10, 4);
  };
  EXPECT_EQ(bytesAt(-5), std::string("\0\0\x21\0", 4));
  EXPECT_EQ(bytesAt(315532800), std::string("\0\0\x21\0", 4));
  EXPECT_EQ(bytesAt(315532800 + 86399), std::string("\x7D\xBF\x21\0", 4));
  EXPECT_EQ(bytesAt(INT64_MAX), std::string("\x7D\xBF\x9F\xFF", 4));
}

}  // namespace
