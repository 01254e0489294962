#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "AllocationProbe.h"
#include "JSONParser.h"
#include "Rendering.h"

namespace {

using namespace std::string_view_literals;

/// Returns a heap block with only the text and its zero byte, so that a sanitizer detects a read
/// behind them.
std::unique_ptr<unsigned char[]> ExactCopy(std::string_view text) {
  auto bytes = std::make_unique<unsigned char[]>(text.size() + 1);
  std::memcpy(bytes.get(), text.data(), text.size());
  return bytes;
}

/// Returns the result and the tree of the first `length` bytes, for example "fail [1,2]".
std::string Scan(std::string_view text, std::size_t length) {
  const auto bytes = ExactCopy(text);
  const QDOJSONParserImplHelper scanner(bytes.get(), static_cast<unsigned int>(length));
  return (scanner.succeeded() ? "ok " : "fail ") + Text(*scanner.getRoot());
}

std::string Scan(std::string_view text) {
  return Scan(text, text.size());
}

/// Returns the output of Scan() for a double without an error.
std::string Ok(double value) {
  return "ok " + DoubleText(value);
}

/// Makes the scanner's operations public. Requires: no value starts with the first byte of the
/// text. The constructor of the scanner then leaves the position at the first byte.
class Stepper : public QDOJSONParserImplHelper {
 public:
  explicit Stepper(std::string_view text) : Stepper(ExactCopy(text), text.size()) {}

  using QDOJSONParserImplHelper::advance;
  using QDOJSONParserImplHelper::appendBackSlashTrailingChar;
  using QDOJSONParserImplHelper::remaining;
  using QDOJSONParserImplHelper::scanRestOfFalse;
  using QDOJSONParserImplHelper::scanRestOfNull;
  using QDOJSONParserImplHelper::scanRestOfTrue;

 private:
  Stepper(std::unique_ptr<unsigned char[]> bytes, std::size_t size)
      : QDOJSONParserImplHelper(bytes.get(), static_cast<unsigned int>(size)),
        bytes_(std::move(bytes)) {}

  std::unique_ptr<unsigned char[]> bytes_;
};

/// Makes the end position of a scanner public.
class Scanned : public QDOJSONParserImplHelper {
 public:
  using QDOJSONParserImplHelper::QDOJSONParserImplHelper;
  using QDOJSONParserImplHelper::remaining;
};

/// Returns the distance that advance() moves at the start of `text`, or -1 if advance() fails.
int Advance(std::string_view text) {
  Stepper stepper(text);
  const bool moved = stepper.advance();
  const auto distance = static_cast<int>(text.size() - stepper.remaining());
  EXPECT_EQ(moved, distance != 0);
  return moved ? distance : -1;
}

/// Returns the distance that `scan` moves at the start of `text`, or -1 if `scan` fails. Expects
/// that a failure moves nothing.
int Literal(bool (Stepper::*scan)(), std::string_view text) {
  Stepper stepper(text);
  const bool scanned = (stepper.*scan)();
  const auto distance = static_cast<int>(text.size() - stepper.remaining());
  EXPECT_TRUE(scanned || distance == 0) << text;
  return scanned ? distance : -1;
}

}  // namespace

// The root.

TEST(JSONParserTest, TextWithoutAValueLeavesTheRootUnsetAndSucceeds) {
  EXPECT_EQ(Scan(""), "ok unset");
  EXPECT_EQ(Scan("   "), "ok unset");
  EXPECT_EQ(Scan("\t\n\v\f\r "), "ok unset");
  EXPECT_EQ(Scan("x"), "ok unset");
  EXPECT_EQ(Scan(" ]"), "ok unset");
}

TEST(JSONParserTest, OnlyEighteenBytesStartAValue) {
  for (int byte = 0; byte < 256; ++byte) {
    const char text = static_cast<char>(byte);
    const bool starts = byte != 0 && std::strchr("\"-.0123456789[{tfn", byte) != nullptr;
    EXPECT_EQ(Scan({&text, 1}) != "ok unset", starts) << byte;
  }
}

TEST(JSONParserTest, TextAfterTheRootIsIgnored) {
  EXPECT_EQ(Scan("1 2"), "ok 1");
  EXPECT_EQ(Scan("{} x"), "ok {}");
  EXPECT_EQ(Scan("[]]"), "ok []");
  EXPECT_EQ(Scan("\"a\"b\""), "ok \"a\"");
  EXPECT_EQ(Scan("1x"), "ok 1");
  EXPECT_EQ(Scan("1.5.5"), "ok 1.5d");
  EXPECT_EQ(Scan("0x10"), "ok 0");
}

// Only a text of 4 GiB or more, whose length is truncated, has a byte other than zero after its
// end.
TEST(JSONParserTest, NoTokenIsTakenBehindTheLength) {
  EXPECT_EQ(Scan("1", 0), "ok unset");
  EXPECT_EQ(Scan("  true", 1), "fail true");
  EXPECT_EQ(Scan("12", 1), "ok 1");
  EXPECT_EQ(Scan("[1]", 1), "fail []");
  EXPECT_EQ(Scan("[1]", 2), "fail [1]");
  EXPECT_EQ(Scan(R"({"a":1})", 1), "fail {}");
  EXPECT_EQ(Scan(R"({"a":1})", 6), R"(fail {"a":1})");
}

