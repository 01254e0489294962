#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "AllocationProbe.h"
#include "QDOJSONParser.h"
#include "Rendering.h"

namespace {

/// Returns the rendered value of `text`, without the proxy convention.
std::string Plain(const std::string& text) {
  return Text(QDOJSONParser::fromJSON(text, false));
}

/// Returns the rendered value of `text`, with the proxy convention.
std::string Proxied(const std::string& text) {
  return Text(QDOJSONParser::fromJSON(text, true));
}

void Parse(QDOJSONParserImpl& parser, const std::string& text) {
  parser.parse(reinterpret_cast<const unsigned char*>(text.c_str()),
               static_cast<unsigned int>(text.size()));
}

std::string Text(const nlohmann::json& node) {
  switch (node.type()) {
    case nlohmann::json::value_t::object:
      return Bracketed(node.items(), '{', '}', [](const auto& member) {
        return Quoted(member.key()) + ":" + Text(member.value());
      });
    case nlohmann::json::value_t::array:
      return Bracketed(node, '[', ']', [](const nlohmann::json& e) { return Text(e); });
    case nlohmann::json::value_t::string:
      return Quoted(node.get<std::string>());
    case nlohmann::json::value_t::number_float:
      return DoubleText(node.get<double>());
    default:
      return node.dump();  // integers, true, false, null
  }
}

/// Makes documents that every JSON parser reads alike: unique keys that are not empty, fractions
/// that are exact in binary, no code point 0.
class DocumentMaker {
 public:
  explicit DocumentMaker(unsigned int seed) : random_(seed) {}

  /// Returns the text of a document, in one of four forms.
  std::string Next() {
    return Value(4).dump(Pick(2) == 0 ? -1 : 3, Pick(2) == 0 ? ' ' : '\t', Pick(2) == 0);
  }

 private:
  unsigned int Pick(unsigned int count) { return static_cast<unsigned int>(random_() % count); }

  nlohmann::json Value(int depth) {
    const auto integer = static_cast<std::int64_t>(random_() >> Pick(32)) - (1LL << Pick(32));
    const auto scalar = std::vector<nlohmann::json>{nullptr, Pick(2) == 0, integer,
                                                    static_cast<double>(integer) / 16, Text()};
    const unsigned int kind = Pick(depth > 0 ? 8 : 6);
    nlohmann::json value = kind == 6 ? nlohmann::json::array() : nlohmann::json::object();
    for (unsigned int i = kind < 6 ? 0 : Pick(5); i > 0; --i) {
      kind == 6 ? value.push_back(Value(depth - 1))
                : value.push_back({Text() + std::to_string(i), Value(depth - 1)});
    }
    return kind < 6 ? scalar[kind % 5] : value;
  }

  std::string Text() {
    constexpr const char* kPieces[] = {"a", "Z9",   "\n", "\"",       "\\",    "\t",
                                       "^", "\x7F", "\1", "\xC3\xA9", " , ] ", "\xE2\x82\xAC"};
    std::string text;
    for (unsigned int count = Pick(6); count > 0; --count) {
      text += kPieces[Pick(12)];
    }
    return text;
  }

  std::mt19937 random_;
};

}  // namespace

static_assert(!std::is_default_constructible_v<QDOJSONParser>);

TEST(QDOJSONParserTest, EachKindOfNodeHasItsKindOfValue) {
  EXPECT_EQ(Plain(R"("text")"), R"("text")");
  EXPECT_EQ(Plain("0.5"), "0.5d");
  EXPECT_EQ(Plain("-7"), "-7");
  EXPECT_EQ(Plain("{}"), "{}");
  EXPECT_EQ(Plain("[]"), "[]");
  EXPECT_EQ(Plain("true"), "true");
  EXPECT_EQ(Plain("false"), "false");
  EXPECT_EQ(Plain("null"), "null");
}

TEST(QDOJSONParserTest, UnknownNodeTypeGivesUndefined) {
  const auto node = std::make_shared<QDOJSONValue>();
  for (const std::uint32_t type : {7U, 8U, 4294967295U}) {
    node->type = static_cast<QDOJSONValue::Type>(type);
    EXPECT_EQ(Text(getJSONValueinQDOObject(node, true)), "undefined") << type;
  }
}

