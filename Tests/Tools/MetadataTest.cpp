// Each rule about metadata: a file that triggers it, alone; and how far a run gets with it.

#include <gtest/gtest.h>

#include "Error.h"
#include "Metadata.h"
#include "Support.h"

namespace {

using RunOutcome = Metadata::RunOutcome;

struct Case {
  const char* rule;  ///< Empty: none.
  RunOutcome outcome;
  std::string text;
};

void PrintTo(const Case& tested, std::ostream* stream) {
  *stream << tested.text.substr(0, 100);
}

class MetadataTest : public testing::TestWithParam<Case> {};

TEST_P(MetadataTest, FileTriggersItsRuleAlone) {
  ScopedDirectory directory;
  WriteFile(directory / "metadata.txt", GetParam().text);
  const Metadata metadata = ReadMetadata(directory / "metadata.txt");
  std::string ids;
  for (const Finding& finding : metadata.findings) {
    ids += finding.rule->id;
  }
  EXPECT_EQ(ids, GetParam().rule);
  EXPECT_EQ(metadata.outcome, GetParam().outcome);
}

INSTANTIATE_TEST_SUITE_P(
    Files, MetadataTest,
    testing::Values(
        Case{"", RunOutcome::Complete, R"({"clear":false,"updateid":1,"regenerate":false})"},
        Case{"", RunOutcome::Complete,
             " \n{\"updateid\":-5,\"regenerate\":true,\"clear\":true}\n\n"},
        Case{"", RunOutcome::Complete,
             R"({"clear":false,"updateid":5e2,"regenerate":false,"x":[1]})"},
        Case{"", RunOutcome::Complete,
             R"({"clear":false,"updateid":999999999,"regenerate":false})"},
        Case{"", RunOutcome::Complete,
             R"({"clear":false,"updateid":-99999999,"regenerate":false})"},
        Case{"metadata-blank", RunOutcome::Nothing,
             R"({"clear":false, "updateid":1, "regenerate":false})"},
        Case{"metadata-blank", RunOutcome::Nothing, "{\n}\n"},
        Case{"metadata-not-object", RunOutcome::Nothing, ""},
        Case{"metadata-not-object", RunOutcome::Nothing, " \n"},
        Case{"metadata-not-object", RunOutcome::Nothing, "[1]"},
        Case{"metadata-not-object", RunOutcome::Nothing, "true"},
        Case{"metadata-ignored-text", RunOutcome::Complete,
             R"({"clear":true} {"clear":false,"updateid":1,"regenerate":false})"},
        Case{"metadata-ignored-text", RunOutcome::Complete,
             R"({"clear":false,"updateid":1,"regenerate":false})" + std::string("\0text", 5)},
        Case{"metadata-syntax", RunOutcome::Complete,
             R"({"clear":false,"updateid":1,"regenerate":false)"},
        Case{"metadata-syntax", RunOutcome::Complete,
             R"({"clear":false,"updateid":1,"regenerate":false}})"},
        Case{"metadata-repeated-member", RunOutcome::Complete,
             R"({"clear":false,"updateid":1,"regenerate":false,"clear":true})"},
        Case{"metadata-member-missing", RunOutcome::Nothing,
             R"({"updateid":1,"regenerate":false})"},
        Case{"metadata-member-missing", RunOutcome::Extracted,
             R"({"clear":true,"regenerate":false})"},
        Case{"metadata-member-missing", RunOutcome::AllButRandom, R"({"clear":true,"updateid":1})"},
        Case{"metadata-member-type", RunOutcome::Nothing,
             R"({"clear":0,"updateid":1,"regenerate":false})"},
        Case{"metadata-member-type", RunOutcome::Extracted,
             R"({"clear":true,"updateid":"1","regenerate":false})"},
        Case{"metadata-member-type", RunOutcome::Extracted,
             R"({"clear":true,"updateid":1.0,"regenerate":false})"},
        Case{"metadata-member-type", RunOutcome::AllButRandom,
             R"({"clear":true,"updateid":1,"regenerate":null})"},
        Case{"metadata-updateid-range", RunOutcome::Extracted,
             R"({"clear":true,"updateid":2147483648,"regenerate":false})"},
        Case{"metadata-updateid-misread", RunOutcome::Complete,
             R"({"clear":true,"updateid":18446744073709551617,"regenerate":false})"},
        Case{"metadata-updateid-misread", RunOutcome::Complete,
             R"({"clear":true,"updateid":8589934592e10,"regenerate":false})"},
        Case{"metadata-updateid-cut", RunOutcome::Complete,
             R"({"clear":true,"updateid":1000000000,"regenerate":false})"},
        Case{"metadata-updateid-cut", RunOutcome::Complete,
             R"({"clear":true,"updateid":2147483647,"regenerate":false})"},
        Case{"metadata-updateid-cut", RunOutcome::Complete,
             R"({"clear":true,"updateid":-100000000,"regenerate":false})"},
        Case{"metadata-updateid-absent", RunOutcome::Complete,
             R"({"clear":true,"updateid":-1,"regenerate":false})"}));

TEST(Metadata, MissingFileEndsTheRunAtOnce) {
  ScopedDirectory directory;
  const Metadata metadata = ReadMetadata(directory / "metadata.txt");
  ASSERT_EQ(metadata.findings.size(), 1U);
  EXPECT_STREQ(metadata.findings[0].rule->id, "metadata-missing");
  EXPECT_EQ(metadata.outcome, RunOutcome::Nothing);
}

TEST(Metadata, DirectoryInItsPlaceHoldsNoWord) {
  ScopedDirectory directory;
  const Metadata metadata = ReadMetadata(directory / "");
  ASSERT_EQ(metadata.findings.size(), 1U);
  EXPECT_STREQ(metadata.findings[0].rule->id, "metadata-not-object");
}

TEST(Metadata, NestingThatCouldExhaustTheStackIsNotRead) {
  ScopedDirectory directory;
  WriteFile(directory / "metadata.txt", std::string(1000000, '['));
  EXPECT_THROW(ReadMetadata(directory / "metadata.txt"), Error);
}

}  // namespace