TEST(JSONParserTest, NodeIsCreatedUnsetWithAZeroPayload) {
  const QDOJSONValue node{};
  EXPECT_EQ(node.type, QDOJSONValue::Unset);
  EXPECT_EQ(node.integerValue, 0);
  EXPECT_EQ(node.type, 7U);
}

TEST(JSONParserTest, TreeOutlivesTheScannerAndTheText) {
  std::shared_ptr<QDOJSONValue> root;
  {
    const auto bytes = ExactCopy(R"(["text",{"k":[1]}])");
    root = QDOJSONParserImplHelper(bytes.get(), 18).getRoot();
  }
  EXPECT_EQ(Text(*root), R"(["text",{"k":[1]}])");
}

TEST(JSONParserTest, TreeIsFreedWithItsLastOwner) {
  const long before = AllocationProbe::live();
  for (const auto* text : {R"({"a":[1,"s",{"b":[]}],"a":["dropped"]})", R"(["cut",{"k":"v)"}) {
    Scan(text);
    EXPECT_EQ(AllocationProbe::live(), before) << text;
  }
}

TEST(JSONParserTest, ChildOutlivesItsParent) {
  std::shared_ptr<QDOJSONValue> child;
  {
    const auto bytes = ExactCopy("[[1]]");
    const QDOJSONParserImplHelper scanner(bytes.get(), 5);
    child = scanner.getRoot()->arrayValue->front();
  }
  EXPECT_EQ(Text(*child), "[1]");
}

// Whitespace and stepping.

TEST(JSONParserTest, SixBytesAreWhitespaceVerticalTabAndFormFeedAmongThem) {
  for (int byte = 0; byte < 256; ++byte) {
    const bool whitespace = byte == ' ' || (byte >= 9 && byte <= 13);
    const char text[] = {static_cast<char>(byte), '[', ']'};
    if (std::strchr("\"-.0123456789[{tfn", byte) == nullptr || byte == 0) {
      EXPECT_EQ(Scan({text, 3}), whitespace ? "ok []" : "ok unset") << byte;
    }
  }
}

TEST(JSONParserTest, WhitespaceBeyondAsciiIsNotWhitespace) {
  EXPECT_EQ(Scan("\xC2\xA0{}"), "ok unset");      // no-break space
  EXPECT_EQ(Scan("\xEF\xBB\xBF{}"), "ok unset");  // byte order mark
  EXPECT_EQ(Scan("\xE2\x80\xA8{}"), "ok unset");  // line separator
}

TEST(JSONParserTest, WhitespaceMayStandBetweenAllTokens) {
  EXPECT_EQ(Scan(" { \"a\" : [ 1 , 2 ] , \"b\" : { } } "), R"(ok {"a":[1,2],"b":{}})");
  EXPECT_EQ(Scan("\f[\v]\n"), "ok []");
}

TEST(JSONParserTest, AdvanceStepsOverOneCharacter) {
  EXPECT_EQ(Advance("xy"), 1);
  EXPECT_EQ(Advance("\x7Fy"), 1);
  EXPECT_EQ(Advance("\xC3\xA9y"), 2);
  EXPECT_EQ(Advance("\xE2\x82\xACy"), 3);
  EXPECT_EQ(Advance("\xF0\x9F\x98\x80y"), 4);
}

TEST(JSONParserTest, AdvanceJudgesLeadAndContinuationBitsOnly) {
  EXPECT_EQ(Advance("\xC0\x80"), 2);          // an overlong encoding
  EXPECT_EQ(Advance("\xED\xA0\xBD"), 3);      // a surrogate
  EXPECT_EQ(Advance("\xF7\xBF\xBF\xBF"), 4);  // beyond the last code point
}

TEST(JSONParserTest, AdvanceStaysWhereNoCharacterIs) {
  EXPECT_EQ(Advance("\x80y"), -1);
  EXPECT_EQ(Advance("\xBFy"), -1);
  EXPECT_EQ(Advance("\xC3y"), -1);
  EXPECT_EQ(Advance("\xC3\xC3"), -1);
  EXPECT_EQ(Advance("\xE2y\xAC"), -1);
  EXPECT_EQ(Advance("\xE2\x82y"), -1);
  EXPECT_EQ(Advance("\xF0y\x98\x80"), -1);
  EXPECT_EQ(Advance("\xF0\x9Fy\x80"), -1);
  EXPECT_EQ(Advance("\xF0\x9F\x98y"), -1);
  EXPECT_EQ(Advance("\xF8\x80\x80\x80\x80"), -1);
  EXPECT_EQ(Advance("\xFF\x80\x80\x80"), -1);
}