TEST(QDOJSONParserTest, AnyBooleanPayloadButZeroIsTrue) {
  const auto node = std::make_shared<QDOJSONValue>();
  QDOJSONTree::becomeBoolean(*node, true);
  node->booleanValue = 256;
  EXPECT_EQ(Text(getJSONValueinQDOObject(node, false)), "true");
}

TEST(QDOJSONParserTest, TextWithoutAValueGivesUndefined) {
  EXPECT_EQ(Plain(""), "undefined");
  EXPECT_EQ(Plain("x"), "undefined");
  EXPECT_EQ(Plain(" \t\n"), "undefined");
  EXPECT_EQ(Plain("}"), "undefined");
}

TEST(QDOJSONParserTest, MetadataBecomesAMap) {
  EXPECT_EQ(Proxied(R"({"clear":1,"updateid":"7"})"), R"({"clear":1,"updateid":"7"})");
  EXPECT_EQ(Proxied(R"({"clear":true,"updateid":7,"regenerate":false})"),
            R"({"clear":true,"regenerate":false,"updateid":7})");
}

TEST(QDOJSONParserTest, IntegersAlwaysBecomeInt64) {
  EXPECT_EQ(QDOJSONParser::fromJSON("1", false).getType(), QDOObject::Int64);
  EXPECT_EQ(Plain("1e2"), "100");
  EXPECT_EQ(Plain("9223372036854775808"), "-9223372036854775808");
}

TEST(QDOJSONParserTest, UnsetNodesBecomeUndefined) {
  EXPECT_EQ(Plain("[1,]"), "[1,undefined]");
  EXPECT_EQ(Plain("[,]"), "[undefined,undefined]");
  EXPECT_EQ(Plain(R"({"a":})"), R"({"a":undefined})");
}

