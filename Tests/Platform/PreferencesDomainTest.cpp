// The contract of preferences domains. The test runs in a chroot and uses only the contract. A
// separate process acts as the other process.

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>
#include <vector>

#include "AnotherProcess.h"
#include "PreferencesDomain.h"

namespace {

const char kIdentifier[] = "com.example.ContractTest.plist";

const char* program = nullptr;  // the path of this executable

PreferencesDomain::Value ValueOf(const PreferencesDomain& domain, const std::string& key) {
  std::vector<PreferencesDomain::Value> values;
  domain.Read({key}, &values);
  return values.at(0);
}

/// Every key that the tests set, in order.
constexpr const char* kKeys[] = {
    "",       "\x01",    "<&>",  "a",      "a b",   "a key that is long enough to be allocated",
    "goes",   "key",     "mine", "number", "stays", "text",
    "theirs", "\xC3\xA9"};

/// Returns the keys of the domain among kKeys, with their values: "key='text';" or "key=number;".
std::string Listing(const PreferencesDomain& domain) {
  std::string listing;
  for (const std::string key : kKeys) {
    const PreferencesDomain::Value value = ValueOf(domain, key);
    if (value.isPresent) {
      listing +=
          key + "=" +
          (value.number ? std::to_string(*value.number) : "'" + value.text.value_or("?") + "'") +
          ";";
    }
  }
  return listing;
}

/// Executes this program again with `arguments` and returns its output. A forked process is not
/// enough: the process inherits this process's cache and pending changes, and CoreFoundation does
/// not work after a fork.
std::string InAnotherProcess(const std::vector<std::string>& arguments) {
  return OutputOfProcess(program, arguments);
}

/// Returns the values on the disk.
std::string Stored(const std::string& identifier = kIdentifier) {
  return InAnotherProcess({"list", identifier});
}

void SetElsewhere(const std::string& key, const std::string& value) {
  EXPECT_EQ("flushed", InAnotherProcess({"set", kIdentifier, key, value}));
}

/// Acts as the other process.
int Obey(const std::vector<std::string>& arguments) {
  PreferencesDomain domain(arguments.at(1));
  if (arguments.at(0) == "list") {
    std::fputs(Listing(domain).c_str(), stdout);
  } else {
    domain.SetText(arguments.at(2), arguments.at(3));
    std::fputs(domain.Flush() ? "flushed" : "not flushed", stdout);
  }
  return 0;
}

class PreferencesDomainTest : public testing::Test {
 protected:
  void SetUp() override { Clear(); }
  void TearDown() override { Clear(); }

  void Clear() {
    domain_.RemoveAll();
    ASSERT_TRUE(domain_.Flush());
    ASSERT_FALSE(domain_.RemoveAll());
  }

