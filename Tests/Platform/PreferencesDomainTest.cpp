// The contract of preferences domains. It runs in a private root and uses nothing but the contract;
// what another process sees and does is seen and done by another process.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "PreferencesDomain.h"

namespace {

const char kIdentifier[] = "com.example.ContractTest.plist";

/// Whether `claim` holds in another process, which sees only what is on the disk.
bool InAnotherProcess(const std::function<bool(PreferencesDomain)>& claim,
                      const char* identifier = kIdentifier) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(claim(PreferencesDomain(identifier)) ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::string TextOr(const PreferencesDomain& domain, const std::string& key,
                   const std::string& otherwise) {
  char buffer[4096];
  return domain.GetText(key, buffer, sizeof buffer) ? buffer : otherwise;
}

class PreferencesDomainTest : public testing::Test {
 protected:
  void SetUp() override { Clear(); }
  void TearDown() override { Clear(); }

  void Clear() {
    if (const auto keys = domain_.KeyList()) {
      for (const auto& key : *keys) {
        domain_.Remove(key);
      }
    }
    ASSERT_TRUE(domain_.Flush());
    ASSERT_FALSE(domain_.KeyList());
  }

  PreferencesDomain domain_{kIdentifier};
};

TEST_F(PreferencesDomainTest, EmptyDomainHasNothing) {
  char buffer[8];
  EXPECT_FALSE(domain_.Has("key"));
  EXPECT_FALSE(domain_.GetText("key", buffer, sizeof buffer));
  EXPECT_EQ(std::nullopt, domain_.GetNumber("key"));
  EXPECT_EQ(std::nullopt, domain_.KeyList());
}

TEST_F(PreferencesDomainTest, ChangesAreSeenAtOnceThroughEveryObject) {
  domain_.SetText("text", "value");
  domain_.SetNumber("number", 7);
  const PreferencesDomain other(kIdentifier);
  EXPECT_EQ("value", TextOr(other, "text", "absent"));
  EXPECT_EQ(7, other.GetNumber("number"));
  domain_.Remove("text");
  EXPECT_FALSE(other.Has("text"));
}

TEST_F(PreferencesDomainTest, FlushedChangesAreSeenByAnotherProcess) {
  domain_.SetText("text", "value");
  domain_.SetNumber("number", 7);
  ASSERT_TRUE(domain_.Flush());
  EXPECT_TRUE(InAnotherProcess([](const PreferencesDomain& domain) {
    return TextOr(domain, "text", "absent") == "value" && domain.GetNumber("number") == 7;
  }));
}

TEST_F(PreferencesDomainTest, FlushKeepsTheKeysOfAnotherProcess) {
  domain_.SetText("mine", "1");
  ASSERT_TRUE(InAnotherProcess([](PreferencesDomain domain) {
    domain.SetText("theirs", "2");
    return domain.Flush();
  }));
  ASSERT_TRUE(domain_.Flush());
  EXPECT_TRUE(InAnotherProcess([](const PreferencesDomain& domain) {
    return TextOr(domain, "mine", "") == "1" && TextOr(domain, "theirs", "") == "2";
  }));
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
  EXPECT_FALSE(domain_.Has("goes"));
  ASSERT_TRUE(domain_.Flush());
  EXPECT_TRUE(InAnotherProcess(
      [](const PreferencesDomain& domain) { return domain.Has("stays") && !domain.Has("goes"); }));
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
  EXPECT_EQ(2, domain_.GetNumber("key"));
}

TEST_F(PreferencesDomainTest, RemovingTheLastKeyLeavesADomainWithoutKeys) {
  domain_.SetNumber("key", 1);
  ASSERT_TRUE(domain_.Flush());
  domain_.Remove("key");
  ASSERT_TRUE(domain_.Flush());
  EXPECT_TRUE(InAnotherProcess([](const PreferencesDomain& domain) { return !domain.KeyList(); }));
}

TEST_F(PreferencesDomainTest, KeyListNamesFlushedAndPendingKeys) {
  domain_.SetNumber("b", 1);
  ASSERT_TRUE(domain_.Flush());
  domain_.SetText("a", "");
  auto keys = domain_.KeyList();
  ASSERT_TRUE(keys);
  std::sort(keys->begin(), keys->end());
  EXPECT_EQ((std::vector<std::string>{"a", "b"}), *keys);
}

TEST_F(PreferencesDomainTest, ValueOfAnotherTypeReadsAsAbsentButIsThere) {
  domain_.SetText("text", "7");
  domain_.SetNumber("number", 7);
  ASSERT_TRUE(domain_.Flush());
  char buffer[8];
  EXPECT_TRUE(domain_.Has("text"));
  EXPECT_EQ(std::nullopt, domain_.GetNumber("text"));
  EXPECT_TRUE(domain_.Has("number"));
  EXPECT_FALSE(domain_.GetText("number", buffer, sizeof buffer));
}

TEST_F(PreferencesDomainTest, NumbersOf32BitsComeBack) {
  for (const int number : {0, 1, -1, 10000, INT_MAX, INT_MIN}) {
    domain_.SetNumber("number", number);
    EXPECT_EQ(number, domain_.GetNumber("number"));
    ASSERT_TRUE(domain_.Flush());
    EXPECT_TRUE(InAnotherProcess([number](const PreferencesDomain& domain) {
      return domain.GetNumber("number") == number;
    })) << number;
  }
}

TEST_F(PreferencesDomainTest, TextsComeBack) {
  for (const char* text : {"", "Resource0", " a&b<c>\"'\t\n", "\xC3\xA9\xF0\x9F\x98\x80", "<x>]]>",
                           "\x01\x1F\r\n", "&amp;", "\xEF\xBF\xBF"}) {
    domain_.SetText("text", text);
    EXPECT_EQ(text, TextOr(domain_, "text", "absent"));
    ASSERT_TRUE(domain_.Flush());
    EXPECT_TRUE(InAnotherProcess([text](const PreferencesDomain& domain) {
      return TextOr(domain, "text", "absent") == text;
    })) << text;
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
  EXPECT_EQ("before", TextOr(domain_, "text", "absent"));
  EXPECT_EQ(1U, domain_.KeyList()->size());
}

TEST_F(PreferencesDomainTest, KeysAreAnyText) {
  for (const char* key : {"", "a b", "<&>", "\xC3\xA9", "\x01"}) {
    domain_.SetText(key, key);
    ASSERT_TRUE(domain_.Flush());
    EXPECT_TRUE(InAnotherProcess([key](const PreferencesDomain& domain) {
      return TextOr(domain, key, "absent") == key;
    })) << key;
  }
}

TEST_F(PreferencesDomainTest, TextMustFitWithItsTerminatingZero) {
  domain_.SetText("text", "12345");
  char buffer[6] = "-----";
  EXPECT_FALSE(domain_.GetText("text", buffer, 0));
  EXPECT_FALSE(domain_.GetText("text", buffer, 5));
  EXPECT_TRUE(domain_.GetText("text", buffer, 6));
  EXPECT_STREQ("12345", buffer);
}

TEST_F(PreferencesDomainTest, DomainsAreSeparate) {
  PreferencesDomain other("com.example.OtherTest.plist");
  domain_.SetNumber("key", 1);
  EXPECT_FALSE(other.Has("key"));
  ASSERT_TRUE(domain_.Flush());
  EXPECT_FALSE(other.Has("key"));
  EXPECT_TRUE(InAnotherProcess([](const PreferencesDomain& domain) { return !domain.KeyList(); },
                               "com.example.OtherTest.plist"));
}

}  // namespace
