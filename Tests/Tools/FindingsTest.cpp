// Each rule about packages has an archive that triggers only this rule.

#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "InstallerConstants.h"
#include "InstallerUtils.h"
#include "PackageComparison.h"
#include "Support.h"
#include "ZipBuilder.h"
#include "bundle/ArchiveLayout.h"
#include "prediction/BundleInspection.h"
#include "prediction/PackageFindings.h"
#include "support/Text.h"

using namespace webresources;

namespace {

struct TestedPackage {
  const char* rule;  ///< Empty for an archive without a finding.
  const char* what;
  std::string bytes;
};

void PrintTo(const TestedPackage& tested, std::ostream* stream) {
  *stream << tested.what;
}

ZipEntry Flagged(ZipEntry entry, std::uint16_t flags) {
  entry.flags = flags;
  return entry;
}

ZipEntry WithMethod(ZipEntry entry, std::uint16_t method) {
  entry.method = entry.localMethod = method;
  return entry;
}

template <typename Field, typename Value>
ZipEntry With(ZipEntry entry, Field ZipEntry::*field, Value value) {
  entry.*field = value;
  return entry;
}

/// Returns the archive with another entry count in the end of central directory record.
std::string WithCount(std::string bytes, char count) {
  bytes[bytes.length() - 22 + 8] = bytes[bytes.length() - 22 + 10] = count;
  return bytes;
}

/// Returns the archive with another comment length in the end of central directory record.
std::string WithCommentLength(std::string bytes, char length) {
  bytes[bytes.length() - 2] = length;
  return bytes;
}

/// Returns the archive with a comment of the first entry. Requires: the name of the entry has one
/// byte.
std::string WithComment(std::string bytes) {
  const std::size_t begin = bytes.find("PK\1\2");
  bytes[begin + 32] = 1;
  bytes.insert(begin + 47, "c");
  ++bytes[bytes.length() - 22 + 12];  // the size of the central directory
  return bytes;
}

/// Returns the archive with Zip64 sizes in the first local header. Requires: the name
/// has one byte, and the stored data has four bytes.
std::string WithLocalSizesOf64Bits(std::string bytes) {
  const std::string extra("\1\0\20\0\4\0\0\0\0\0\0\0\4\0\0\0\0\0\0\0", 20);
  bytes.replace(18, 8, 8, '\xFF');
  bytes[28] = static_cast<char>(extra.length());
  bytes.insert(31, extra);
  bytes[bytes.length() - 22 + 16] = static_cast<char>(bytes.find("PK\1\2"));
  return bytes;
}

std::string Cut(const std::string& bytes, std::size_t count) {
  return bytes.substr(0, bytes.length() - count);
}

std::string Long(std::size_t length) {
  return std::string(length, 'n');
}

const ZipEntry kFile("a", "text");
constexpr std::uint16_t kUtf8 = 0x800;
constexpr std::uint16_t kSizesFollow = 8;

std::vector<TestedPackage> Cases() {
  const ZipEntry kText("b", "text");
  const std::string inner = Zip({kText}).substr(0, 35);  // header, name, data
  // Refers to a Zip64 end of central directory record at offset 0, where there is none.
  const std::string locator64 =
      std::string("PK\6\7") + std::string(12, '\0') + std::string("\1\0\0\0", 4);
  return {
      {"", "flat", Zip({kFile, {"b", "deflated text text text text", kDeflated}})},
      {"", "directories", Zip({{"d/", ""}, {"d/e/", ""}, {"d/e/f", "x"}})},
      {"", "no entries for the ancestors of a directory", Zip({{"d/e/", ""}, {"d/f", "x"}})},
      {"", "a packer's ./", Zip({{"./", ""}, {"./d/", ""}, {"./d/a", "x"}})},
      {"", "a flagged name", Zip({Flagged({"\xC3\xA4", "x"}, kUtf8)})},
      {"", "a large file that shrinks less", Zip({{"a", Long(1000), kDeflated}})},
      {"", "a megabyte that does not shrink", Zip({{"a", Long(1U << 20U)}})},
      {"", "a local header without the sizes that follow the data",
       Zip({With(Flagged(kFile, kSizesFollow), &ZipEntry::localCrc, 0U)})},

      {"package-unreadable", "no archive", "no archive at all, but long enough for an end record"},
      {"package-unreadable", "an empty file", ""},
      {"package-unreadable", "half an archive", Zip({kFile}).substr(0, 40)},
      {"package-unreadable", "nothing but an end record's signature", "PK\5\6"},
      {"package-empty", "no entries", Zip({})},
      {"directory-damaged", "a record without its signature",
       Zip({kFile, With(ZipEntry("b", "x"), &ZipEntry::centralSignature, 0U)})},
      {"directory-damaged", "fewer entries counted than listed",
       WithCount(Zip({kFile, {"b", "x"}}), 1)},
      {"directory-damaged", "more entries counted than listed",
       WithCount(Zip({kFile, {"b", "x"}}), 3)},
      {"directory-damaged", "an end record that is cut", Cut(Zip({kFile}), 1)},
      {"directory-damaged", "a comment that is cut",
       WithCommentLength(Zip({kFile}), 9) + "comment"},
      {"leading-data", "bytes before", "#!/bin/sh\n" + Zip({kFile})},
      {"trailing-data", "bytes after", Zip({kFile}) + "more"},
      {"trailing-data", "bytes after, and a file like the locator of a 64-bit end record",
       Zip({{"a", locator64}}) + "more"},
      {"overlapping-entries", "an entry in another's data",
       Zip({{"a", inner}, With(kText, &ZipEntry::offset, 31U)})},
      {"", "an entry's comment", WithComment(Zip({kFile, {"b", "x"}}))},
      {"", "sizes of 64 bits in a local header", WithLocalSizesOf64Bits(Zip({kFile}))},
      {"case-collision", "files", Zip({{"Read", "1"}, {"read", "2"}})},
      {"case-collision", "files in a directory", Zip({{"d/", ""}, {"d/A", "1"}, {"d/a", "2"}})},
      {"case-collision", "directories count, not what is in them",
       Zip({{"D/", ""}, {"D/x", "1"}, {"d/", ""}, {"d/x", "2"}})},
      {"normalization-collision", "composed and decomposed",
       Zip({Flagged({"\xC3\xA4", "1"}, kUtf8), Flagged({"a\xCC\x88", "2"}, kUtf8)})},

      {"missing-directory-entry", "no entry", Zip({kFile, {"d/a", "x"}})},
      {"missing-directory-entry", "a later entry", Zip({{"d/a", "x"}, {"d/", ""}})},
      {"path-blocked", "a file in the way of a directory", Zip({{"a", "x"}, {"a/", ""}})},
      {"path-blocked", "a directory in the way of a file", Zip({{"d/", ""}, {"d", "x"}})},
      {"path-blocked", "a file in the way of a path", Zip({{"a", "x"}, {"a/b", "x"}})},
      {"climbs-out", "a file", Zip({kFile, {"../x", "x"}})},
      {"climbs-out", "a directory", Zip({kFile, {"a/../../x/", ""}})},
      {"name-empty", "no name", Zip({kFile, {"", "x"}})},
      {"name-too-long", "512 bytes", Zip({{Long(200) + "/", ""}, {Long(512), "x"}})},
      {"name-too-long", "512 bytes that are not UTF-8", Zip({{"\xE4" + Long(511), "x"}})},
      {"name-too-long", "a component of 256 bytes", Zip({{Long(256), "x"}})},
      {"name-too-long", "a directory's component of 256 bytes", Zip({{Long(256) + "/", ""}})},
      {"name-not-utf8", "Latin-1", Zip({{"\xE4", "x"}})},
      {"name-unflagged", "UTF-8 without the flag", Zip({{"\xC3\xA4", "x"}})},
      {"name-unclean", "absolute", Zip({{"/a", "x"}})},
      {"name-unclean", "a dot", Zip({{"d/", ""}, {"d/./a", "x"}})},
      {"name-unclean", "dots that stay inside", Zip({{"d/", ""}, {"d/../a", "x"}})},
      {"name-unclean", "an empty component", Zip({{"d/", ""}, {"d//a", "x"}})},
      {"name-unclean", "a backslash", Zip({{"d\\a", "x"}})},
      {"name-unclean", "a control character", Zip({{"a\nb", "x"}})},
      {"name-unclean", "a zero byte", Zip({{std::string("a\0b", 3), "x"}})},
      {"duplicate-entry", "a file", Zip({{"a", "1"}, {"a", "2"}})},
      {"duplicate-entry", "a directory", Zip({{"d/", ""}, {"d/", ""}})},
      {"unsupported-method", "method 1", Zip({kFile, WithMethod({"b", "x"}, 1)})},
      {"unsupported-method", "method 12, which is written as it is",
       Zip({kFile, WithMethod({"b", "x"}, 12)})},
      {"encrypted", "stored", Zip({Flagged({"a", "123456789012"}, 1)})},
      {"encrypted", "deflated", Zip({Flagged({"a", "123456789012", kDeflated}, 1)})},
      {"headers-differ", "name", Zip({With(kFile, &ZipEntry::localName, "b")})},
      {"headers-differ", "checksum", Zip({With(kFile, &ZipEntry::localCrc, 1U)})},
      {"headers-differ", "checksum, although one follows the data",
       Zip({With(Flagged(kFile, kSizesFollow), &ZipEntry::localCrc, 1U)})},
      {"headers-differ", "method",
       Zip({With(kFile, &ZipEntry::localMethod, std::uint16_t{kDeflated})})},
      {"unportable-entry", "an extra field that ends early",
       Zip({With(kFile, &ZipEntry::extra, std::string("\x55\x54\5\0\1", 5))})},
      {"unportable-entry", "an extra field of a local header that ends early",
       Zip({With(kFile, &ZipEntry::localExtra, std::string("\x55\x54\5\0\1", 5))})},
      {"unportable-entry", "flag bit 5", Zip({Flagged(kFile, 0x20)})},
      {"unportable-entry", "flag bit 6 of a local header",
       Zip({With(kFile, &ZipEntry::localFlags, std::uint16_t{0x40})})},
      {"unportable-entry", "a version above 4.5",
       Zip({With(kFile, &ZipEntry::version, std::uint16_t{46})})},
      {"", "version 4.5, and another system's byte",
       Zip({With(kFile, &ZipEntry::version, std::uint16_t{0x032D})})},
      {"", "an extra field",
       Zip({With(kFile, &ZipEntry::extra, std::string("\x55\x54\1\0\1", 5))})},
      {"damaged-entry", "no local header", Zip({With(kFile, &ZipEntry::localSignature, 0U)})},
      {"damaged-entry", "a directory without local header",
       Zip({kFile, With(ZipEntry("d/", ""), &ZipEntry::localSignature, 0U)})},
      {"damaged-data", "not deflated",
       Zip({With(ZipEntry("a", Long(99), kDeflated), &ZipEntry::data, std::string(6, '\xFF'))})},
      {"damaged-data", "an early end",
       Zip({With(ZipEntry("a", "text", kDeflated), &ZipEntry::size, 5U)})},
      {"wrong-crc", "stored", Zip({With(kFile, &ZipEntry::crc, 1U)})},
      {"wrong-crc", "deflated", Zip({With(ZipEntry("a", "text", kDeflated), &ZipEntry::crc, 1U)})},
      {"expansion-ratio", "a megabyte of one letter", Zip({{"a", Long(1U << 20U), kDeflated}})},
      {"link-entry", "a link", Zip({With(kFile, &ZipEntry::attributes, 0120777U << 16U)})},
      {"junk-file", ".DS_Store", Zip({{".DS_Store", "x"}})},
      {"junk-file", "__MACOSX", Zip({{"__MACOSX/", ""}})},
      {"junk-file", "._*", Zip({{"d/", ""}, {"d/._a", "x"}})},
  };
}

class FindingsTest : public testing::TestWithParam<TestedPackage> {
 protected:
  FindingsTest() {
    WriteFile(path_, GetParam().bytes);
    package_.emplace(path_);
    prediction_ = Predict(*package_, 0);
  }