  PreferencesDomain domain_{kIdentifier};
};

TEST_F(PreferencesDomainTest, EmptyDomainHasNothing) {
  const PreferencesDomain::Value value = ValueOf(domain_, "key");
  EXPECT_FALSE(value.isPresent || value.number || value.text);
  EXPECT_FALSE(domain_.RemoveAll());
}

TEST_F(PreferencesDomainTest, OnlyKeyIsRemoved) {
  domain_.SetNumber("number", 7);
  EXPECT_TRUE(domain_.RemoveAll());
  EXPECT_FALSE(ValueOf(domain_, "number").isPresent);
}

TEST_F(PreferencesDomainTest, ChangesAreSeenAtOnceThroughEveryObject) {
  domain_.SetText("text", "value");
  domain_.SetNumber("number", 7);
  const PreferencesDomain other(kIdentifier);
  EXPECT_EQ("value", ValueOf(other, "text").text);
  EXPECT_EQ(7, ValueOf(other, "number").number);
  domain_.Remove("text");
  EXPECT_FALSE(ValueOf(other, "text").isPresent);
}

TEST_F(PreferencesDomainTest, FlushedChangesAreSeenByAnotherProcess) {
  domain_.SetText("text", "value");
  domain_.SetNumber("number", 7);
  ASSERT_TRUE(domain_.Flush());
  EXPECT_EQ("number=7;text='value';", Stored());
}

// A back end decides whether other processes see a change earlier.
TEST_F(PreferencesDomainTest, ChangesAreVisibleToOthersAtTheLatestAfterTheFlush) {
  domain_.SetNumber("number", 7);
  const std::string before = Stored();
  EXPECT_TRUE(before.empty() || before == "number=7;") << before;
  ASSERT_TRUE(domain_.Flush());
  EXPECT_EQ("number=7;", Stored());
}

TEST_F(PreferencesDomainTest, ReadGivesValuesOfEveryTypeInTheOrderOfTheKeys) {
  domain_.SetNumber("number", 7);
  domain_.SetText("text", std::string(1000, 'x'));
  for (int i = 0; i < 2; ++i) {  // before and after the flush
    std::vector<PreferencesDomain::Value> values(7);
    ASSERT_TRUE(domain_.Read({"text", "absent", "number"}, &values));
    ASSERT_EQ(3U, values.size());
    EXPECT_TRUE(values[0].isPresent && !values[1].isPresent && values[2].isPresent);
    EXPECT_EQ(std::string(1000, 'x'), values[0].text);
    EXPECT_EQ(7, values[2].number);
    EXPECT_FALSE(values[0].number || values[1].text || values[2].text);
    ASSERT_TRUE(domain_.Flush());
  }
}

TEST_F(PreferencesDomainTest, MissingDomainIsReadAsEmpty) {
  std::vector<PreferencesDomain::Value> values;
  ASSERT_TRUE(domain_.Read({"number"}, &values));
  EXPECT_FALSE(values[0].isPresent);
}

TEST_F(PreferencesDomainTest, FlushKeepsTheKeysOfAnotherProcess) {
  domain_.SetText("mine", "1");
  SetElsewhere("theirs", "2");
  ASSERT_TRUE(domain_.Flush());
  EXPECT_EQ("mine='1';theirs='2';", Stored());
}

TEST_F(PreferencesDomainTest, FlushChangesNoKeyThatThisProcessHasNotChanged) {
  domain_.SetText("theirs", "1");
  ASSERT_TRUE(domain_.Flush());
  SetElsewhere("theirs", "2");
  domain_.SetText("mine", "1");
  ASSERT_TRUE(domain_.Flush());
  EXPECT_EQ("mine='1';theirs='2';", Stored());
}

TEST_F(PreferencesDomainTest, KeysOfAnotherProcessAreSeenAfterAFlush) {
  EXPECT_FALSE(ValueOf(domain_, "theirs").isPresent);
  SetElsewhere("theirs", "2");
  ASSERT_TRUE(domain_.Flush());
  EXPECT_EQ("theirs='2';", Listing(domain_));
}

TEST_F(PreferencesDomainTest, FlushWithoutChangesSucceeds) {
  EXPECT_TRUE(domain_.Flush());
  domain_.SetNumber("number", 1);
  EXPECT_TRUE(domain_.Flush());
  EXPECT_TRUE(domain_.Flush());
}

TEST_F(PreferencesDomainTest, RemovedKeysAreGoneAfterTheFlush) {
  domain_.SetNumber("stays", 1);
  domain_.SetNumber("goes", 2);
  ASSERT_TRUE(domain_.Flush());
  domain_.Remove("goes");
  EXPECT_FALSE(ValueOf(domain_, "goes").isPresent);
  ASSERT_TRUE(domain_.Flush());
  EXPECT_EQ("stays=1;", Stored());
}

TEST_F(PreferencesDomainTest, RemovingAnAbsentKeyIsAllowed) {
  domain_.Remove("absent");
  EXPECT_TRUE(domain_.Flush());
}

TEST_F(PreferencesDomainTest, LastChangeOfAKeyCounts) {
  domain_.SetNumber("key", 1);
  domain_.SetText("key", "text");
  domain_.Remove("key");
  domain_.SetNumber("key", 2);
  ASSERT_TRUE(domain_.Flush());
  EXPECT_EQ(2, ValueOf(domain_, "key").number);
}

TEST_F(PreferencesDomainTest, RemovingTheLastKeyLeavesADomainWithoutKeys) {
  domain_.SetNumber("key", 1);
  ASSERT_TRUE(domain_.Flush());
  domain_.Remove("key");
  ASSERT_TRUE(domain_.Flush());
  EXPECT_EQ("", Stored());
  EXPECT_FALSE(domain_.RemoveAll());
}

TEST_F(PreferencesDomainTest, FlushedAndPendingKeysAreRemovedTogether) {
  domain_.SetNumber("number", 1);
  ASSERT_TRUE(domain_.Flush());
  domain_.SetText("text", "");
  EXPECT_TRUE(domain_.RemoveAll());
  EXPECT_EQ("", Listing(domain_));
  ASSERT_TRUE(domain_.Flush());
  EXPECT_EQ("", Stored());
}

TEST_F(PreferencesDomainTest, ValueOfAnotherTypeReadsAsAbsentButIsThere) {
  domain_.SetText("text", "7");
  domain_.SetNumber("number", 7);
  ASSERT_TRUE(domain_.Flush());
  EXPECT_TRUE(ValueOf(domain_, "text").isPresent && ValueOf(domain_, "number").isPresent);
  EXPECT_EQ(std::nullopt, ValueOf(domain_, "text").number);
  EXPECT_EQ(std::nullopt, ValueOf(domain_, "number").text);
}

TEST_F(PreferencesDomainTest, NumbersOf32BitsComeBack) {
  for (const int number : {0, 1, -1, 10000, INT_MAX, INT_MIN}) {
    domain_.SetNumber("number", number);
    EXPECT_EQ(number, ValueOf(domain_, "number").number);
    ASSERT_TRUE(domain_.Flush());
    EXPECT_EQ("number=" + std::to_string(number) + ";", Stored());
  }
}

TEST_F(PreferencesDomainTest, TextsComeBack) {
  for (const char* text : {"", "Resource0", " a&b<c>\"'\t\n", "\xC3\xA9\xF0\x9F\x98\x80", "<x>]]>",
                           "\x01\x1F\r\n", "&amp;", "\xEF\xBF\xBF"}) {
    domain_.SetText("text", text);
    EXPECT_EQ(text, ValueOf(domain_, "text").text);
    ASSERT_TRUE(domain_.Flush());
    EXPECT_EQ("text='" + std::string(text) + "';", Stored());
  }
}

TEST_F(PreferencesDomainTest, TextsThatAreNotUtf8ChangeNothing) {
  domain_.SetText("text", "before");
  for (const std::string& bad : {std::string("\xFF"), std::string("a\xC3"), std::string("a\0b", 3),
                                 std::string("\xED\xA0\x80"), std::string("\xC0\x80")}) {
    domain_.SetText("text", bad);
    domain_.SetText(bad, "text");
    domain_.SetNumber(bad, 1);
    domain_.Remove(bad);
  }
  ASSERT_TRUE(domain_.Flush());
  EXPECT_EQ("before", ValueOf(domain_, "text").text);
  domain_.Remove("text");
  EXPECT_FALSE(domain_.RemoveAll());
}

TEST_F(PreferencesDomainTest, KeyWithAZeroByteIsNotTheKeyBeforeTheZeroByte) {
  const std::string key("a\0b", 3);
  domain_.SetText("a", "before");
  ASSERT_TRUE(domain_.Flush());
  domain_.Remove(key);
  domain_.SetText(key, "other");
  domain_.SetNumber(key, 1);
  ASSERT_TRUE(domain_.Flush());
  EXPECT_EQ("a='before';", Stored());
}

TEST_F(PreferencesDomainTest, KeysAreAnyText) {
  for (const char* key : {"", "a b", "<&>", "\xC3\xA9", "\x01"}) {
    domain_.SetText(key, key);
    ASSERT_TRUE(domain_.Flush());
    EXPECT_EQ(std::string(key) + "='" + key + "';", Stored());
    domain_.Remove(key);
  }
}

TEST_F(PreferencesDomainTest, ArgumentsMayChangeAfterTheCall) {
  std::string identifier = "com.example.OtherTest.plist";
  std::string key = "a key that is long enough to be allocated";
  std::string text = "a text that is long enough to be allocated";
  PreferencesDomain other(identifier);
  other.SetText(key, text);
  identifier[0] = key[0] = text[0] = 'X';
  EXPECT_EQ(
      "a key that is long enough to be allocated="
      "'a text that is long enough to be allocated';",
      Listing(other));
  other.Remove("a key that is long enough to be allocated");
  ASSERT_TRUE(other.Flush());
}

TEST_F(PreferencesDomainTest, ErasedKeysAreGoneFromTheDiskAndOthersStay) {
  PreferencesDomain domain(kIdentifier);
  EXPECT_TRUE(domain.Erase({"goes"}));  // while there is no file
  domain.SetNumber("goes", 1);
  domain.SetText("stays", "text");
  EXPECT_TRUE(domain.Flush());
  domain.SetNumber("goes", 2);  // not flushed, and removed as well
  EXPECT_TRUE(domain.Erase({"goes", "absent"}));
  EXPECT_EQ(Stored(), "stays='text';");
  EXPECT_FALSE(ValueOf(domain, "goes").isPresent);
  EXPECT_TRUE(domain.Erase({"stays"}));
  EXPECT_EQ(Stored(), "");
}

TEST_F(PreferencesDomainTest, DomainsAreSeparate) {
  PreferencesDomain other("com.example.OtherTest.plist");
  domain_.SetNumber("key", 1);
  EXPECT_FALSE(ValueOf(other, "key").isPresent);
  ASSERT_TRUE(domain_.Flush());
  EXPECT_FALSE(ValueOf(other, "key").isPresent);
  EXPECT_EQ("", Stored("com.example.OtherTest.plist"));
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  program = argv[0];
  return argc > 1 ? Obey({argv + 1, argv + argc}) : RUN_ALL_TESTS();
}
