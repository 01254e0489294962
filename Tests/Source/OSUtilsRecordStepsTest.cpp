// The calls of the record's operations to the store, in order. A test double that lists its calls
// replaces the platform's store. Another test double replaces the random-number generator and
// returns given numbers.

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <map>
#include <string>
#include <variant>

#include "InstallerConstants.h"
#include "OSUtils.h"
#include "PreferencesDomain.h"

namespace {

struct Store {
  std::map<std::string, std::variant<int, std::string>> values;
  std::string steps;
  bool flushes = true;  ///< Whether a flush succeeds.
  bool other = false;   ///< Whether a caller used a domain with another name.
};

Store store;
int drawn = 0;
unsigned int seed = 0;

template <typename Type>
const Type* Find(const std::string& key) {
  const auto found = store.values.find(key);
  return found == store.values.end() ? nullptr : std::get_if<Type>(&found->second);
}

}  // namespace

extern "C" int rand() {
  return drawn;
}
extern "C" void srand(unsigned int value) {
  seed = value;
}

PreferencesDomain::PreferencesDomain(const std::string& applicationIdentifier,
                                     const std::string& root)
    : name_(root + applicationIdentifier) {
  store.other |= name_ != PLIST_SECTION_KEY;
}

void PreferencesDomain::SetText(const std::string& key, const std::string& value) {
  store.values[key] = value;
  store.steps += key + "='" + value + "' ";
}

void PreferencesDomain::SetNumber(const std::string& key, int value) {
  store.values[key] = value;
  store.steps += key + "=" + std::to_string(value) + " ";
}

void PreferencesDomain::Remove(const std::string& key) {
  store.values.erase(key);
  store.steps += "-" + key + " ";
}

bool PreferencesDomain::RemoveAll() {
  const bool hasKeys = !store.values.empty();
  while (!store.values.empty()) {
    Remove(std::string(store.values.begin()->first));
  }
  return hasKeys;
}

bool PreferencesDomain::Flush() {
  store.steps += "flush ";
  return store.flushes;
}

bool PreferencesDomain::Erase(const std::vector<std::string>&) {
  return false;
}

bool PreferencesDomain::Read(const std::vector<std::string>& keys,
                             std::vector<Value>* values) const {
  values->clear();
  for (const std::string& key : keys) {
    store.steps += "?" + key + " ";
    Value& value = values->emplace_back();
    value.isPresent = store.values.count(key) != 0;
    if (const int* number = Find<int>(key)) {
      value.number = *number;
    } else if (const auto* text = Find<std::string>(key)) {
      value.text = *text;
    }
  }
  return true;
}

namespace {

class RecordSteps : public testing::Test {
 protected:
  void SetUp() override { store = Store(); }
  void TearDown() override { EXPECT_FALSE(store.other); }

