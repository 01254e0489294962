#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <stdexcept>
#include <string>

#include "AllocationProbe.h"
#include "UTF8String.h"

namespace {

const char kWithZero[] = {'a', 'b', '\0', 'c', '\0'};

std::string Bytes(const UTF8String& text) {
  return std::string(text.str(), text.length());
}

UTF8String Repeated(char byte, unsigned long count) {
  return UTF8String(std::string(count, byte).c_str());
}

int Compare(const UTF8String& a, const UTF8String& b) {
  return a.compare(b);
}

/// Returns the result and the number, for example "false 12".
std::string ScanNumber(const char* text) {
  long long number = 99;  // scanWSInt64() must change this number
  const bool scanned = UTF8String(text).scanWSInt64(number);
  return (scanned ? "true " : "false ") + std::to_string(number);
}

}  // namespace

TEST(UTF8StringTest, DefaultIsEmpty) {
  EXPECT_EQ(UTF8String().length(), 0U);
  EXPECT_STREQ(UTF8String().str(), "");
}

TEST(UTF8StringTest, ByteMakesOneByteString) {
  EXPECT_EQ(Bytes(UTF8String('x')), "x");
  EXPECT_EQ(Bytes(UTF8String('\0')), std::string(1, '\0'));
}

TEST(UTF8StringTest, TextEndsAtItsFirstZeroByte) {
  EXPECT_EQ(Bytes(UTF8String("")), "");
  EXPECT_EQ(Bytes(UTF8String(kWithZero)), "ab");
  EXPECT_EQ(Bytes(UTF8String().assign(kWithZero)), "ab");
  EXPECT_EQ(Bytes(UTF8String("x").append(kWithZero)), "xab");
  EXPECT_EQ(Bytes(UTF8String("x").append(kWithZero, sizeof kWithZero)), "xab");
  EXPECT_EQ(Bytes(UTF8String("x").append(kWithZero, 1)), "xa");
}

TEST(UTF8StringTest, CopyHasSeparateBytes) {
  UTF8String original("ab");
  original.append('\0');
  const UTF8String copy(original);
  original.append("c");
  EXPECT_EQ(Bytes(copy), std::string("ab\0", 3));
}

TEST(UTF8StringTest, AssignReplacesAndReturnsTheString) {
  UTF8String text("old text");
  EXPECT_EQ(&text.assign("new"), &text);
  EXPECT_EQ(Bytes(text), "new");
  EXPECT_EQ(Bytes(text.assign("")), "");
}

TEST(UTF8StringTest, EachAppendAddsAtTheEndAndReturnsTheString) {
  UTF8String text("a");
  EXPECT_EQ(&text.append(UTF8String("b")), &text);
  EXPECT_EQ(&text.append("c"), &text);
  EXPECT_EQ(&text.append('d'), &text);
  EXPECT_EQ(&text.append("efg", 1), &text);
  EXPECT_EQ(Bytes(text), "abcde");
}

TEST(UTF8StringTest, AppendingNothingChangesNothing) {
  UTF8String text("a");
  text.append(UTF8String()).append("").append("x", 0);
  EXPECT_EQ(Bytes(text), "a");
}

TEST(UTF8StringTest, AppendingItselfDoublesTheString) {
  UTF8String text("ab");
  EXPECT_EQ(Bytes(text.append(text)), "abab");
}

TEST(UTF8StringTest, AppendedBytesAndStringsKeepZeroBytes) {
  UTF8String text("a");
  text.append('\0');
  EXPECT_EQ(Bytes(text), std::string("a\0", 2));
  EXPECT_EQ(Bytes(UTF8String("x").append(text)), std::string("xa\0", 3));
}

TEST(UTF8StringTest, LengthCountsBytesNotCharacters) {
  EXPECT_EQ(UTF8String("a\xC3\xA9").length(), 3U);
  EXPECT_EQ(UTF8String("\xF0\x9F\x98\x80").length(), 4U);
}

