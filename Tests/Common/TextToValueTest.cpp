// Compares the two conversions of a text to values, directly and through a tree, on generated
// texts.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "QDOJSONParser.h"
#include "Rendering.h"

namespace {

/// Makes texts that are JSON, almost JSON, or the beginning of either. The texts often contain the
/// quirks of the scanner and the conversion.
class TextMaker {
 public:
  explicit TextMaker(unsigned int seed) : random_(seed) {}

  const std::string& next() {
    text_.clear();
    flawed_ = oneIn(3);
    addSpace();
    if (oneIn(2000)) {
      const char open = oneIn(2) ? '[' : '{';
      text_.append(50 + pick(500), open);
    }
    addValue(4);
    if (oneIn(2)) {
      damage();
    }
    return text_;
  }

 private:
  unsigned int pick(std::size_t count) { return static_cast<unsigned int>(random_() % count); }
  bool oneIn(unsigned int count) { return pick(count) == 0; }

  template <std::size_t kCount>
  void add(const char* const (&pieces)[kCount]) {
    text_ += pieces[pick(kCount)];
  }

  /// Adds one of `pieces` or, in a flawed text, sometimes one of `flaws`.
  template <std::size_t kCount, std::size_t kFlaws>
  void add(const char* const (&pieces)[kCount], const char* const (&flaws)[kFlaws]) {
    flawed_&& oneIn(12) ? add(flaws) : add(pieces);
  }

  void addSpace() {
    if (oneIn(6)) {
      add({" ", "\n", "\t\r ", "\v", "\f"}, {"\xC2\xA0", "x"});
    }
  }

  void addValue(int depth) {
    switch (pick(depth > 0 ? 10 : 6)) {
      case 0:
        add({"null", "true", "false", ""}, {"tru", "nul", "+1", "falsey"});
        break;
      case 1:
      case 2:
        addNumber();
        break;
      case 3:
      case 4:
      case 5:
        addString();
        break;
      case 6:
      case 7:
        addList('[', ']', [&] { addValue(depth - 1); });
        break;
      default:
        addList('{', '}', [&] { addMember(depth - 1); });
    }
  }

  void addNumber() {
    add({"", "", "-"}, {"--", "+"});
    add({"0", "1", "7", "12", "4294967296", "9223372036854775808"}, {"01", ""});
    if (oneIn(2)) {
      text_ += '.';
      add({"0", "5", "25", "00000000001", "88668473815600778"}, {""});
      for (unsigned int count = oneIn(4) ? pick(40) : 0; count > 0; --count) {
        text_ += static_cast<char>('0' + pick(10));
      }
    }
    if (oneIn(3)) {
      add({"e", "E"});
      add({"", "", "+", "-", "-"}, {"+-"});
      add({"0", "1", "2", "9", "10", "007", "308", "309", "400", "4294967295", "4294967298"}, {""});
    }
  }

  void addCharacters() {
    for (unsigned int count = pick(5); count > 0; --count) {
      add({"a", "b", "12", "^", "^^", "\\n", "\\\"", "\\\\", "\\u0061", "\\u0000", "\\ud83d",
           "\xC3\xA9", "a text longer than the small ones"},
          {"\\u00", "\\q", "\x01"});
    }
  }

  void addString() {
    text_ += '"';
    addCharacters();
    add({"", "", "^", "12^", "a^^"});
    add({"\""}, {""});
  }

  void addMember(int depth) {
    text_ += '"';
    if (oneIn(400)) {
      text_.append(oneIn(2) ? 32766 : 65536, 'k');  // see UTF8String::compare()
      text_.append(pick(5), 'k');
    } else if (oneIn(20)) {
      addCharacters();
    } else {
      add({"", "a", "b", "A", "ab", "aa", "\\u0061", "k", "kk", "^", "a key of some length"});
    }
    add({"\""}, {""});
    addSpace();
    add({":"}, {"", "::", ","});
    addSpace();
    addValue(depth);
  }

  template <typename Item>
  void addList(char open, char close, Item addItem) {
    text_ += open;
    addSpace();
    for (unsigned int count = pick(6); count > 0; --count) {
      addItem();
      addSpace();
      if (count > 1) {
        add({","}, {"", ",,"});
      }
    }
    text_ += flawed_ && oneIn(12) ? ',' : close;
  }

