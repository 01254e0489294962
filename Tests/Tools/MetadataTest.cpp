// Each rule about metadata has a file that triggers only this rule, and the outcome of a run with
// the file.

#include <gtest/gtest.h>

#include <filesystem>

#include "OSUtils.h"
#include "Support.h"
#include "bundle/Metadata.h"
#include "support/Error.h"

using namespace webresources;

namespace {

using RunOutcome = Metadata::RunOutcome;

struct Case {
  const char* rule;  ///< Empty for a file without a finding.
  RunOutcome outcome;
  std::string text;
};

void PrintTo(const Case& tested, std::ostream* stream) {
  *stream << tested.text.substr(0, 100);
}

std::string Said(const std::string& text) {
  const ScopedDirectory directory;
  WriteFile(directory / "metadata.txt", text);
  std::string said;
  for (const Finding& finding : ReadMetadata(directory / "metadata.txt").findings) {
    said += finding.subject + ": " + finding.reason + "\n";
  }
  return said;
}

TEST(Metadata, DirectoryInItsPlaceIsReported) {
  const ScopedDirectory directory;
  std::filesystem::create_directory(directory / "metadata.txt");
  EXPECT_EQ(ReadMetadata(directory / "metadata.txt").findings.at(0).reason, "it is a directory");
}

TEST(Metadata, FindingsNameTheDefectsInTheOrderOfTheMembers) {
  EXPECT_EQ(Said(""), "metadata.txt: it holds no word\n");
  EXPECT_EQ(Said("[1]"),
            "metadata.txt: the installer reads its last word, which is no object: [1]\n");
  EXPECT_EQ(Said("{ }"),
            "metadata.txt: the installer reads its last word, which is no object: }\n");
  EXPECT_EQ(Said("x {}"),
            "metadata.txt: the installer reads only its last word\n"
            "clear: it is missing\nupdateid: it is missing\nregenerate: it is missing\n");
  EXPECT_EQ(Said(std::string("{}\0", 3)).substr(0, 64),
            "metadata.txt: the installer reads its last word up to a zero byt");
  EXPECT_EQ(Said("{"),
            "metadata.txt: it is not standard JSON; the installer reads what it can of it: {\n"
            "clear: it is missing\nupdateid: it is missing\nregenerate: it is missing\n");
  EXPECT_EQ(Said(R"({"clear":1,"clear":2,"updateid":2147483648,"regenerate":0})"),
            "clear: it is there more than once; the installer reads the first one\n"
            "clear: its value has another type\nupdateid: it does not fit 32 bits\n"
            "regenerate: its value has another type\n");
  EXPECT_EQ(Said(R"({"clear":true,"updateid":1000000000,"regenerate":true})"),
            "updateid: the full version will be " + OSUtils::CompleteVersion(1000000000) + "\n");
  EXPECT_EQ(
      Said(R"({"clear":true,"updateid":-1,"regenerate":true})"),
      "updateid: -1 means that no number is recorded: the next run with \"clear\" loses it\n");
  EXPECT_EQ(Said(R"({"clear":true,"updateid":18446744073709551617,"regenerate":true})"),
            "updateid: it is too large: the installer reads it as 1\n");
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

TEST(Metadata, MissingFileEndsTheRunImmediately) {
  ScopedDirectory directory;
  const Metadata metadata = ReadMetadata(directory / "metadata.txt");
  ASSERT_EQ(metadata.findings.size(), 1U);
  EXPECT_STREQ(metadata.findings[0].rule->id, "metadata-missing");
  EXPECT_EQ(metadata.outcome, RunOutcome::Nothing);
}

TEST(Metadata, DirectoryInPlaceOfTheFileHasNoWord) {
  ScopedDirectory directory;
  const Metadata metadata = ReadMetadata(directory / "");
  ASSERT_EQ(metadata.findings.size(), 1U);
  EXPECT_STREQ(metadata.findings[0].rule->id, "metadata-not-object");
}

/// Returns the parts of the error about `text` as metadata; an empty string if there is none.
std::string ErrorAbout(const std::string& text) {
  const ScopedDirectory directory;
  WriteFile(directory / "metadata.txt", text);
  try {
    ReadMetadata(directory / "metadata.txt");
  } catch (const Error& error) {
    return error.operation() + ": " + error.reason() + "; " + error.remedy().value_or("");
  }
  return "";
}

TEST(Metadata, FileAboveItsLimitIsNotRead) {
  EXPECT_EQ(ErrorAbout(std::string(1U << 20U, '\0')), "");
  EXPECT_EQ(ErrorAbout(std::string((1U << 20U) + 1, '\0')),
            "read: it has more than 1 MiB; write metadata.txt, as pack does");
}

TEST(Metadata, NestingThatCouldOverflowTheStackIsNotRead) {
  const std::string many = std::string(500, '[') + std::string(500, '{');
  EXPECT_EQ(ErrorAbout(many), "");
  for (const char* one : {"[", "{"}) {
    EXPECT_EQ(ErrorAbout(many + one), "read: it has more than 1000 arrays and objects; ");
  }
  EXPECT_NE(ErrorAbout(std::string(1000000, '[')), "");
}

}  // namespace
