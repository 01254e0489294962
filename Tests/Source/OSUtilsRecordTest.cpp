// The record in the real store. Requires: a chroot or a throwaway machine.

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include "InstallRecord.h"
#include "OSUtils.h"
#include "StoredRecord.h"
#include "Support.h"

namespace {

std::string Number(const std::string& key, const std::string& value) {
  return "<key>" + key + "</key><integer>" + value + "</integer>";
}

std::string String(const std::string& key, const std::string& value) {
  return "<key>" + key + "</key><string>" + value + "</string>";
}

class Record : public testing::Test {
 protected:
  /// Checks that the test runs in a chroot or on a throwaway machine: the tests change the record
  /// of this host.
  void SetUp() override {
    ASSERT_TRUE(!IsThere("/etc/passwd") || std::getenv("THROWAWAY_MACHINE") != nullptr)
        << "to be run in a chroot";
    StoredRecord::Remove();
  }

  /// Writes the record as another program does.
  static void Write(const std::string& members) { StoredRecord::Write(members); }

  static std::string OnDisk() { return StoredRecord::Read(); }

  static WebRegInfo OldInfo() {
    WebRegInfo info = {11, 12, "before", "before"};
    OSUtils::OldInfo(&info);
    return info;
  }

  /// Clears the record as a run does.
  static bool Clear() {
    WebRegInfo info = OldInfo();
    OSUtils::ClearRegistry();
    return OSUtils::MakeFreshRegistry(&info);
  }
};

/// Tests of the record's file, for systems on which the installer chooses the location.
class RecordFile : public Record {
 protected:
  void SetUp() override {
    if (!StoredRecord::File()) {
      GTEST_SKIP() << "the place of the record is CoreFoundation's affair";
    }
    Record::SetUp();
  }