TEST(QDOJSONParserTest, SyntaxErrorsAreNotReportedAndPartialTreesAreConverted) {
  EXPECT_EQ(Plain("[1,2"), "[1,2]");
  EXPECT_EQ(Plain("tru"), "true");
  EXPECT_EQ(Plain("fals"), "false");
  EXPECT_EQ(Plain("nul"), "null");
  EXPECT_EQ(Plain(".5"), "0");
  EXPECT_EQ(Plain("1."), "0d");
  EXPECT_EQ(Plain("01"), "0");
  EXPECT_EQ(Plain(R"("ab\ncd)"), R"("ab\x0A")");
  EXPECT_EQ(Plain(R"({"a":1,"b")"), R"({"a":1})");
  EXPECT_EQ(Plain(R"({"a":1,})"), R"({"a":1})");
}

TEST(QDOJSONParserTest, OfAKeyHeldTwiceTheLastInTreeOrderCounts) {
  EXPECT_EQ(Plain(R"({"a":1,"":2,"b":3,"A":4,"B":5,"":6})"), R"({"":2,"A":4,"B":5,"a":1,"b":3})");
}

TEST(QDOJSONParserTest, KeysWhoseLengthsDifferBy65536AreOneMember) {
  const std::string longKey(65537, 'k');
  EXPECT_EQ(Plain(R"({"k":1,")" + longKey + R"(":2})"), R"({"k":1})");
  EXPECT_EQ(Plain(R"([{"k":1,")" + longKey + R"(":2},{"a":3}])"), R"([{"k":1},{"a":3}])");
  EXPECT_EQ(Plain(R"({"a":1,")" + longKey + R"(":2,)"), R"({"a":1,")" + longKey + R"(":2})");
}

// The proxy convention.

TEST(QDOJSONParserTest, StringEndingInOneCaretIsAProxyIdentifier) {
  EXPECT_EQ(Proxied(R"("12^")"), "#12");
  EXPECT_EQ(Proxied(R"("0^")"), "#0");
  EXPECT_EQ(Proxied(R"("4294967295^")"), "#4294967295");
}

TEST(QDOJSONParserTest, ProxyIdentifierIsReadFromTheLeadingDigits) {
  EXPECT_EQ(Proxied(R"("ab^")"), "#0");
  EXPECT_EQ(Proxied(R"("12ab^")"), "#12");
  EXPECT_EQ(Proxied(R"("-1^")"), "#0");
  EXPECT_EQ(Proxied(R"("1^2^")"), "#1");
}

TEST(QDOJSONParserTest, ProxyIdentifierThatDoesNotFit32BitsIsZero) {
  EXPECT_EQ(Proxied(R"("4294967296^")"), "#0");
  EXPECT_EQ(Proxied(R"("18446744073709551615^")"), "#0");  // wraps to -1
  EXPECT_EQ(Proxied(R"("18446744073709551621^")"), "#5");  // wraps to 5
}

TEST(QDOJSONParserTest, StringEndingInTwoCaretsLosesOne) {
  EXPECT_EQ(Proxied(R"("a^^")"), R"("a^")");
  EXPECT_EQ(Proxied(R"("^^")"), R"("^")");
  EXPECT_EQ(Proxied(R"("12^^")"), R"("12^")");
  EXPECT_EQ(Proxied(R"("^^^")"), R"("^^")");
}

TEST(QDOJSONParserTest, OtherStringsStayAsTheyAre) {
  EXPECT_EQ(Proxied(R"("^")"), R"("^")");
  EXPECT_EQ(Proxied(R"("")"), R"("")");
  EXPECT_EQ(Proxied(R"("1^2")"), R"("1^2")");
  EXPECT_EQ(Proxied(R"("7")"), R"("7")");
}

TEST(QDOJSONParserTest, EscapedCaretCountsLikeARawOne) {
  EXPECT_EQ(Proxied(R"("12\u005e")"), "#12");
}

TEST(QDOJSONParserTest, TruncatedStringFollowsTheConventionToo) {
  EXPECT_EQ(Proxied(R"("12^\q)"), "#12");
}

TEST(QDOJSONParserTest, WithoutTheConventionEveryStringStaysAsItIs) {
  EXPECT_EQ(Plain(R"("12^")"), R"("12^")");
  EXPECT_EQ(Plain(R"("a^^")"), R"("a^^")");
}

TEST(QDOJSONParserTest, ConventionHoldsAtEveryLevelButNotForKeys) {
  const std::string text = R"({"1^":["2^",{"k":"3^"}]})";
  EXPECT_EQ(Proxied(text), R"({"1^":[#2,{"k":#3}]})");
  EXPECT_EQ(Plain(text), text);
}

// The implementation object.

TEST(QDOJSONParserTest, NothingParsedGivesUndefined) {
  QDOJSONParserImpl parser;
  EXPECT_EQ(Text(parser.getQDOObject(true)), "undefined");
  parser.reset();
  EXPECT_EQ(Text(parser.getQDOObject(true)), "undefined");
}

TEST(QDOJSONParserTest, ParseReplacesTheEarlierTree) {
  QDOJSONParserImpl parser;
  Parse(parser, "[1]");
  Parse(parser, "[2]");
  EXPECT_EQ(Text(parser.getQDOObject(false)), "[2]");
}

TEST(QDOJSONParserTest, ResetAndDestructionFreeTheTree) {
  const long before = AllocationProbe::live();
  {
    QDOJSONParserImpl parser;
    Parse(parser, R"([{"k":"a string of more than a few bytes"}])");
    EXPECT_GT(AllocationProbe::live(), before);
    parser.reset();
    EXPECT_EQ(AllocationProbe::live(), before);
    EXPECT_EQ(Text(parser.getQDOObject(false)), "undefined");
    Parse(parser, R"([{"k":[]}])");
  }
  EXPECT_EQ(AllocationProbe::live(), before);
}

TEST(QDOJSONParserTest, ValueSharesNothingWithTheTree) {
  QDOJSONParserImpl parser;
  Parse(parser, R"({"k":["v"]})");
  QDOObject first = parser.getQDOObject(false);
  QDOObject second = parser.getQDOObject(false);
  first["k"].getVector().clear();
  EXPECT_EQ(Text(first), R"({"k":[]})");
  EXPECT_EQ(Text(second), R"({"k":["v"]})");
  parser.reset();
  EXPECT_EQ(Text(second), R"({"k":["v"]})");
}

TEST(QDOJSONParserTest, TreeIsLeftAsItIsByItsConversion) {
  const std::string text = R"({"k":["v",{"n":[1,"w"]}]})";
  const auto root = QDOJSONParserImplHelper(reinterpret_cast<const unsigned char*>(text.c_str()),
                                            static_cast<unsigned int>(text.size()))
                        .getRoot();
  const std::string before = Text(*root);
  EXPECT_EQ(Text(getJSONValueinQDOObject(root, false)), text);
  EXPECT_EQ(Text(*root), before);
}

TEST(QDOJSONParserTest, ZeroByteEndsTheTextOfANode) {
  const auto node = std::make_shared<QDOJSONValue>();
  QDOJSONTree::becomeString(*node, UTF8String("ab").append('\0').append("c"));
  EXPECT_EQ(Text(getJSONValueinQDOObject(node, false)), R"("ab")");
}

TEST(QDOJSONParserTest, ConversionTakesTheCaretOutOfTheTree) {
  QDOJSONParserImpl parser;
  Parse(parser, R"("12^")");
  EXPECT_EQ(Text(parser.getQDOObject(true)), "#12");
  EXPECT_EQ(Text(parser.getQDOObject(true)), R"("12")");
}

TEST(QDOJSONParserTest, CallsAreIndependent) {
  const std::string text = R"({"a":[1,2.5,"x^",null,{"b":false}],"c":"9^"})";
  EXPECT_EQ(Proxied(text), Proxied(text));
  EXPECT_EQ(Plain(text), Plain(text));
  EXPECT_NE(Plain(text), Proxied(text));
}

TEST(QDOJSONParserTest, EveryFailedAllocationIsReportedAndLeaksNothing) {
  const std::string text = R"({"a key beyond the small ones":[1,"12^","text"],"m":{"n":[{}]}})";
  const long before = AllocationProbe::live();
  bool sawCode1 = false;
  bool sawBadAlloc = false;
  Outcome outcome = Outcome::BadAlloc;
  for (long nth = 1; outcome != Outcome::Done; ++nth) {
    const long already = AllocationProbe::made();
    outcome = AttemptFailingNth(nth, [&] { QDOJSONParser::fromJSON(text, true); });
    sawCode1 = sawCode1 || outcome == Outcome::NotEnoughMemory;
    sawBadAlloc = sawBadAlloc || outcome == Outcome::BadAlloc;
    EXPECT_EQ(AllocationProbe::live(), before) << nth;
    if (outcome == Outcome::Done) {
      EXPECT_LT(AllocationProbe::made() - already, nth) << "a failure was swallowed";
    }
  }
  EXPECT_TRUE(sawCode1);     // from the making of a string or a container
  EXPECT_TRUE(sawBadAlloc);  // from other code
}

TEST(QDOJSONParserTest, EveryFailedAllocationOfATextsConversionIsCode1) {
  const auto node = std::make_shared<QDOJSONValue>();
  QDOJSONTree::becomeString(*node, "a text longer than the small ones");
  const auto convert = [&] { getJSONValueinQDOObject(node, false); };
  for (const long nth : {1, 2, 3}) {
    EXPECT_EQ(AttemptFailingNth(nth, convert), Outcome::NotEnoughMemory) << nth;
  }
  EXPECT_EQ(AttemptFailingNth(4, convert), Outcome::Done);
}

TEST(QDOJSONParserTest, EachValueOfATextHasOneHolderAndOneElement) {
  const auto allocations = [](const std::string& text) {
    const long before = AllocationProbe::made();
    QDOJSONParser::fromJSON(text, false);
    return AllocationProbe::made() - before;
  };
  EXPECT_EQ(allocations("7"), 0);
  EXPECT_EQ(allocations(R"("text")"), 2);
  EXPECT_EQ(allocations("{}"), 2);
  EXPECT_EQ(allocations("[]"), 2);
  EXPECT_EQ(allocations(R"({"a":1,"b":2.5})"), 2 + 2);
  EXPECT_EQ(allocations(R"([1,"a","b",{}])"), 2 + 2 + 2 + 2 + 2);  // the vector grows to 2 and to 4
}

TEST(QDOJSONParserTest, ArraysGrowAsByPushBackInEitherConversion) {
  std::vector<QDOObject> grown;
  std::string elements;
  for (int i = 0; i < 9; ++i) {
    const std::string text = "[" + elements + "]";
    QDOJSONParserImpl parser;
    Parse(parser, text);
    EXPECT_EQ(parser.getQDOObject(false).getVector().capacity(), grown.capacity()) << text;
    EXPECT_EQ(QDOJSONParser::fromJSON(text, false).getVector().capacity(), grown.capacity())
        << text;
    grown.emplace_back();
    elements += elements.empty() ? "7" : ",7";
  }
}

TEST(QDOJSONParserTest, PlainDocumentsGiveTheSameValuesAsAnotherParser) {
  DocumentMaker maker(20171130);
  for (int i = 0; i < 3000; ++i) {
    const std::string text = maker.Next();
    ASSERT_EQ(Plain(text), Text(nlohmann::json::parse(text))) << text;
  }
}