  /// Returns the full version string for `build`.
  static std::string Version(int build) {
    OSUtils::RegisterCompleteVersion(build);
    return *Find<std::string>("tFullVersion");
  }
};

TEST_F(RecordSteps, EachRegistrationSetsOneValueAndFlushes) {
  EXPECT_TRUE(OSUtils::RegisterWebResourcePath("Resource1"));
  EXPECT_TRUE(OSUtils::RegisterUpdateID(7));
  EXPECT_TRUE(OSUtils::RegisterCompleteVersion(7));
  EXPECT_TRUE(OSUtils::RegisterRandom());
  EXPECT_EQ(store.steps,
            "tWebResourceInstallPath='Resource1' flush iUpdateId=7 flush "
            "tFullVersion='17.011.30138.7' flush irandom=1 flush ");
}

TEST_F(RecordSteps, FailedFlushIsTheResult) {
  store.flushes = false;
  EXPECT_FALSE(OSUtils::RegisterWebResourcePath("Resource1"));
  EXPECT_FALSE(OSUtils::RegisterUpdateID(7));
  EXPECT_FALSE(OSUtils::RegisterCompleteVersion(7));
  EXPECT_FALSE(OSUtils::RegisterRandom());
  EXPECT_FALSE(OSUtils::ClearRegistry());
  WebRegInfo info;
  EXPECT_FALSE(OSUtils::MakeFreshRegistry(&info));
}

TEST_F(RecordSteps, RestoringSetsInOrderAndFlushesThreeTimes) {
  WebRegInfo info = {4711, 5, "Resource0", "17.011.30138.5"};
  EXPECT_TRUE(OSUtils::MakeFreshRegistry(&info));
  EXPECT_EQ(store.steps,
            "irandom=4711 iUpdateId=5 flush tWebResourceInstallPath='Resource0' flush "
            "tFullVersion='17.011.30138.5' flush ");
}

TEST_F(RecordSteps, RestoringOneValueSkipsTheOthers) {
  const auto steps = [](WebRegInfo info) {
    store = Store();
    OSUtils::MakeFreshRegistry(&info);
    return store.steps;
  };
  EXPECT_EQ(steps({7, -1, "", ""}), "irandom=7 flush ");
  EXPECT_EQ(steps({-1, 7, "", ""}), "iUpdateId=7 flush flush ");
  EXPECT_EQ(steps({-1, -1, "x", ""}), "tWebResourceInstallPath='x' flush flush ");
  EXPECT_EQ(steps({-1, -1, "", "x"}), "tFullVersion='x' flush ");
}

// Only -1 means absent.
TEST_F(RecordSteps, RestoringWritesZeroAndOtherNegativeNumbers) {
  WebRegInfo info = {0, -2, "", ""};
  OSUtils::MakeFreshRegistry(&info);
  EXPECT_EQ(store.steps, "irandom=0 iUpdateId=-2 flush flush ");
  store = Store();
  info = {INT_MIN, INT_MAX, "", ""};
  OSUtils::MakeFreshRegistry(&info);
  EXPECT_EQ(store.steps, "irandom=-2147483648 iUpdateId=2147483647 flush flush ");
}

// The version is written as stored, and is not made from the update number again.
TEST_F(RecordSteps, RestoringDoesNotRebuildTheVersion) {
  WebRegInfo info = {-1, 5, "", "any text"};
  OSUtils::MakeFreshRegistry(&info);
  EXPECT_EQ(store.steps, "iUpdateId=5 flush tFullVersion='any text' flush ");
}

TEST_F(RecordSteps, RestoringLeavesItsArgumentAlone) {
  WebRegInfo info = {1, 2, "x", "y"};
  OSUtils::MakeFreshRegistry(&info);
  EXPECT_EQ(info.random, 1);
  EXPECT_EQ(info.updateId, 2);
  EXPECT_EQ(info.installPath, "x");
  EXPECT_EQ(info.fullVersion, "y");
}

TEST_F(RecordSteps, ClearingRemovesEveryKeyAndFlushesOnce) {
  store.values = {{"a", 1}, {"iUpdateId", 2}, {"z", "text"}};
  EXPECT_TRUE(OSUtils::ClearRegistry());
  EXPECT_EQ(store.steps, "-a -iUpdateId -z flush ");
}

TEST_F(RecordSteps, ClearingADomainWithoutKeysIsFalseWithoutAFlush) {
  EXPECT_FALSE(OSUtils::ClearRegistry());
  EXPECT_EQ(store.steps, "");
}

TEST_F(RecordSteps, ReadingReadsEachValueOnceInOrderAndChangesNothing) {
  store.values = {{"irandom", 1}, {"tFullVersion", "x"}};
  WebRegInfo info;
  OSUtils::OldInfo(&info);
  EXPECT_EQ(store.steps, "?irandom ?iUpdateId ?tWebResourceInstallPath ?tFullVersion ");
  store.steps.clear();
  OSUtils::isRandomPresent();
  EXPECT_EQ(store.steps, "?irandom ");
}

TEST_F(RecordSteps, VersionIsTheReleaseAndTheNumber) {
  EXPECT_EQ(Version(0), "17.011.30138.0");
  EXPECT_EQ(Version(5), "17.011.30138.5");
  EXPECT_EQ(Version(12345), "17.011.30138.12345");
  EXPECT_EQ(Version(-1), "17.011.30138.-1");
}

TEST_F(RecordSteps, VersionsNumberIsTruncatedToNineCharacters) {
  EXPECT_EQ(Version(999999999), "17.011.30138.999999999");
  EXPECT_EQ(Version(1000000000), "17.011.30138.100000000");
  EXPECT_EQ(Version(INT_MAX), "17.011.30138.214748364");
  EXPECT_EQ(Version(-99999999), "17.011.30138.-99999999");
  EXPECT_EQ(Version(-100000000), "17.011.30138.-10000000");
  EXPECT_EQ(Version(INT_MIN), "17.011.30138.-21474836");
}

TEST_F(RecordSteps, RandomIsTheDrawnNumberModuloTenThousandPlusOne) {
  const auto registered = [](int number) {
    drawn = number;
    OSUtils::RegisterRandom();
    return *Find<int>("irandom");
  };
  EXPECT_EQ(registered(0), 1);
  EXPECT_EQ(registered(9998), 9999);
  EXPECT_EQ(registered(9999), 10000);
  EXPECT_EQ(registered(10000), 1);
  EXPECT_EQ(registered(RAND_MAX), RAND_MAX % 10000 + 1);
}

TEST_F(RecordSteps, RandomIsSeededWithTheTimeInSecondsEachTime) {
  for (int run = 0; run < 2; ++run) {
    const std::time_t before = std::time(nullptr);
    seed = 0;
    OSUtils::RegisterRandom();
    EXPECT_GE(seed, static_cast<unsigned int>(before));
    EXPECT_LE(seed, static_cast<unsigned int>(std::time(nullptr)));
  }
}

}  // namespace
