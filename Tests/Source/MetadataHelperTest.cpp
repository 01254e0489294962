#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "BundleProcess.h"
#include "MetadataHelper.h"

namespace {

const char kAll[] = "clear updateid regenerate";
const char kGood[] = R"({"clear":true,"updateid":5,"regenerate":true})";
const char kGoodAnswers[] = "true\n5\ntrue\n";
const char kUnexpected[] = "exception 3 Unexpected Type\n";

class Metadata : public testing::Test {
 protected:
  /// Returns the answers to `queries` with `text` as the metadata file.
  std::string Answers(const std::string& text, const std::string& queries = kAll) const {
    WriteFile(bundle_.MetadataFile(), text);
    return bundle_.Answers(queries);
  }

  /// Returns the update number with `number` as the value of "updateid".
  std::string UpdateId(const std::string& number) const {
    return Answers(R"({"updateid":)" + number + "}", "updateid");
  }

  /// Returns the answer with `value` as the value of "clear".
  std::string Clear(const std::string& value) const {
    return Answers(R"({"clear":)" + value + "}", "clear");
  }

  std::string Regenerate(const std::string& value) const {
    return Answers(R"({"regenerate":)" + value + "}", "regenerate");
  }

  void ExpectLoadFails(const std::string& text) const {
    EXPECT_EQ(Answers(text, "load"), kUnexpected) << text.substr(0, 80);
  }