  ScopedDirectory directory_;
  std::string path_ = directory_ / kPackageFileName;
  std::optional<PackageReader> package_;
  Prediction prediction_;
};

std::vector<std::string> IdsOf(const Findings& findings) {
  std::vector<std::string> ids;
  for (const Finding& finding : findings) {
    ids.push_back(finding.rule->id);
  }
  return ids;
}

TEST_P(FindingsTest, ArchiveTriggersItsRuleAlone) {
  const std::string rule = GetParam().rule;
  const std::vector<std::string> expected(rule.empty() ? 0 : 1, rule);
  EXPECT_EQ(IdsOf(FindInPackage(path_, prediction_)), expected);
}

/// Returns the messages of the findings of each archive, one line for each finding.
std::string Said() {
  std::string said;
  for (const TestedPackage& tested : Cases()) {
    const ScopedDirectory directory;
    const std::string path = directory / kPackageFileName;
    WriteFile(path, tested.bytes);
    PackageReader package(path);
    for (const Finding& finding : FindInPackage(path, Predict(package, 0))) {
      if (finding.rule->id != std::string("expansion-ratio")) {  // the reason depends on zlib
        said += Printable(finding.subject).substr(0, 20) + ": " + finding.reason + "\n";
      }
    }
  }
  return said;
}

TEST(Findings, NameTheDefect) {
  EXPECT_EQ(Said(),
            R"(OrloWebResources.zip: the installer cannot open it and installs an empty directory
OrloWebResources.zip: the installer cannot open it and installs an empty directory
OrloWebResources.zip: the installer cannot open it and installs an empty directory
OrloWebResources.zip: the installer cannot open it and installs an empty directory
OrloWebResources.zip: it has no entries: an empty directory is installed
OrloWebResources.zip: number of entries: stated 2, listed 1, read by the installer 1
OrloWebResources.zip: number of entries: stated 1, listed 1, read by the installer 1
OrloWebResources.zip: number of entries: stated 3, listed 2, read by the installer 2
OrloWebResources.zip: the last 1 byte of its end record or comment are missing
OrloWebResources.zip: the last 2 bytes of its end record or comment are missing
OrloWebResources.zip: there are 10 bytes before the archive
OrloWebResources.zip: there are 4 bytes after the archive
OrloWebResources.zip: there are 4 bytes after the archive
b: another entry or the central directory occupies the same bytes
read: it differs from Read in case only
d/a: it differs from d/A in case only
d: it differs from D in case only
ä: it differs from ä in Unicode normalization only
d/a: no entry before it makes its directory: it is not installed
d/a: no entry before it makes its directory: it is not installed
a/: a file has its name
d: a directory has its name
a/b: its path leads through a file
../x: its name leads out of the installed directory
a/../../x/: its name leads out of the installed directory
entry 2: its name is empty
nnnnnnnnnnnnnnnnnnnn: its name has 512 bytes
\xE4nnnnnnnnnnnnnnnn: its name has 512 bytes
nnnnnnnnnnnnnnnnnnnn: a component of its name has more than 255 bytes
nnnnnnnnnnnnnnnnnnnn: a component of its name has more than 255 bytes
\xE4: its name is not UTF-8, which a volume may refuse
ä: its name is UTF-8, but the entry has no flag that says so
/a: its name begins with "/": other tools may write it outside the directory
d/./a: its name has an empty, "." or ".." component
d/../a: its name has an empty, "." or ".." component
d//a: its name has an empty, "." or ".." component
d\a: its name has a backslash, which the installer does not treat as a separator
a\x0Ab: its name has a control character
a: its name has a zero byte: the installer reads the name up to there
a: entry 2 writes the same file again
d/: entry 2 makes the same directory again
b: its compression method 1 is not supported: it is not installed
b: its compression method 12 is not supported: its packed data is installed
a: it is encrypted: the installer has no password and writes other data
a: it is encrypted: the installer has no password and writes other data
a: its local and its central header have different values: name
a: its local and its central header have different values: checksum
a: its local and its central header have different values: checksum
a: its local and its central header have different values: method
a: other tools refuse it: an extra field ends early
a: other tools refuse it: an extra field ends early
a: other tools refuse it: flag bit 5 or 6 is set
a: other tools refuse it: flag bit 5 or 6 is set
a: other tools refuse it: the format's version that it needs is above 4.5
a: its local header is damaged or contradicts the directory: it is not installed
d/: its local header is damaged: other tools refuse the archive
a: its data is damaged: 0 of 99 bytes can be read
a: its data ends after 4 of 5 bytes
a: its data does not match its checksum
a: its data does not match its checksum
a: it is a symbolic link: the installer writes a file with the link's text
.DS_Store: macOS keeps it for itself
__MACOSX/: macOS keeps it for itself
d/._a: macOS keeps it for itself
)");
}

TEST(Headers, FieldsThatDifferAreNamedInTheirOrder) {
  const ScopedDirectory directory;
  std::string bytes = Zip({kFile});
  for (const std::size_t local : {6U, 8U, 14U, 18U, 22U, 30U}) {
    bytes[local] = static_cast<char>(bytes[local] ^ 1);
  }
  WriteFile(directory / "zip", bytes);
  EXPECT_EQ(ReadArchiveLayout(directory / "zip")->entries.at(0).DifferingFields(),
            "name, flags, method, checksum, compressed size, size");
}

TEST(Headers, AreComparedBehindLeadingDataToo) {
  const ScopedDirectory directory;
  WriteFile(directory / "zip", "#!/bin/sh\n" + Zip({With(kFile, &ZipEntry::localName, "b")}));
  EXPECT_EQ(ReadArchiveLayout(directory / "zip")->entries.at(0).DifferingFields(), "name");
}

TEST_P(FindingsTest, ExtractionGivesThePredictedTree) {
  std::string destination = directory_ / "destination";
  ASSERT_TRUE(InstallerUtils::UncompressPackageFiles(path_, destination));
  for (const Difference& difference : CompareWithPackage(path_, destination)) {
    ADD_FAILURE() << difference.path << ": " << difference.reason;
  }
}

INSTANTIATE_TEST_SUITE_P(Archives, FindingsTest, testing::ValuesIn(Cases()));

/// Returns the complete prediction as a string.
std::string TextOf(const Prediction& prediction) {
  std::ostringstream text;
  text << prediction.isOpened << prediction.entryCount << '\n';
  for (const EntryPrediction& entry : prediction.entries) {
    text << entry.name << ' ' << static_cast<int>(entry.action) << static_cast<int>(entry.failure)
         << static_cast<int>(entry.end) << entry.isOpened << entry.isRepeated << ' ' << entry.size
         << ' ' << (entry.replacedBy ? std::to_string(*entry.replacedBy) : "") << '\n';
  }
  for (const TreeItem& item : ItemsOf(prediction.tree)) {
    text << item.path << ' ' << item.node->isDirectory << item.node->size << ' ' << item.node->crc32
         << '\n';
  }
  return text.str();
}

/// Returns whether the extraction of the archive `bytes` gives the tree of both predictions: before
/// the extraction, and during the extraction.
bool IsPredicted(const std::string& bytes) {
  ScopedDirectory directory;
  const std::string path = directory / kPackageFileName;
  const std::string destination = directory / "destination";
  WriteFile(path, bytes);
  PackageReader package(path);
  PackageReader extracted(path);
  const Prediction prediction = Predict(package, 0);
  const Prediction whileExtracting = PredictAndExtract(extracted, 0, destination);
  EXPECT_EQ(TextOf(whileExtracting), TextOf(prediction));
  FindInPackage(path, prediction);
  return CompareWithPackage(path, destination).empty() &&
         Differing(TreeOf(whileExtracting), destination, Checksum::Crc32).empty();
}

TEST_P(FindingsTest, PredictionWhileExtractingIsThePrediction) {
  EXPECT_TRUE(IsPredicted(GetParam().bytes));
}

TEST_P(FindingsTest, PackageIsWithinBounds) {
  EXPECT_TRUE(FindOutOfBounds(path_, ExtentOf(path_), {std::uint64_t{2} << 20U}).empty());
}

const std::string kMixed = Zip({{"d/", ""},
                                {"d/f", "text text text text", kDeflated},
                                {"g", "stored"},
                                {"d/f", "again"},
                                {"../h", "x"}});

// The sanitizers slow each archive down. They get a fifth of the archives.
constexpr std::size_t kStep = SANITIZED != 0 ? 5 : 1;

TEST(DamagedArchive, EveryTruncationIsPredicted) {
  for (std::size_t length = 0; length < kMixed.length(); length += kStep) {
    EXPECT_TRUE(IsPredicted(kMixed.substr(0, length))) << length;
  }
}

TEST(DamagedArchive, EveryChangedByteIsPredicted) {
  for (std::size_t place = 0; place < kMixed.length(); place += kStep) {
    std::string changed = kMixed;
    changed[place] = static_cast<char>(changed[place] ^ 0x41);
    EXPECT_TRUE(IsPredicted(changed)) << place;
  }
}

/// Returns an archive of `count` entries that share the data of the first entry. Each entry states
/// `size` bytes.
std::string SharedData(std::size_t count, std::uint32_t size) {
  const std::string text(100000, 'a');
  std::vector<ZipEntry> entries{{"a0", text, kDeflated}};
  entries[0].size = size;
  for (std::size_t i = 1; i < count; ++i) {
    ZipEntry entry("a" + std::to_string(i), text, kDeflated);
    entry.offset = 0;
    entry.size = size;
    entries.push_back(entry);
  }
  return Zip(entries);
}

std::vector<std::string> OutOfBounds(const std::string& bytes, std::uint64_t maxSize) {
  ScopedDirectory directory;
  WriteFile(directory / "zip", bytes);
  return IdsOf(FindOutOfBounds(directory / "zip", ExtentOf(directory / "zip"), {maxSize}));
}

using Ids = std::vector<std::string>;

TEST(Bounds, ContentThatExceedsTheLimitIsFound) {
  const std::string bytes = Zip({{"a", "1234567890", kDeflated}, {"b", "1234567890"}});
  EXPECT_EQ(OutOfBounds(bytes, 19), Ids{"content-too-large"});
  EXPECT_EQ(OutOfBounds(bytes, 22), Ids{});
}

TEST(Bounds, ThreeGibibytesAreWithinThoseThatHoldByDefault) {
  ZipEntry entry = WithMethod(ZipEntry("a", Long(3200000)), kDeflated);
  entry.size = 3U << 30U;
  EXPECT_EQ(OutOfBounds(Zip({entry}), entry.size - 1), Ids{"content-too-large"});
  EXPECT_EQ(OutOfBounds(Zip({entry}), Limits().maxSize), Ids{});
}

TEST(Bounds, SharedDataCountsForEachEntry) {
  EXPECT_EQ(OutOfBounds(SharedData(30, 100000), 2999999),
            (Ids{"content-too-large", "overlapping-entries"}));
  EXPECT_EQ(OutOfBounds(SharedData(30, 100000), 3000000), Ids{});
}

TEST(Bounds, ImpossibleStatedSizeDoesNotCount) {
  EXPECT_EQ(OutOfBounds(Zip({With(kFile, &ZipEntry::size, 0xFFFFFFFEU)}), 5000), Ids{});
}

TEST(Bounds, DataWithTheStatedSizeZeroCounts) {
  const std::string bytes = Zip({With(ZipEntry("a", Long(1000)), &ZipEntry::size, 0U)});
  EXPECT_EQ(OutOfBounds(bytes, 999), Ids{"content-too-large"});
  EXPECT_EQ(OutOfBounds(bytes, 1000), Ids{});
}

TEST(Bounds, WrongEntryCountIsFound) {
  const ScopedDirectory directory;
  WriteFile(directory / "zip", WithCount(Zip({kFile, {"b", "x"}}), 3));
  const Findings findings = FindOutOfBounds(directory / "zip", ExtentOf(directory / "zip"), {1});
  EXPECT_EQ(IdsOf(findings), (Ids{"content-too-large", "directory-damaged"}));
  EXPECT_EQ(findings.back().reason, "it states 3 entries and lists 2");
}

TEST(Bounds, PackageBeyondThemIsNotRead) {
  const ScopedDirectory directory;
  WriteFile(directory / kPackageFileName, Zip({kFile}));
  FileTree tree;
  const BundleInspection bundle = InspectBundle(directory / "", {3}, &tree);
  EXPECT_EQ(IdsOf(bundle.findings), (Ids{"content-too-large", "metadata-missing"}));
  EXPECT_FALSE(bundle.isRead);
  EXPECT_TRUE(tree.empty());
}

TEST(Bounds, MissingPackageIsWithinBounds) {
  EXPECT_TRUE(FindOutOfBounds("/nowhere/zip", ExtentOf("/nowhere/zip"), {0}).empty());
  EXPECT_EQ(OutOfBounds("no archive", 0), Ids{});
}

TEST(Findings, OfANameComeBeforeThoseOfItsData) {
  const ScopedDirectory directory;
  const std::string path = directory / kPackageFileName;
  WriteFile(path, Zip({With(ZipEntry("a\\b", "text"), &ZipEntry::crc, 1U)}));
  PackageReader package(path);
  EXPECT_EQ(IdsOf(FindInPackage(path, Predict(package, 0))), (Ids{"name-unclean", "wrong-crc"}));
}

TEST(Rules, MissingPackageIsAFinding) {
  ScopedDirectory directory;
  const std::string path = directory / kPackageFileName;
  PackageReader package(path);
  EXPECT_EQ(IdsOf(FindInPackage(path, Predict(package, 0))),
            std::vector<std::string>{"package-missing"});
}

/// Returns the findings of an archive, each followed by the subject and a space.
std::string Found(const std::string& bytes) {
  ScopedDirectory directory;
  const std::string path = directory / kPackageFileName;
  WriteFile(path, bytes);
  PackageReader package(path);
  std::string found;
  for (const Finding& finding : FindInPackage(path, Predict(package, 0))) {
    found += std::string(finding.rule->id) + ": " + finding.subject + "\n";
  }
  return found;
}

/// Returns the archive with another two-byte number in the last entry of the central directory.
std::string WithInLastEntry(std::string bytes, std::size_t place, char low, char high) {
  const std::size_t begin = bytes.rfind("PK\1\2");
  bytes[begin + place] = low;
  bytes[begin + place + 1] = high;
  return bytes;
}

TEST(Rules, OverlappingEntryWithoutANameIsReportedByItsNumber) {
  const std::string bytes = Zip({kFile, With(ZipEntry("", "x"), &ZipEntry::offset, 0U)});
  EXPECT_NE(Found(bytes).find("overlapping-entries: entry 2\n"), std::string::npos);
}

TEST(Layout, Zip64FieldWithoutItsNumbersIsToldInEachHeader) {
  const ScopedDirectory directory;
  const auto refusals = [&directory](auto extra, const std::string& field) {
    ZipEntry entry = With(kFile, &ZipEntry::size, 0xFFFFFFFFU);
    WriteFile(directory / "zip", Zip({With(entry, extra, field)}));
    return ReadArchiveLayout(directory / "zip")->entries.at(0).Refusals();
  };
  const std::string eight("\1\0\x8\0\4\0\0\0\0\0\0\0", 12);
  const std::string four("\1\0\4\0\4\0\0\0", 8);
  EXPECT_EQ(refusals(&ZipEntry::extra, eight), std::nullopt);
  EXPECT_EQ(refusals(&ZipEntry::extra, four), "the Zip64 field is too short");
  EXPECT_EQ(refusals(&ZipEntry::localExtra, four), "the Zip64 field is too short");
}

TEST(Findings, OfOverlapsComeBeforeThoseOfCollisions) {
  const std::string found =
      Found(Zip({{"A", "x"}, With(ZipEntry("a", "x"), &ZipEntry::offset, 0U)}));
  EXPECT_LT(found.find("overlapping-entries"), found.find("case-collision"));
}

std::string LittleEndian(std::uint64_t number, int size) {
  std::string bytes;
  for (int i = 0; i < size; ++i) {
    bytes += static_cast<char>(number >> (8 * i));
  }
  return bytes;
}

/// Returns the archive with `count` in a Zip64 end of central directory record. The locator states
/// no disks, so the zip library uses the other end of central directory record, which states one
/// entry.
std::string WithTwoEndRecords(const std::string& archive, std::uint64_t count) {
  const std::size_t begin = archive.find("PK\1\2");
  const std::size_t end = archive.find("PK\5\6");
  const std::string record = "PK\6\6" + LittleEndian(44, 8) + std::string(12, '\0') +
                             LittleEndian(count, 8) + LittleEndian(count, 8) +
                             LittleEndian(end - begin, 8) + LittleEndian(begin, 8);
  const std::string locator =
      "PK\6\7" + LittleEndian(0, 4) + LittleEndian(end, 8) + LittleEndian(0, 4);
  const std::size_t size = end + record.length() + locator.length() - begin;
  return archive.substr(0, end) + record + locator + "PK\5\6" + LittleEndian(0, 4) +
         LittleEndian(1, 2) + LittleEndian(1, 2) + LittleEndian(size, 4) + LittleEndian(begin, 4) +
         LittleEndian(0, 2);
}

TEST(Rules, OverlappingEntryBehindTheEntryCountIsReportedByItsNumber) {
  const std::string bytes =
      WithTwoEndRecords(Zip({kFile, With(ZipEntry("b", "x"), &ZipEntry::offset, 0U)}), 2);
  EXPECT_EQ(Found(bytes), "overlapping-entries: entry 2\n");
}

// If the last entry's comment leads there, the zip library reads on behind the central directory.
TEST(Rules, EntryBehindTheCentralDirectoryIsNotListed) {
  constexpr std::size_t kCommentLength = 32;
  constexpr char kEndSize = 22;
  const std::string other = Zip({{"b/", ""}});
  const std::size_t central = other.find("PK\1\2");
  const std::string bytes =
      WithInLastEntry(WithCount(Zip({kFile}), 2), kCommentLength, kEndSize, 0) +
      other.substr(central, other.length() - kEndSize - central);
  EXPECT_EQ(Found(bytes).find("trailing-data: OrloWebResources.zip\n"
                              "directory-damaged: OrloWebResources.zip\n"),
            0U);
  EXPECT_TRUE(IsPredicted(bytes));
}

}  // namespace