  const std::string file_ = StoredRecord::File().value_or("");
};

class RecordWith : public Record, public testing::WithParamInterface<const char*> {};

void ExpectInfo(const WebRegInfo& info, int random, int updateId, const std::string& installPath,
                const std::string& fullVersion) {
  EXPECT_EQ(info.random, random);
  EXPECT_EQ(info.updateId, updateId);
  EXPECT_EQ(info.installPath, installPath);
  EXPECT_EQ(info.fullVersion, fullVersion);
}

// Writing ---------------------------------------------------------------------------------------

TEST_F(Record, RegistrationsReachTheDiskUnderTheirKeys) {
  EXPECT_TRUE(OSUtils::RegisterWebResourcePath("Resource0"));
  EXPECT_EQ(OnDisk(), "tWebResourceInstallPath='Resource0' ");
  EXPECT_TRUE(OSUtils::RegisterUpdateID(5));
  EXPECT_TRUE(OSUtils::RegisterCompleteVersion(5));
  EXPECT_EQ(OnDisk(),
            "iUpdateId=5 tFullVersion='17.011.30138.5' tWebResourceInstallPath='Resource0' ");
}

TEST_F(Record, RegistrationsReplaceEarlierValues) {
  Write(Number("iUpdateId", "1") + String("tFullVersion", "x") + Number("other", "9"));
  EXPECT_TRUE(OSUtils::RegisterUpdateID(2));
  EXPECT_TRUE(OSUtils::RegisterCompleteVersion(2));
  EXPECT_EQ(OnDisk(), "iUpdateId=2 other=9 tFullVersion='17.011.30138.2' ");
}

TEST_F(Record, RegistrationsReplaceValuesOfOtherTypes) {
  Write(String("iUpdateId", "1") + Number("tFullVersion", "2") + "<key>irandom</key><array/>");
  EXPECT_TRUE(OSUtils::RegisterUpdateID(2));
  EXPECT_TRUE(OSUtils::RegisterCompleteVersion(2));
  EXPECT_TRUE(OSUtils::RegisterRandom());
  ExpectInfo(OldInfo(), OldInfo().random, 2, "", "17.011.30138.2");
  EXPECT_GE(OldInfo().random, 1);
}

TEST_F(Record, WholeRangeOfNumbersIsStored) {
  for (const int number : {0, 1, -1, -2, INT_MAX, INT_MIN}) {
    EXPECT_TRUE(OSUtils::RegisterUpdateID(number));
    EXPECT_EQ(OnDisk(), "iUpdateId=" + std::to_string(number) + " ");
  }
}

TEST_F(Record, TextsMayBeEmptyLongOrBeyondAscii) {
  for (const std::string& text :
       {std::string(), std::string(5000, 'x'), std::string("R\xc3\xa9<&>\"'")}) {
    EXPECT_TRUE(OSUtils::RegisterWebResourcePath(text));
    EXPECT_EQ(OnDisk(), "tWebResourceInstallPath='" + text + "' ");
  }
}

// The expected value is computed from the same second.
TEST_F(Record, RandomFollowsFromTheTimeInSeconds) {
  std::time_t before = 0;
  do {
    before = std::time(nullptr);
    EXPECT_TRUE(OSUtils::RegisterRandom());
  } while (std::time(nullptr) != before);
  std::srand(static_cast<unsigned int>(before));
  const int expected = std::rand() % 10000 + 1;
  EXPECT_EQ(OnDisk(), "irandom=" + std::to_string(expected) + " ");
  EXPECT_GE(expected, 1);
  EXPECT_LE(expected, 10000);
}

TEST_F(Record, TwoRandomsWithinASecondAreTheSame) {
  std::time_t before = 0;
  int first = 0;
  do {
    before = std::time(nullptr);
    OSUtils::RegisterRandom();
    first = OldInfo().random;
    OSUtils::RegisterRandom();
  } while (std::time(nullptr) != before);
  EXPECT_EQ(OldInfo().random, first);
}

TEST_F(RecordFile, FailedFlushIsTheResult) {
  std::filesystem::create_directory(file_);
  EXPECT_FALSE(OSUtils::RegisterWebResourcePath("Resource0"));
  EXPECT_FALSE(OSUtils::RegisterUpdateID(5));
  EXPECT_FALSE(OSUtils::RegisterCompleteVersion(5));
  EXPECT_FALSE(OSUtils::RegisterRandom());
  WebRegInfo info = {1, 2, "x", "y"};
  EXPECT_FALSE(OSUtils::MakeFreshRegistry(&info));
  EXPECT_FALSE(OSUtils::ClearRegistry());
  EXPECT_TRUE(std::filesystem::is_directory(file_));
  // Unflushed changes stay pending. A flush now removes them before the next test.
  std::filesystem::remove(file_);
  EXPECT_TRUE(OSUtils::RegisterUpdateID(5));
}

// Reading ---------------------------------------------------------------------------------------

TEST_F(Record, EmptyDomainIsAllAbsent) {
  ExpectInfo(OldInfo(), -1, -1, "", "");
  EXPECT_FALSE(OSUtils::isRandomPresent());
}

TEST_F(Record, AllFourValuesAreRead) {
  Write(Number("irandom", "4711") + Number("iUpdateId", "5") +
        String("tWebResourceInstallPath", "Resource0") + String("tFullVersion", "17.011.30138.5"));
  ExpectInfo(OldInfo(), 4711, 5, "Resource0", "17.011.30138.5");
}

TEST_F(Record, EachValueIsReadAlone) {
  Write(Number("iUpdateId", "5"));
  ExpectInfo(OldInfo(), -1, 5, "", "");
}

TEST_F(Record, KeysAreCaseSensitive) {
  Write(Number("IRANDOM", "1") + Number("iUpdateID", "2") + String("tfullversion", "x"));
  ExpectInfo(OldInfo(), -1, -1, "", "");
  EXPECT_FALSE(OSUtils::isRandomPresent());
}

TEST_F(Record, ValuesOfOtherTypesAreAbsent) {
  Write(String("irandom", "7") + "<key>iUpdateId</key><true/>" +
        Number("tWebResourceInstallPath", "1") + "<key>tFullVersion</key><data>eA==</data>");
  ExpectInfo(OldInfo(), -1, -1, "", "");
}

TEST_F(Record, ContainersAreAbsent) {
  Write(
      "<key>irandom</key><array><integer>1</integer></array><key>iUpdateId</key><dict/>"
      "<key>tWebResourceInstallPath</key><array/><key>tFullVersion</key><dict/>");
  ExpectInfo(OldInfo(), -1, -1, "", "");
}

TEST_F(Record, NumbersBeyond32BitsAreAbsent) {
  Write(Number("irandom", "2147483648") + Number("iUpdateId", "-2147483649"));
  ExpectInfo(OldInfo(), -1, -1, "", "");
}

TEST_P(RecordWith, RandomOfEveryTypeIsPresent) {
  Write(std::string("<key>irandom</key>") + GetParam());
  EXPECT_TRUE(OSUtils::isRandomPresent());
}

INSTANTIATE_TEST_SUITE_P(Values, RecordWith,
                         testing::Values("<integer>7</integer>", "<integer>-1</integer>",
                                         "<string/>", "<true/>", "<false/>", "<array/>", "<dict/>",
                                         "<real>1.5</real>", "<data>eA==</data>"));

TEST_F(Record, StringOf127BytesIsKept) {
  Write(String("tWebResourceInstallPath", std::string(127, 'p')) +
        String("tFullVersion", std::string(127, 'v')));
  ExpectInfo(OldInfo(), -1, -1, std::string(127, 'p'), std::string(127, 'v'));
}

class RecordWithTextOf : public Record, public testing::WithParamInterface<std::size_t> {};

TEST_P(RecordWithTextOf, CountsAsAbsent) {
  Write(String("tWebResourceInstallPath", std::string(GetParam(), 'p')) +
        String("tFullVersion", std::string(GetParam(), 'v')));
  ExpectInfo(OldInfo(), -1, -1, "", "");
}

INSTANTIATE_TEST_SUITE_P(Lengths, RecordWithTextOf, testing::Values(128U, 129U, 200U, 5000U));

TEST_F(Record, TextsAreMeasuredInBytesNotCharacters) {
  std::string fits;
  for (int character = 0; character < 63; ++character) {
    fits += "\xc3\xa9";
  }
  Write(String("tWebResourceInstallPath", fits + "x") + String("tFullVersion", fits + "\xc3\xa9"));
  ExpectInfo(OldInfo(), -1, -1, fits + "x", "");
}

// The record of another host --------------------------------------------------------------------

class RecordUnderARoot : public RecordFile {
 protected:
  static constexpr char kRoot[] = "/other host";