  ScopedDirectory directory_;
  BundleProcess bundle_{directory_ / "X.app"};
};

// The part of the file that is read -------------------------------------------------------------

TEST_F(Metadata, ObjectAndNewlineAnswersAllQueries) {
  EXPECT_EQ(Answers(std::string(kGood) + "\n"), kGoodAnswers);
}

TEST_F(Metadata, ObjectWithoutNewlineAnswersAllQueries) {
  EXPECT_EQ(Answers(kGood), kGoodAnswers);
}

TEST_F(Metadata, FalseAnswersDifferFromTrueAnswers) {
  EXPECT_EQ(Answers(R"({"clear":false,"updateid":1234,"regenerate":false})"),
            "false\n1234\nfalse\n");
  EXPECT_EQ(Answers(R"({"clear":true,"updateid":0,"regenerate":false})"), "true\n0\nfalse\n");
}

TEST_F(Metadata, WhitespaceAroundTheWordIsHarmless) {
  EXPECT_EQ(Answers(std::string(" \t\r\n\v\f") + kGood + "\f\v\n\r\t "), kGoodAnswers);
}

TEST_F(Metadata, WordsAreCountedAndTheLastOneIsKept) {
  WriteFile(directory_ / "words", " first\tlast \n");
  const auto words = MetadataHelper::ReadWords(directory_ / "words");
  EXPECT_EQ(words.count, 2U);
  EXPECT_EQ(words.last, "last");
}

TEST_F(Metadata, TextEndsAtTheFirstZeroByteOfTheLastWord) {
  const std::string word("a~b\0c\0d", 7);
  WriteFile(directory_ / "words", word);
  const auto words = MetadataHelper::ReadWords(directory_ / "words");
  EXPECT_EQ(words.last, word);
  EXPECT_EQ(words.Text(), "a~b");
}

TEST_F(Metadata, FileWithoutAWordAndADirectoryHaveAnEmptyText) {
  WriteFile(directory_ / "blank", " \n");
  for (const std::string& path : {directory_ / "blank", directory_ / "", directory_ / "missing"}) {
    const auto words = MetadataHelper::ReadWords(path);
    EXPECT_EQ(words.count, 0U) << path;
    EXPECT_EQ(words.Text(), "") << path;
  }
  EXPECT_FALSE(MetadataHelper::ReadWords(directory_ / "blank").isUnreadable);
  EXPECT_TRUE(MetadataHelper::ReadWords(directory_ / "missing").isUnreadable);
}

TEST_F(Metadata, OnlyTheLastWordIsRead) {
  EXPECT_EQ(Answers(std::string("{\"clear\":false}\n") + kGood + "\n"), kGoodAnswers);
  EXPECT_EQ(Answers(std::string("not JSON at all ") + kGood), kGoodAnswers);
}

TEST_F(Metadata, EveryWhitespaceByteSeparatesWords) {
  for (const char byte : {' ', '\t', '\n', '\v', '\f', '\r'}) {
    EXPECT_EQ(Answers("x" + std::string(1, byte) + kGood), kGoodAnswers) << int{byte};
  }
}

TEST_F(Metadata, OtherControlBytesDoNotSeparateWords) {
  for (const char byte : {'\x01', '\x08', '\x1c', '\x1f', '\x7f', '\xa0', '\x85'}) {
    ExpectLoadFails("x" + std::string(1, byte) + kGood);
  }
}

TEST_F(Metadata, NoBreakSpaceIsNotWhitespace) {
  ExpectLoadFails("\xc2\xa0" + std::string(kGood));
}

TEST_F(Metadata, BlankAfterCommasLeavesAString) {
  ExpectLoadFails(R"({"clear":true, "updateid":5, "regenerate":true})");
}

TEST_F(Metadata, BlankAfterColonsLeavesABoolean) {
  ExpectLoadFails(R"({"clear": true, "updateid": 5, "regenerate": true})");
}

TEST_F(Metadata, ObjectOverSeveralLinesIsNotRead) {
  ExpectLoadFails("{\n  \"clear\":true,\n  \"updateid\":5,\n  \"regenerate\":true\n}\n");
}

TEST_F(Metadata, WordEndsAtAZeroByte) {
  EXPECT_EQ(Answers(std::string(kGood) + '\0' + "rest"), kGoodAnswers);
  ExpectLoadFails('\0' + std::string(kGood));
}

TEST_F(Metadata, WordEndingAtAZeroByteKeepsTheMembersBefore) {
  std::string text = R"({"clear":true,"updateid":5,"regenerate":true})";
  text[text.find(",\"regenerate")] = '\0';
  EXPECT_EQ(Answers(text), std::string("true\n5\n") + kUnexpected);
}

TEST_F(Metadata, ZeroByteAfterTheLastWordIsASeparateWord) {
  ExpectLoadFails(std::string(kGood) + "\n" + '\0');
}

TEST_F(Metadata, ByteOrderMarkIsNotSkipped) {
  ExpectLoadFails("\xef\xbb\xbf" + std::string(kGood));
}

/// Returns the valid object in a word of exactly `length` bytes.
std::string WordOfLength(std::size_t length) {
  const std::string start = R"({"note":")";
  const std::string end = R"(",)" + std::string(kGood).substr(1);
  return start + std::string(length - start.length() - end.length(), 'x') + end;
}

TEST_F(Metadata, WordsAroundAThousandBytesAreReadWhole) {
  for (const std::size_t length : {1006U, 1007U, 1008U, 1009U, 2048U}) {
    EXPECT_EQ(Answers(WordOfLength(length)), kGoodAnswers) << length;
  }
}

TEST_F(Metadata, WordOfAMebibyteIsReadWhole) {
  EXPECT_EQ(Answers(WordOfLength(1 << 20)), kGoodAnswers);
}

TEST_F(Metadata, LongWordBeforeTheLastWordIsIgnored) {
  EXPECT_EQ(Answers(std::string(1 << 20, 'x') + "\n" + kGood), kGoodAnswers);
}

// Files that cannot be loaded -------------------------------------------------------------------

TEST_F(Metadata, MissingFileRaises) {
  EXPECT_EQ(bundle_.Answers("load"), kUnexpected);
}

TEST_F(Metadata, MissingResourcesDirectoryRaises) {
  std::filesystem::remove(std::filesystem::path(bundle_.MetadataFile()).parent_path());
  EXPECT_EQ(bundle_.Answers("load"), kUnexpected);
}