TEST(JSONParserTest, AdvanceStaysBeforeATruncatedCharacter) {
  EXPECT_EQ(Advance("\xC3"), -1);
  EXPECT_EQ(Advance("\xE2\x82"), -1);
  EXPECT_EQ(Advance("\xF0\x9F\x98"), -1);
}

// Literals.

TEST(JSONParserTest, LiteralsAsTheLastBytesOfTheTextParse) {
  EXPECT_EQ(Scan("true"), "ok true");
  EXPECT_EQ(Scan("false"), "ok false");
  EXPECT_EQ(Scan("null"), "ok null");
}

TEST(JSONParserTest, TruncatedLiteralFailsWithTheTypeAlreadySet) {
  EXPECT_EQ(Scan("t"), "fail true");
  EXPECT_EQ(Scan("tru"), "fail true");
  EXPECT_EQ(Scan("f"), "fail false");
  EXPECT_EQ(Scan("fals"), "fail false");
  EXPECT_EQ(Scan("n"), "fail null");
  EXPECT_EQ(Scan("nul"), "fail null");
}

TEST(JSONParserTest, MisspeltLiteralFailsWithTheTypeAlreadySet) {
  EXPECT_EQ(Scan("trUe"), "fail true");
  EXPECT_EQ(Scan("falsy"), "fail false");
  EXPECT_EQ(Scan("nil!"), "fail null");
  EXPECT_EQ(Scan("True"), "ok unset");
}

TEST(JSONParserTest, TextAfterALiteralIsIgnored) {
  EXPECT_EQ(Scan("nullx"), "ok null");
  EXPECT_EQ(Scan("truetrue"), "ok true");
  EXPECT_EQ(Scan("[nullx]"), "fail [null]");
}

TEST(JSONParserTest, LiteralStepMovesPastTheWordOrNotAtAll) {
  EXPECT_EQ(Literal(&Stepper::scanRestOfNull, "xull,"), 4);
  EXPECT_EQ(Literal(&Stepper::scanRestOfTrue, "xrue"), 4);
  EXPECT_EQ(Literal(&Stepper::scanRestOfFalse, "xalse"), 5);
  EXPECT_EQ(Literal(&Stepper::scanRestOfNull, "xul"), -1);
  EXPECT_EQ(Literal(&Stepper::scanRestOfTrue, "xruE"), -1);
  EXPECT_EQ(Literal(&Stepper::scanRestOfFalse, "xals"), -1);
  EXPECT_EQ(Literal(&Stepper::scanRestOfFalse, "x"), -1);
}

// Strings.

TEST(JSONParserTest, StringHoldsItsBytes) {
  EXPECT_EQ(Scan(R"("")"), R"(ok "")");
  EXPECT_EQ(Scan(R"("abc")"), R"(ok "abc")");
  EXPECT_EQ(Scan(R"(" a [,] ")"), R"(ok " a [,] ")");
}