  void SetUp() override {
    RecordFile::SetUp();
    std::filesystem::remove_all(kRoot);
  }

  /// Returns the values of a host's record, or nothing if the record cannot be read.
  static std::optional<WebRegInfo> InfoUnder(const std::string& root) {
    const auto record = ReadRecord(root);
    return record ? std::optional(record->values) : std::nullopt;
  }

  /// Moves this host's record to the other host.
  void MoveToTheOtherHost() const {
    std::filesystem::create_directories(std::filesystem::path(kRoot + file_).parent_path());
    std::filesystem::rename(file_, kRoot + file_);
  }
};

TEST_F(RecordUnderARoot, IsReadFromThatHostOnly) {
  Write(Number("irandom", "4711") + Number("iUpdateId", "5") +
        String("tWebResourceInstallPath", "Resource0") + String("tFullVersion", "x"));
  MoveToTheOtherHost();
  Write(Number("irandom", "1"));
  ExpectInfo(InfoUnder(kRoot).value(), 4711, 5, "Resource0", "x");
  ExpectInfo(InfoUnder("").value(), 1, -1, "", "");
}

TEST_F(RecordUnderARoot, IsAbsentIfTheHostHasNone) {
  Write(Number("irandom", "1"));
  ExpectInfo(InfoUnder(kRoot).value(), -1, -1, "", "");
  EXPECT_FALSE(IsThere(kRoot));
}

TEST_F(RecordUnderARoot, ThatCannotBeReadIsNotAbsent) {
  std::filesystem::create_directories(kRoot + file_);
  EXPECT_FALSE(InfoUnder(kRoot));
}

// Clearing --------------------------------------------------------------------------------------

TEST_F(Record, ClearingADomainWithoutKeysIsFalse) {
  EXPECT_FALSE(OSUtils::ClearRegistry());
  EXPECT_EQ(OnDisk(), "");
}

TEST_F(RecordFile, ClearingADomainWithoutAFileMakesNone) {
  EXPECT_FALSE(OSUtils::ClearRegistry());
  EXPECT_FALSE(IsThere(file_));
}

TEST_F(RecordFile, ClearingADomainWithoutKeysLeavesItsFile) {
  Write("");
  const std::string before = ReadFile(file_);
  EXPECT_FALSE(OSUtils::ClearRegistry());
  EXPECT_EQ(ReadFile(file_), before);
}

TEST_F(Record, ClearingRemovesEveryKey) {
  Write(Number("irandom", "1") + String("other", "x") +
        "<key>more</key><dict><key>a</key><true/></dict>");
  EXPECT_TRUE(OSUtils::ClearRegistry());
  EXPECT_EQ(OnDisk(), "");
  EXPECT_FALSE(OSUtils::isRandomPresent());
  ExpectInfo(OldInfo(), -1, -1, "", "");
}

TEST_F(Record, RemovalLeavesTheKeysOfOtherPrograms) {
  Write(Number("irandom", "4711") + Number("iUpdateId", "5") + Number("other", "1") +
        String("tWebResourceInstallPath", "Resource0") + String("tFullVersion", "any text"));
  EXPECT_TRUE(RemoveRandom(""));
  EXPECT_EQ(OnDisk(),
            "iUpdateId=5 other=1 tFullVersion='any text' tWebResourceInstallPath='Resource0' ");
  EXPECT_TRUE(RemoveRecord(""));
  EXPECT_EQ(OnDisk(), "other=1 ");
}

TEST_F(Record, RestoredRandomIsPresentAgain) {
  Write(Number("irandom", "4711"));
  WebRegInfo info = OldInfo();
  OSUtils::ClearRegistry();
  EXPECT_FALSE(OSUtils::isRandomPresent());
  EXPECT_TRUE(OSUtils::MakeFreshRegistry(&info));
  EXPECT_TRUE(OSUtils::isRandomPresent());
}

TEST_F(Record, ClearKeepsTheKnownValuesAndRemovesAllOthers) {
  Write(Number("irandom", "4711") + Number("iUpdateId", "5") + Number("other", "1") +
        String("tWebResourceInstallPath", "Resource0") + String("tFullVersion", "any text") +
        "<key>more</key><array/>");
  EXPECT_TRUE(Clear());
  EXPECT_EQ(OnDisk(),
            "iUpdateId=5 irandom=4711 tFullVersion='any text' "
            "tWebResourceInstallPath='Resource0' ");
}

TEST_F(Record, ClearOfAnEmptyDomainWritesNoValue) {
  EXPECT_TRUE(Clear());
  EXPECT_EQ(OnDisk(), "");
}

TEST_F(Record, ClearKeepsNegativeNumbersButMinusOne) {
  Write(Number("irandom", "-2") + Number("iUpdateId", "-2147483648"));
  EXPECT_TRUE(Clear());
  EXPECT_EQ(OnDisk(), "iUpdateId=-2147483648 irandom=-2 ");
}

TEST_F(Record, ClearDropsMinusOneAndEmptyTexts) {
  Write(Number("irandom", "-1") + Number("iUpdateId", "-1") + String("tFullVersion", "") +
        String("tWebResourceInstallPath", ""));
  EXPECT_TRUE(Clear());
  EXPECT_EQ(OnDisk(), "");
}

TEST_F(Record, ClearDropsAnInstallPathOf200Bytes) {
  Write(String("tWebResourceInstallPath", std::string(200, 'p')) + Number("iUpdateId", "5"));
  EXPECT_TRUE(Clear());
  EXPECT_EQ(OnDisk(), "iUpdateId=5 ");
}

}  // namespace