TEST(UTF8StringTest, StrEndsInAZeroByte) {
  UTF8String text("ab");
  text.append('\0').append("c");
  EXPECT_EQ(text.str()[text.length()], '\0');
}

TEST(UTF8StringTest, ClearEmptiesTheString) {
  UTF8String text("ab");
  text.clear();
  EXPECT_EQ(text.length(), 0U);
  EXPECT_EQ(text.append('c').length(), 1U);
}

TEST(UTF8StringTest, IndexGivesTheByteAndZeroAtAndPastTheLength) {
  const UTF8String text("a\xFF");
  EXPECT_EQ(text[0], 'a');
  EXPECT_EQ(text[1], '\xFF');
  EXPECT_EQ(text[2], '\0');
  EXPECT_EQ(text[3], '\0');
  EXPECT_EQ(text[std::numeric_limits<unsigned long>::max()], '\0');
  EXPECT_EQ(UTF8String()[0], '\0');
}

TEST(UTF8StringTest, EraseRemovesUpToTheCount) {
  const auto erased = [](unsigned long index, unsigned long count) {
    UTF8String text("abcd");
    text.erase(index, count);
    return Bytes(text);
  };
  EXPECT_EQ(erased(1, 2), "ad");
  EXPECT_EQ(erased(3, 1), "abc");
  EXPECT_EQ(erased(0, 0), "abcd");
  EXPECT_EQ(erased(2, 99), "ab");
  EXPECT_EQ(erased(4, 1), "abcd");
}

TEST(UTF8StringTest, ErasePastTheLengthThrowsOutOfRange) {
  UTF8String text("abcd");
  EXPECT_THROW(text.erase(5, 0), std::out_of_range);
  EXPECT_EQ(Bytes(text), "abcd");
}

TEST(UTF8StringTest, CompareOrdersByBytesThenLength) {
  EXPECT_EQ(Compare("abc", "abc"), 0);
  EXPECT_LT(Compare("ab", "b"), 0);
  EXPECT_GT(Compare("b", "ab"), 0);
  EXPECT_EQ(Compare("abc", "ab"), 1);
  EXPECT_EQ(Compare("ab", "abc"), -1);
  EXPECT_EQ(Compare("a", "abcd"), -3);
}

TEST(UTF8StringTest, CompareTakesBytesAsUnsigned) {
  EXPECT_GT(Compare("\x80", "\x7F"), 0);
  EXPECT_LT(Compare("a", "\xFF"), 0);
}

TEST(UTF8StringTest, CompareLooksPastZeroBytes) {
  UTF8String a('\0');
  UTF8String b('\0');
  a.append("a");
  b.append("b");
  EXPECT_LT(a.compare(b), 0);
  EXPECT_EQ(Compare('\0', ""), -1);
}

TEST(UTF8StringTest, CompareWithOneEmptyStringIsMinusOneInBothDirections) {
  EXPECT_EQ(Compare("", ""), 0);
  EXPECT_EQ(Compare("", "a"), -1);
  EXPECT_EQ(Compare("a", ""), -1);
  EXPECT_TRUE(UTF8String("") < UTF8String("a"));
  EXPECT_TRUE(UTF8String("a") < UTF8String(""));
}

TEST(UTF8StringTest, CompareKeepsTheLow16BitsOfTheLengthDifference) {
  const UTF8String one("x");
  EXPECT_EQ(Repeated('x', 1 + 32767).compare(one), 32767);
  EXPECT_EQ(Repeated('x', 1 + 32768).compare(one), -32768);
  EXPECT_EQ(one.compare(Repeated('x', 1 + 32768)), -32768);
  EXPECT_EQ(Repeated('x', 1 + 65535).compare(one), -1);
  EXPECT_EQ(one.compare(Repeated('x', 1 + 65535)), 1);
  EXPECT_EQ(Repeated('x', 1 + 65536).compare(one), 0);
  EXPECT_EQ(one.compare(Repeated('x', 1 + 65536)), 0);
  EXPECT_EQ(Repeated('x', 1 + 65537).compare(one), 1);
}