TEST_F(Metadata, ResourcesPathThatIsTooLongRaises) {
  std::string deep = directory_ / "deep";
  while (deep.length() < 1024) {
    deep += "/" + std::string(200, 'd');
  }
  SKIP_UNLESS_FILE_SYSTEM_TAKES(deep);
  const BundleProcess bundle(deep);
  WriteFile(bundle.MetadataFile(), kGood);
  EXPECT_EQ(bundle.Answers("load"), kUnexpected);
}

TEST_F(Metadata, DirectoryInTheFilesPlaceRaises) {
  std::filesystem::create_directory(bundle_.MetadataFile());
  EXPECT_EQ(bundle_.Answers("load"), kUnexpected);
}

TEST_F(Metadata, DanglingLinkInTheFilesPlaceRaises) {
  std::filesystem::create_symlink("nowhere", bundle_.MetadataFile());
  EXPECT_EQ(bundle_.Answers("load"), kUnexpected);
}

TEST_F(Metadata, UnreadableFileRaises) {
  WriteFile(bundle_.MetadataFile(), kGood);
  ASSERT_EQ(chmod(bundle_.MetadataFile().c_str(), 0), 0);
  EXPECT_TRUE(AsOrdinaryUser([this] { return bundle_.Answers("load") == kUnexpected; }));
}

TEST_F(Metadata, FileWithoutAWordRaises) {
  ExpectLoadFails("");
  ExpectLoadFails("\n");
  ExpectLoadFails(" \t\r\n\v\f");
}

TEST_F(Metadata, ValuesOtherThanObjectsRaise) {
  for (const char* value : {"true", "false", "null", "1", "1.5", R"("text")", "[]", "[{}]",
                            R"([{"clear":true}])", R"("12^")"}) {
    ExpectLoadFails(value);
  }
}

TEST_F(Metadata, WordsThatAreNotJsonRaise) {
  for (const char* word : {"x", "}", "]", ":", ",", "'", "tru", "nul", "-", ".5", "\"open", "\\"}) {
    ExpectLoadFails(word);
  }
}

TEST_F(Metadata, EmptyObjectLoads) {
  EXPECT_EQ(Answers("{}", "load"), "loaded\n");
}