TEST(JSONParserTest, OneByteEscapesAreDecoded) {
  EXPECT_EQ(Scan(R"("\"\\\/\b\f\n\r\t")"), R"(ok "\x22\x5C/\x08\x0C\x0A\x0D\x09")");
  EXPECT_EQ(Scan(R"("a\nb\tc")"), R"(ok "a\x0Ab\x09c")");
  EXPECT_EQ(Scan(R"("\/x")"), R"(ok "/x")");
}

TEST(JSONParserTest, EveryOtherEscapeFails) {
  for (int byte = 0; byte < 256; ++byte) {
    const char text[] = {'"', '\\', static_cast<char>(byte), '0', '0', '4', '1', '"'};
    const bool known = byte != 0 && std::strchr("\"\\/bfnrtu", byte) != nullptr;
    EXPECT_EQ(Scan({text, sizeof text}).substr(0, 2) == "ok", known) << byte;
  }
  EXPECT_EQ(Scan(R"("\x")"), R"(fail "")");
  EXPECT_EQ(Scan(R"("\U0041")"), R"(fail "")");
}

TEST(JSONParserTest, UnicodeEscapeBecomesUtf8) {
  EXPECT_EQ(Scan(R"("a\u00e9b")"), R"(ok "a\xC3\xA9b")");
  EXPECT_EQ(Scan(R"("\u0041\u007F")"), R"(ok "A\x7F")");
  EXPECT_EQ(Scan(R"("\u0080\u07ff")"), R"(ok "\xC2\x80\xDF\xBF")");
  EXPECT_EQ(Scan(R"("\u0800\uFFFF")"), R"(ok "\xE0\xA0\x80\xEF\xBF\xBF")");
  EXPECT_EQ(Scan(R"("\uabCD\u20AC1")"), R"(ok "\xEA\xAF\x8D\xE2\x82\xAC1")");
}

TEST(JSONParserTest, SurrogatesAreEncodedOneByOne) {
  EXPECT_EQ(Scan(R"("\ud83d\ude00")"), R"(ok "\xED\xA0\xBD\xED\xB8\x80")");
  EXPECT_EQ(Scan(R"("\ude00")"), R"(ok "\xED\xB8\x80")");
}

TEST(JSONParserTest, EscapeForCodePointZeroVanishes) {
  EXPECT_EQ(Scan(R"("x\u0000y")"), R"(ok "xy")");
  EXPECT_EQ(Scan(R"("\u0000")"), R"(ok "")");
}

TEST(JSONParserTest, UnicodeEscapeNeedsFourHexadecimalDigits) {
  EXPECT_EQ(Scan(R"("\u")"), R"(fail "")");
  EXPECT_EQ(Scan(R"("\u00e")"), R"(fail "")");
  EXPECT_EQ(Scan(R"("ab\u00g0cd")"), R"(fail "ab")");
  EXPECT_EQ(Scan("\"\\u00\xB1\x31\""), R"(fail "")");
  EXPECT_EQ(Scan("\"\\u00\xC3\xA9\""), R"(fail "")");
  EXPECT_EQ(Scan("\"\\u00"), R"(fail "")");
}

TEST(JSONParserTest, OnlyThe22HexadecimalDigitsAreAccepted) {
  for (int byte = 1; byte < 256; ++byte) {
    const char text[] = {'"', '\\', 'u', '0', '0', '4', static_cast<char>(byte), '"'};
    const bool digit = std::strchr("0123456789abcdefABCDEF", byte) != nullptr;
    EXPECT_EQ(Scan({text, sizeof text}).substr(0, 2) == "ok", digit) << byte;
  }
}

TEST(JSONParserTest, UnicodeEscapeAtTheVeryEndIsReadBeforeTheStringFails) {
  EXPECT_EQ(Scan(R"("\u0041)"), R"(fail "A")");
}

TEST(JSONParserTest, FailedUnicodeEscapeLeavesThePositionPastTheU) {
  Stepper stepper("u00g0");
  UTF8String text;
  EXPECT_FALSE(stepper.appendBackSlashTrailingChar(&text));
  EXPECT_EQ(stepper.remaining(), 4U);
  EXPECT_EQ(text.length(), 0U);
}

TEST(JSONParserTest, RawControlCharacterFailsTheString) {
  for (int byte = 0; byte < 0x20; ++byte) {
    const char text[] = {'"', 'a', static_cast<char>(byte), '"'};
    EXPECT_EQ(Scan({text, sizeof text}), R"(fail "")") << byte;
  }
}

TEST(JSONParserTest, DeleteAndBytesBeyondAsciiAreKeptAsTheyAre) {
  EXPECT_EQ(Scan("\"\x7F\""), R"(ok "\x7F")");
  EXPECT_EQ(Scan("\"\xFF\""), R"(ok "\xFF")");
  EXPECT_EQ(Scan("\"\xC3\xA9\x80\xC3\""), R"(ok "\xC3\xA9\x80\xC3")");
}

TEST(JSONParserTest, FailedStringKeepsTheBytesAppendedBefore) {
  EXPECT_EQ(Scan(R"("abc)"), R"(fail "")");  // the bytes before the end were not appended
  EXPECT_EQ(Scan(R"("abc\nde)"), R"(fail "abc\x0A")");
  EXPECT_EQ(Scan(R"("abc\)"), R"(fail "abc")");
  EXPECT_EQ(Scan(R"("abc\q")"), R"(fail "abc")");
  EXPECT_EQ(Scan("\""), R"(fail "")");
}

TEST(JSONParserTest, QuoteAtTheEndMayBeEscaped) {
  EXPECT_EQ(Scan(R"("a\")"), R"(fail "a\x22")");
  EXPECT_EQ(Scan(R"("a\\")"), R"(ok "a\x5C")");
}

// Numbers.

TEST(JSONParserTest, IntegersAreIntegers) {
  EXPECT_EQ(Scan("0"), "ok 0");
  EXPECT_EQ(Scan("-0"), "ok 0");
  EXPECT_EQ(Scan("7"), "ok 7");
  EXPECT_EQ(Scan("-1234567890"), "ok -1234567890");
  EXPECT_EQ(Scan("9223372036854775807"), "ok 9223372036854775807");
}

TEST(JSONParserTest, LeadingZerosFail) {
  EXPECT_EQ(Scan("01"), "fail 0");
  EXPECT_EQ(Scan("-01"), "fail 0");
  EXPECT_EQ(Scan("00"), "fail 0");
  EXPECT_EQ(Scan("01.5"), "fail 0");
}

TEST(JSONParserTest, NumberNeedsADigitBeforeAPoint) {
  EXPECT_EQ(Scan(".5"), "fail 0");
  EXPECT_EQ(Scan("-.5"), "fail 0");
  EXPECT_EQ(Scan("."), "fail 0");
  EXPECT_EQ(Scan("-"), "fail 0");
  EXPECT_EQ(Scan("-x"), "fail 0");
  EXPECT_EQ(Scan("--1"), "fail 0");
}

TEST(JSONParserTest, NumberWithoutADigitAfterThePointFailsAsADouble) {
  EXPECT_EQ(Scan("1."), "fail 0d");
  EXPECT_EQ(Scan("1.e5"), "fail 0d");
  EXPECT_EQ(Scan("1.-5"), "fail 0d");
}

TEST(JSONParserTest, ExponentNeedsADigit) {
  EXPECT_EQ(Scan("1e"), "fail 0");
  EXPECT_EQ(Scan("1e+"), "fail 0");
  EXPECT_EQ(Scan("1E-"), "fail 0");
  EXPECT_EQ(Scan("1e+-2"), "fail 0");
  EXPECT_EQ(Scan("1e.5"), "fail 0");
  EXPECT_EQ(Scan("1.5ex"), "fail 0d");
}

TEST(JSONParserTest, FractionsAreDoubles) {
  EXPECT_EQ(Scan("0.5"), "ok 0.5d");
  EXPECT_EQ(Scan("-1.25"), "ok -1.25d");
  EXPECT_EQ(Scan("1.0"), "ok 1d");
  EXPECT_EQ(Scan("0.123456789"), Ok(123456789.0 / 1000000000.0));
  EXPECT_EQ(Scan("3.05"), Ok(3.0 + 5.0 / 100.0));
}

TEST(JSONParserTest, MinusZeroWithAFractionIsNegativeZero) {
  EXPECT_EQ(Scan("-0.0"), "ok -0d");
  EXPECT_EQ(Scan("0.0"), "ok 0d");
}

TEST(JSONParserTest, MinusZeroWithANegativeExponentIsPositiveZero) {
  EXPECT_EQ(Scan("-0e-1"), "ok 0d");  // the negation is an integer operation
}

TEST(JSONParserTest, IntegerWithAPositiveExponentStaysAnInteger) {
  EXPECT_EQ(Scan("1e2"), "ok 100");
  EXPECT_EQ(Scan("1E3"), "ok 1000");
  EXPECT_EQ(Scan("1e+3"), "ok 1000");
  EXPECT_EQ(Scan("-12e0"), "ok -12");
  EXPECT_EQ(Scan("1e9"), "ok 1000000000");
  EXPECT_EQ(Scan("1e007"), "ok 10000000");
}

TEST(JSONParserTest, IntegerWithANegativeExponentIsADouble) {
  EXPECT_EQ(Scan("1e-2"), "ok 0.01d");
  EXPECT_EQ(Scan("2e-1"), "ok 0.2d");
  EXPECT_EQ(Scan("-5E-1"), "ok -0.5d");
  EXPECT_EQ(Scan("7e-0"), "ok 7d");
  EXPECT_EQ(Scan("1e-308"), Ok(std::pow(10.0, -308)));
  EXPECT_EQ(Scan("1e-400"), "ok 0d");
}

TEST(JSONParserTest, FractionIsScaledByItsExponent) {
  EXPECT_EQ(Scan("1.5e1"), "ok 15d");
  EXPECT_EQ(Scan("-1.5E+3"), "ok -1500d");
  EXPECT_EQ(Scan("1.5e-1"), Ok(1.5 * std::pow(10.0, -1)));
  EXPECT_EQ(Scan("1.5e9"), "ok 1.5e+09d");
}

TEST(JSONParserTest, ScaleOfTenToTheTenthAndMoreIsTheSmallestInteger) {
  EXPECT_EQ(Scan("1e10"), "ok -2147483648");
  EXPECT_EQ(Scan("-1e10"), "ok 2147483648");
  EXPECT_EQ(Scan("3e11"), "ok -6442450944");
  EXPECT_EQ(Scan("0e10"), "ok 0");
  EXPECT_EQ(Scan("1.5e10"), Ok(-3221225472.0));
  EXPECT_EQ(Scan("-0.0e10"), "ok 0d");
  EXPECT_EQ(Scan("1e308"), "ok -2147483648");
}

TEST(JSONParserTest, InfiniteScaleIsTheSmallestIntegerToo) {
  EXPECT_EQ(Scan("1e309"), "ok -2147483648");
  EXPECT_EQ(Scan("2e999999999"), "ok -4294967296");
  EXPECT_EQ(Scan("1.5e2147483647"), Ok(-3221225472.0));
}

TEST(JSONParserTest, ScaledIntegerWrapsAt64Bits) {
  EXPECT_EQ(Scan("4294967296e10"), "ok -9223372036854775808");
  EXPECT_EQ(Scan("8589934592e10"), "ok 0");
  EXPECT_EQ(Scan("9223372036854775807e1"), "ok -10");
}

TEST(JSONParserTest, MantissaWrapsAt64Bits) {
  EXPECT_EQ(Scan("9223372036854775808"), "ok -9223372036854775808");
  EXPECT_EQ(Scan("-9223372036854775808"), "ok -9223372036854775808");
  EXPECT_EQ(Scan("-9223372036854775809"), "ok 9223372036854775807");
  EXPECT_EQ(Scan("18446744073709551615"), "ok -1");
  EXPECT_EQ(Scan("18446744073709551616"), "ok 0");
  EXPECT_EQ(Scan("18446744073709551615.5"), "ok -0.5d");
}

TEST(JSONParserTest, ExponentIsItsLow32BitsReadAsSigned) {
  EXPECT_EQ(Scan("5e4294967295"), "ok 0");  // 10 to the power of -1, truncated
  EXPECT_EQ(Scan("5e4294967296"), "ok 5");
  EXPECT_EQ(Scan("5e4294967298"), "ok 500");
  EXPECT_EQ(Scan("5e2147483648"), "ok 0");
  EXPECT_EQ(Scan("1.5e4294967295"), "ok 0d");
  EXPECT_EQ(Scan("5e-4294967295"), "ok 50d");  // 10 to the power of 1, still a double
  EXPECT_EQ(Scan("5e-2147483648"), "ok 0d");
  EXPECT_EQ(Scan("5e-2147483649"), "ok infd");
  EXPECT_EQ(Scan("1e18446744073709551617"), "ok 10");  // the exponent wraps at 64 bits first
  EXPECT_EQ(Scan("1e-9223372036854775808"), "ok 1d");
}

TEST(JSONParserTest, DivisorOfTenAndMoreFractionDigitsWrapsAt32Bits) {
  EXPECT_EQ(Scan("0.1234567890"), Ok(1234567890.0 / 1410065408.0));
  EXPECT_EQ(Scan("2.00000000001"), Ok(2.0 + 1.0 / 1215752192.0));
  EXPECT_EQ(Scan("0." + std::string(30, '0') + "1"), Ok(1.0 / 2147483648.0));
}

TEST(JSONParserTest, DivisorIsZeroFrom32FractionDigitsOn) {
  for (const std::size_t zeros : {31U, 32U, 63U, 99U}) {
    EXPECT_EQ(Scan("0." + std::string(zeros, '0') + "1"), "ok infd") << zeros;
    EXPECT_EQ(Scan("-3." + std::string(zeros, '0') + "1"), "ok -infd") << zeros;
    EXPECT_NE(Scan("0." + std::string(zeros + 1, '0')).find("nan"), std::string::npos) << zeros;
  }
}

TEST(JSONParserTest, NumberEndsAtTheEndOfTheText) {
  EXPECT_EQ(Scan("12\0"sv), "ok 12");
  EXPECT_EQ(Scan("1.5\0005"sv), "ok 1.5d");
  EXPECT_EQ(Scan("0\0001"sv), "ok 0");
}

/// Each fraction has at least 17 digits. An implementation that rounds "times 10 plus the digit"
/// only once gives other bits.
TEST(JSONParserTest, LongFractionsHaveTheSameBitsOnEveryProcessor) {
  EXPECT_EQ(Scan("0.88668473815600778"), Ok(0x1.af11905ed672ap+25));
  EXPECT_EQ(Scan("0.772966567197122371"), Ok(0x1.067cfa15a74f1p+28));
  EXPECT_EQ(Scan("0.787749700357864419"), Ok(0x1.0b8221c47982bp+28));
  EXPECT_EQ(Scan("0.4841928071165522343"), Ok(0x1.f2f27b40bbf59p+30));
  EXPECT_EQ(Scan("0.4847969902182747518"), Ok(0x1.f391dd9032379p+30));
  EXPECT_EQ(Scan("0.59523578013691821069"), Ok(0x1.0ad6e35bbe375p+35));
  EXPECT_EQ(Scan("0.035605118928889817734519"), Ok(0x1.7fa23e38cf1aap+43));
  EXPECT_EQ(Scan("0.603811676486872092458847113"), Ok(0x1.13909acc3ab04p+57));
  EXPECT_EQ(Scan("0.507752002581920340885016272489"), Ok(0x1.9a28a7338a3p+68));
}

// Arrays.

TEST(JSONParserTest, ArraysHoldTheirElementsInOrder) {
  EXPECT_EQ(Scan("[]"), "ok []");
  EXPECT_EQ(Scan("[1,\"a\",null,true,[2],{}]"), "ok [1,\"a\",null,true,[2],{}]");
}

TEST(JSONParserTest, TrailingCommaInArrayYieldsUnsetElement) {
  EXPECT_EQ(Scan("[1,]"), "ok [1,unset]");
}

TEST(JSONParserTest, EmptySlotInArrayYieldsUnsetElement) {
  EXPECT_EQ(Scan("[,]"), "ok [unset,unset]");
  EXPECT_EQ(Scan("[1,,2]"), "ok [1,unset,2]");
  EXPECT_EQ(Scan("[ , ]"), "ok [unset,unset]");
}

TEST(JSONParserTest, ArrayThatDoesNotCloseFailsAndKeepsItsElements) {
  EXPECT_EQ(Scan("[1,2"), "fail [1,2]");
  EXPECT_EQ(Scan("["), "fail []");
  EXPECT_EQ(Scan("[ "), "fail []");
  EXPECT_EQ(Scan("[1,"), "fail [1]");
  EXPECT_EQ(Scan("[1, "), "fail [1,unset]");  // before the space, the scanner is not at the end
  EXPECT_EQ(Scan("[1}"), "fail [1]");
}

TEST(JSONParserTest, ArrayElementsNeedCommas) {
  EXPECT_EQ(Scan("[1 2]"), "fail [1]");
  EXPECT_EQ(Scan("[1:2]"), "fail [1]");
}

TEST(JSONParserTest, UnexpectedByteInArrayIsAnUnsetElementBeforeTheFailure) {
  EXPECT_EQ(Scan("[x]"), "fail [unset]");
  EXPECT_EQ(Scan("[1,x]"), "fail [1,unset]");
  EXPECT_EQ(Scan("[1,\0]"sv), "fail [1,unset]");
}

TEST(JSONParserTest, FailedElementIsNotInItsArray) {
  EXPECT_EQ(Scan("[1,tru]"), "fail [1]");
  EXPECT_EQ(Scan("[1,[2,.5"), "fail [1]");
  EXPECT_EQ(Scan("[1,\"ab"), "fail [1]");
}

// Objects.

TEST(JSONParserTest, ObjectsHoldTheirMembersByKey) {
  EXPECT_EQ(Scan("{}"), "ok {}");
  EXPECT_EQ(Scan("{ }"), "ok {}");
  EXPECT_EQ(Scan(R"({"b":1,"a":{"c":[]},"B":null})"), R"(ok {"B":null,"a":{"c":[]},"b":1})");
}

TEST(JSONParserTest, KeysMayHoldEscapes) {
  EXPECT_EQ(Scan(R"({"\u0061\n":1})"), R"(ok {"a\x0A":1})");
}

TEST(JSONParserTest, FirstOfEqualKeysWins) {
  EXPECT_EQ(Scan(R"({"a":1,"a":2})"), R"(ok {"a":1})");
  EXPECT_EQ(Scan(R"({"a":1,"b":2,"\u0061":3})"), R"(ok {"a":1,"b":2})");
  EXPECT_EQ(Scan(R"({"a":,"a":2})"), R"(ok {"a":unset})");
}

TEST(JSONParserTest, LaterDuplicateMustStillBeValid) {
  EXPECT_EQ(Scan(R"({"a":1,"a":tru})"), R"(fail {"a":1})");
}

TEST(JSONParserTest, KeysWhoseLengthsDifferBy65536AreEqual) {
  const std::string shorter(1, 'k');
  const std::string longer(65537, 'k');
  EXPECT_EQ(Scan("{\"" + shorter + "\":1,\"" + longer + "\":2}"), R"(ok {"k":1})");
}

TEST(JSONParserTest, EmptyKeyAloneIsAKeyLikeOthers) {
  EXPECT_EQ(Scan(R"({"":1})"), R"(ok {"":1})");
  EXPECT_EQ(Scan(R"({"":1,"":2})"), R"(ok {"":1})");
}

TEST(JSONParserTest, EmptyKeyAndAnotherAreInReverseOrderOfInsertion) {
  EXPECT_EQ(Scan(R"({"a":1,"":2})"), R"(ok {"":2,"a":1})");
  EXPECT_EQ(Scan(R"({"":1,"a":2})"), R"(ok {"a":2,"":1})");
}

TEST(JSONParserTest, NoMemberOfANewKeyIsLostBesideTheEmptyKey) {
  EXPECT_EQ(Scan(R"({"a":1,"":2,"b":3,"A":4,"B":5})"), R"(ok {"A":4,"B":5,"":2,"a":1,"b":3})");
  EXPECT_EQ(Scan(R"({"":1,"b":2,"a":3,"c":4})"), R"(ok {"a":3,"b":2,"c":4,"":1})");
}

TEST(JSONParserTest, EmptyKeyBesideOthersMayBeHeldTwice) {
  EXPECT_EQ(Scan(R"({"a":1,"":2,"b":3,"A":4,"B":5,"":6})"),
            R"(ok {"":6,"A":4,"B":5,"":2,"a":1,"b":3})");
}

TEST(JSONParserTest, MissingValueIsAnUnsetMember) {
  EXPECT_EQ(Scan(R"({"a":})"), R"(ok {"a":unset})");
  EXPECT_EQ(Scan(R"({"a":,"b":1})"), R"(ok {"a":unset,"b":1})");
}

TEST(JSONParserTest, TrailingCommaInObjectFails) {
  EXPECT_EQ(Scan(R"({"a":1,})"), R"(fail {"a":1})");
  EXPECT_EQ(Scan(R"({"a":1, })"), R"(fail {"a":1})");
  EXPECT_EQ(Scan("{,}"), "fail {}");
}

TEST(JSONParserTest, ObjectThatDoesNotCloseFailsAndKeepsItsMembers) {
  EXPECT_EQ(Scan("{"), "fail {}");
  EXPECT_EQ(Scan("{ "), "fail {}");
  EXPECT_EQ(Scan(R"({"a":1)"), R"(fail {"a":1})");
  EXPECT_EQ(Scan(R"({"a":1,)"), R"(fail {"a":1})");
  EXPECT_EQ(Scan(R"({"a":1, )"), R"(fail {"a":1})");
  EXPECT_EQ(Scan(R"({"a":)"), R"(fail {"a":unset})");
  EXPECT_EQ(Scan(R"({"a":1])"), R"(fail {"a":1})");
}

TEST(JSONParserTest, MemberNeedsAQuotedKeyAndAColon) {
  EXPECT_EQ(Scan("{a:1}"), "fail {}");
  EXPECT_EQ(Scan("{1:1}"), "fail {}");
  EXPECT_EQ(Scan(R"({"a" 1})"), "fail {}");
  EXPECT_EQ(Scan(R"({"a")"), "fail {}");
  EXPECT_EQ(Scan(R"({"a)"), "fail {}");
  EXPECT_EQ(Scan(R"({"a\q":1})"), "fail {}");
  EXPECT_EQ(Scan(R"({"a"::1})"), R"(fail {"a":unset})");
}

TEST(JSONParserTest, WhitespaceAfterAFailedKeyIsSkipped) {
  const std::string_view text = "{\"a\n\t\x01";
  const auto bytes = ExactCopy(text);
  const Scanned scanned(bytes.get(), static_cast<unsigned int>(text.size()));
  EXPECT_FALSE(scanned.succeeded());
  EXPECT_EQ(scanned.remaining(), 1U);
  const auto lineFeed = ExactCopy("{\"a\n");
  EXPECT_EQ(Scanned(lineFeed.get(), 4).remaining(), 0U);  // at position 4
}

TEST(JSONParserTest, MembersNeedCommas) {
  EXPECT_EQ(Scan(R"({"a":1 "b":2})"), R"(fail {"a":1})");
}

TEST(JSONParserTest, FailedMemberIsNotInItsObject) {
  EXPECT_EQ(Scan(R"({"a":1,"b":nul)"), R"(fail {"a":1})");
  EXPECT_EQ(Scan(R"({"a":[1,{"b":2)"), "fail {}");
}

TEST(JSONParserTest, ZeroByteBetweenTokensIsNoToken) {
  EXPECT_EQ(Scan("{\0}"sv), "fail {}");
  EXPECT_EQ(Scan("{\"a\"\0:1}"sv), "fail {}");
  EXPECT_EQ(Scan("\0[]"sv), "ok unset");
}

// The whole.

TEST(JSONParserTest, NestingIsNotLimited) {
  constexpr std::size_t kDepth = 5000;
  const std::string open(kDepth, '[');
  const std::string close(kDepth, ']');
  EXPECT_EQ(Scan(open + close), "ok " + open + close);
  EXPECT_EQ(Scan(open).substr(0, 7), "fail []");
}

TEST(JSONParserTest, EveryProperPrefixOfAContainerFails) {
  for (const std::string text : {
           R"({"clear":true,"updateid":7,"regenerate":false})",
           R"([ "a\u00e9\n" , -1.5e-3 , [ { "k" : null } , ] ])",
           R"({"a":{"b":[1,2,{"c":"d\\"}]},"":false,"a":0.25E+2})",
           "[\"\xF0\x9F\x98\x80\xC3\",1e10,\v{}\f]",
       }) {
    EXPECT_EQ(Scan(text).substr(0, 2), "ok") << text;
    for (std::size_t length = 1; length < text.size(); ++length) {
      EXPECT_EQ(Scan(text.substr(0, length)).substr(0, 4), "fail") << text.substr(0, length);
    }
  }
}

TEST(JSONParserTest, EveryPrefixOfAScalarIsReadWithoutOverrun) {
  for (const std::string_view text : {"\"\\u00e9\\\\x\\\"\""sv, "-10.25e-12"sv, "false"sv}) {
    for (std::size_t length = 0; length < text.size(); ++length) {
      EXPECT_NE(Scan(text.substr(0, length)), Scan(text)) << text.substr(0, length);
    }
  }
}

TEST(JSONParserTest, FailedAllocationPassesThroughAndLeaksNothing) {
  const std::string_view text = R"(["a string of more than a few bytes",{"key":[1,{}],"k":true}])";
  const auto bytes = ExactCopy(text);
  const long before = AllocationProbe::live();
  Outcome outcome = Outcome::BadAlloc;
  for (long nth = 1; outcome != Outcome::Done; ++nth) {
    outcome = AttemptFailingNth(
        nth, [&] { QDOJSONParserImplHelper(bytes.get(), static_cast<unsigned int>(text.size())); });
    EXPECT_NE(outcome, Outcome::NotEnoughMemory) << nth;
    EXPECT_EQ(AllocationProbe::live(), before) << nth;
    EXPECT_TRUE(outcome == Outcome::BadAlloc || nth > 15) << nth;
  }
}