// A number with more than 16 bits could lose its sign.
TEST(UTF8StringTest, DifferentBytesGiveOneOrMinusOneForEveryDistance) {
  EXPECT_EQ(Compare("b", "a"), 1);
  EXPECT_EQ(Compare("a", "b"), -1);
  EXPECT_EQ(Compare("\xff", "\x01"), 1);
  EXPECT_EQ(Compare("\x01", "\xff"), -1);
}

TEST(UTF8StringTest, DifferentBytesDecideForAllLengths) {
  EXPECT_GT(UTF8String("y").compare(Repeated('x', 65537)), 0);
  EXPECT_LT(Repeated('x', 65537).compare("y"), 0);
}

TEST(UTF8StringTest, LessMeansANegativeComparison) {
  EXPECT_TRUE(UTF8String("a") < UTF8String("b"));
  EXPECT_FALSE(UTF8String("b") < UTF8String("a"));
  EXPECT_FALSE(UTF8String("a") < UTF8String("a"));
}

TEST(UTF8StringTest, MapMayMissTheEmptyKeyBesideOthers) {
  std::map<UTF8String, int> alone = {{UTF8String(""), 1}};
  EXPECT_EQ(alone.count(UTF8String("")), 1U);
  std::map<UTF8String, int> beside;
  beside.insert({UTF8String("a"), 1});
  beside.insert({UTF8String(""), 2});
  EXPECT_EQ(beside.size(), 2U);
  EXPECT_TRUE(beside.find(UTF8String("")) == beside.end());
}

TEST(UTF8StringTest, ScanReadsTheWholeStringAsDecimalDigits) {
  EXPECT_EQ(ScanNumber("123"), "true 123");
  EXPECT_EQ(ScanNumber("0"), "true 0");
  EXPECT_EQ(ScanNumber("007"), "true 7");
  EXPECT_EQ(ScanNumber("9223372036854775807"), "true 9223372036854775807");
  EXPECT_EQ(ScanNumber(""), "true 0");
}

TEST(UTF8StringTest, ScanStopsAtTheFirstByteThatIsNotADigit) {
  EXPECT_EQ(ScanNumber("12a3"), "false 12");
  EXPECT_EQ(ScanNumber("-1"), "false 0");
  EXPECT_EQ(ScanNumber("+1"), "false 0");
  EXPECT_EQ(ScanNumber(" 5"), "false 0");
  EXPECT_EQ(ScanNumber("5 "), "false 5");
  EXPECT_EQ(ScanNumber("1/"), "false 1");  // the byte before '0'
  EXPECT_EQ(ScanNumber("1:"), "false 1");  // the byte after '9'
  EXPECT_EQ(ScanNumber("1\xB2"), "false 1");
  long long number = 99;
  EXPECT_FALSE(UTF8String("4").append('\0').append("2").scanWSInt64(number));
  EXPECT_EQ(number, 4);
}

TEST(UTF8StringTest, ScanWrapsAt64Bits) {
  EXPECT_EQ(ScanNumber("9223372036854775808"), "true -9223372036854775808");
  EXPECT_EQ(ScanNumber("18446744073709551615"), "true -1");
  EXPECT_EQ(ScanNumber("18446744073709551616"), "true 0");
  EXPECT_EQ(ScanNumber("18446744073709551621x"), "false 5");
}

TEST(UTF8StringTest, FailedAllocationPassesThroughAndChangesNothing) {
  const std::string longer(100, 'x');
  UTF8String text("old");
  EXPECT_EQ(AttemptFailingNth(1, [&] { text.append(longer.c_str()); }), Outcome::BadAlloc);
  EXPECT_EQ(Bytes(text), "old");
}