TEST_F(Metadata, TruncatedObjectKeepsTheMembersReadBefore) {
  EXPECT_EQ(Answers("{", "load clear"), std::string("loaded\n") + kUnexpected);
  EXPECT_EQ(Answers(R"({"clear":true,"updateid":5)"), std::string("true\n5\n") + kUnexpected);
  EXPECT_EQ(Answers(R"({"clear":true,"updateid":5,"rege)"), std::string("true\n5\n") + kUnexpected);
  EXPECT_EQ(Answers(R"({"clear":true,"updateid":)"),
            std::string("true\n") + kUnexpected + kUnexpected);
}

TEST_F(Metadata, ObjectWithoutItsEndAnswersAllQueries) {
  EXPECT_EQ(Answers(R"({"clear":true,"updateid":5,"regenerate":true)"), kGoodAnswers);
}

TEST_F(Metadata, TextAfterTheObjectIsIgnored) {
  EXPECT_EQ(Answers(std::string(kGood) + "}]garbage"), kGoodAnswers);
}

TEST_F(Metadata, FailedConstructionIsTriedAgainOnTheNextCall) {
  WriteFile(directory_ / "good", kGood);
  EXPECT_EQ(Answers("x", "load clear put=" + (directory_ / "good") + " clear updateid"),
            std::string(kUnexpected) + kUnexpected + "true\ntrue\n5\n");
}

// State -----------------------------------------------------------------------------------------

TEST_F(Metadata, FileIsReadOnceOnly) {
  WriteFile(directory_ / "other", R"({"updateid":6})");
  EXPECT_EQ(Answers(kGood, "updateid put=" + (directory_ / "other") + " updateid clear"),
            "5\ntrue\n5\ntrue\n");
}

TEST_F(Metadata, InstanceIsAlwaysTheSame) {
  EXPECT_EQ(Answers(kGood, "same"), "true\n");
}

TEST_F(Metadata, QueriesCanBeRepeated) {
  EXPECT_EQ(Answers(kGood, "updateid updateid clear clear regenerate regenerate updateid"),
            "5\n5\ntrue\ntrue\ntrue\ntrue\n5\n");
}

// Members ---------------------------------------------------------------------------------------

// The default is not false or 0, on purpose. The first query inserts an Undefined member, and the
// second query finds that member with the wrong type.
TEST_F(Metadata, MissingMemberRaisesEveryTime) {
  EXPECT_EQ(Answers("{}", "clear clear updateid updateid regenerate regenerate"),
            std::string(kUnexpected) + kUnexpected + kUnexpected + kUnexpected + kUnexpected +
                kUnexpected);
}

TEST_F(Metadata, FailedQueryLeavesTheOtherMembers) {
  EXPECT_EQ(Answers(R"({"updateid":5,"regenerate":true})"), std::string(kUnexpected) + "5\ntrue\n");
}

TEST_F(Metadata, ExtraMembersAreIgnored) {
  EXPECT_EQ(
      Answers(R"({"a":[1,{}],"clear":true,"Clear":0,"updateid":5,"regenerate":true,"z":"9^"})"),
      kGoodAnswers);
}

TEST_F(Metadata, MemberNamesAreCaseSensitive) {
  EXPECT_EQ(Answers(R"({"Clear":true,"updateId":5,"REGENERATE":true})"),
            std::string(kUnexpected) + kUnexpected + kUnexpected);
}

TEST_F(Metadata, FirstOfDuplicateMembersWins) {
  EXPECT_EQ(UpdateId(R"(1,"updateid":2)"), "1\n");
}

TEST_F(Metadata, MemberNamesMayBeEscaped) {
  EXPECT_EQ(Answers(R"({"\u0063lear":true})", "clear"), "true\n");
}

TEST_F(Metadata, BooleansAreTrueAndFalseOnly) {
  EXPECT_EQ(Clear("true"), "true\n");
  EXPECT_EQ(Clear("false"), "false\n");
  EXPECT_EQ(Regenerate("true"), "true\n");
  EXPECT_EQ(Regenerate("false"), "false\n");
  for (const char* value :
       {"0", "1", "-1", "1.0", R"("true")", R"("1^")", "null", "[]", "{}", ""}) {
    EXPECT_EQ(Clear(value), kUnexpected) << value;
    EXPECT_EQ(Regenerate(value), kUnexpected) << value;
  }
}

TEST_F(Metadata, UpdateIdTakesEverySigned32BitInteger) {
  for (const std::string value : {"0", "1", "-1", "1234", "2147483647", "-2147483648"}) {
    EXPECT_EQ(UpdateId(value), value + "\n");
  }
}

TEST_F(Metadata, UpdateIdRejectsIntegersOutOfRange) {
  for (const char* value : {"2147483648", "-2147483649", "4294967296", "9223372036854775807"}) {
    EXPECT_EQ(UpdateId(value), kUnexpected) << value;
  }
}

TEST_F(Metadata, UpdateIdMayHaveAPositiveExponent) {
  EXPECT_EQ(UpdateId("5e2"), "500\n");
  EXPECT_EQ(UpdateId("5E+2"), "500\n");
  EXPECT_EQ(UpdateId("5e0"), "5\n");
  EXPECT_EQ(UpdateId("5e9"), kUnexpected);
}

// Every integer of the JSON parser wraps.
TEST_F(Metadata, UpdateIdWraps) {
  EXPECT_EQ(UpdateId("1e10"), "-2147483648\n");
  EXPECT_EQ(UpdateId("18446744073709551617"), "1\n");
}

TEST_F(Metadata, UpdateIdRejectsEverythingElse) {
  for (const char* value : {"1.0", "0.0", "500e-2", "5e-0", "7.5", R"("7")", R"("7^")", "true",
                            "false", "null", "[7]", "{}", "", "+7", "07", ".5"}) {
    EXPECT_EQ(UpdateId(value), kUnexpected) << value;
  }
}

}  // namespace