  void damage() {
    const std::size_t at = pick(text_.size() + 1);
    switch (pick(4)) {
      case 0:
        text_.resize(at);
        break;
      case 1:
        text_.insert(at, 1, static_cast<char>(random_()));
        break;
      case 2:
        text_.erase(at, 1 + pick(3));
        break;
      default:
        text_.insert(at, 1, "[]{},:\"\\^-.0e"[pick(13)]);
    }
  }

  std::mt19937 random_;
  std::string text_;
  bool flawed_ = false;
};

bool SameBits(double a, double b) {
  std::uint64_t bits[2];
  std::memcpy(&bits[0], &a, sizeof a);
  std::memcpy(&bits[1], &b, sizeof b);
  return bits[0] == bits[1];
}

bool Same(const QDOObject& a, const QDOObject& b) {
  if (a.getType() != b.getType()) {
    return false;
  }
  switch (a.getType()) {
    case QDOObject::Double:
      return SameBits(a.getDouble(), b.getDouble());
    case QDOObject::Vector:
      return std::equal(a.getVector().begin(), a.getVector().end(), b.getVector().begin(),
                        b.getVector().end(), Same);
    case QDOObject::Map:
      return std::equal(a.getMap().begin(), a.getMap().end(), b.getMap().begin(), b.getMap().end(),
                        [](const auto& x, const auto& y) {
                          return x.first == y.first && Same(x.second, y.second);
                        });
    case QDOObject::String:
      return a.getString() == b.getString();
    default:
      return Text(a) == Text(b);
  }
}

/// Expects that both conversions make the same value of an object with `keys` in that order.
void ExpectTheFirstOfEqualKeys(const std::vector<std::string>& keys) {
  std::string text = "{";
  for (const std::string& key : keys) {
    text += (text.size() > 1 ? ",\"" : "\"") + key + "\":" + std::to_string(text.size());
  }
  text += "}";
  QDOJSONParserImpl parser;
  parser.parse(reinterpret_cast<const unsigned char*>(text.c_str()),
               static_cast<unsigned int>(text.size()));
  const QDOObject converted = parser.getQDOObject(false);
  ASSERT_TRUE(Same(QDOJSONParser::fromJSON(text, false), converted)) << text;
}

}  // namespace

// The order of the empty key in a tree is inconsistent on purpose: a tree may hold a key twice.
TEST(TextToValueTest, FirstOfEqualKeysWinsBesideTheEmptyKeyInBothConversions) {
  constexpr unsigned int kLongest = 6;
  const std::string keys[] = {"", "a", "b", "c"};
  for (unsigned int length = 1; length <= kLongest; ++length) {
    for (unsigned int number = 0; number < 1U << (2 * length); ++number) {
      std::vector<std::string> sequence;
      for (unsigned int i = 0; i < length; ++i) {
        sequence.push_back(keys[number >> (2 * i) & 3U]);
      }
      ExpectTheFirstOfEqualKeys(sequence);
    }
  }
  std::mt19937 random(20171130);
  for (int i = 0; i < 500; ++i) {
    std::vector<std::string> sequence(random() % 60);
    for (std::string& key : sequence) {
      key = std::string(random() % 5 == 0 ? 0 : 1, static_cast<char>('a' + random() % 20));
    }
    ExpectTheFirstOfEqualKeys(sequence);
  }
}

TEST(TextToValueTest, DirectValuesEqualTheValuesOfATree) {
  // The fuzzer text_to_value compares more texts.
  constexpr int kTexts = SANITIZED != 0 ? 6000 : 60000;
  TextMaker maker(20171130);
  int failed = 0;
  for (int i = 0; i < kTexts; ++i) {
    const std::string& text = maker.next();
    const bool proxyConvention = i % 2 == 0;
    const QDOJSONParserImplHelper scanner(reinterpret_cast<const unsigned char*>(text.c_str()),
                                          static_cast<unsigned int>(text.size()));
    const QDOObject straight = QDOJSONParser::fromJSON(text, proxyConvention);
    const QDOObject converted = getJSONValueinQDOObject(scanner.getRoot(), proxyConvention);
    ASSERT_TRUE(Same(straight, converted))
        << Quoted(text) << "\nstraight: " << Text(straight) << "\ntree: " << Text(converted);
    failed += scanner.succeeded() ? 0 : 1;
  }
  EXPECT_GT(failed, kTexts / 4);  // texts of both kinds were made
  EXPECT_LT(failed, kTexts * 3 / 4);
}
