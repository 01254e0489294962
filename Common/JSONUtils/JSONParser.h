#ifndef COMMON_JSONUTILS_JSONPARSER_H_
#define COMMON_JSONUTILS_JSONPARSER_H_

#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "UTF8String.h"

struct QDOJSONValue;

using QDOJSONObject = std::map<UTF8String, std::shared_ptr<QDOJSONValue>>;
using QDOJSONArray = std::vector<std::shared_ptr<QDOJSONValue>>;

/// One parsed node: a type and the payload that belongs to it.
struct QDOJSONValue {
  enum Type : std::uint32_t {
    String = 0,
    Double = 1,
    Integer = 2,
    Object = 3,
    Array = 4,
    Boolean = 5,
    Null = 6,
    Unset = 7,  ///< The state of a node until a value is scanned into it.
  };

  QDOJSONValue() = default;
  ~QDOJSONValue();
  QDOJSONValue(const QDOJSONValue&) = delete;
  QDOJSONValue& operator=(const QDOJSONValue&) = delete;

  // Each makes an unset node one of its type, with an empty or the given payload.

  UTF8String* becomeString();
  QDOJSONObject* becomeObject();
  QDOJSONArray* becomeArray();
  void becomeBoolean(bool value);
  void becomeNull() { type = Null; }

  // Each makes an unset or numeric node a number.

  void becomeInteger(long long value);
  void becomeDouble(double value);

  /// Hands over the payload of a string node, which is left with none.
  std::unique_ptr<UTF8String> releaseString() {
    return std::unique_ptr<UTF8String>(std::exchange(stringValue, nullptr));
  }

  Type type = Unset;
  /// The member of the type; strings, objects and arrays are owned.
  union {
    long long integerValue = 0;
    double doubleValue;
    std::int32_t booleanValue;
    UTF8String* stringValue;
    QDOJSONObject* objectValue;
    QDOJSONArray* arrayValue;
  };
};

/// A lenient recursive-descent JSON scanner. It parses in its constructor, in a single pass, and
/// afterwards only serves the tree.
///
/// A syntax error is a false result and nothing else: the nodes built so far stay in the tree, each
/// with the type it was given, and what was read of a failed string or container stays in it. What
/// follows the root value is not examined. Nesting costs stack and is not limited.
///
/// Lenient or odd on purpose, each kept exactly:
///  - vertical tab and form feed are whitespace;
///  - a byte that starts no value leaves an unset node: `[1,]` has two elements, `{"a":}` a member;
///  - the first of several equal keys wins;
///  - `\u` escapes are encoded one by one, surrogates too, and `\u0000` vanishes;
///  - an integer with a positive exponent is multiplied by a 32-bit scale: 1e2 is the integer 100,
///    but 1e10 is -2147483648 and 1.5e10 is -3221225472.0;
///  - the divisor of a fraction is 32 bits wide: it wraps from the tenth digit on;
///  - integers wrap at 64 bits.
class QDOJSONParserImplHelper {
 public:
  /// Parses `length` bytes at `input`, which must be followed by a zero byte. The bytes are not
  /// used after construction.
  QDOJSONParserImplHelper(const unsigned char* input, unsigned int length);

  /// Whether the root value was parsed without an error.
  bool succeeded() const { return result_; }
  const std::shared_ptr<QDOJSONValue>& getRoot() const { return root_; }

 protected:
  // Each works at the position and moves it; bool results say success.

  bool parseValue(QDOJSONValue& node);
  bool parseObject(QDOJSONObject* object);
  bool parseMember(QDOJSONObject* object);
  bool parseArray(QDOJSONArray* array);
  bool parseNumber(QDOJSONValue& node);
  bool parseExponent(long long& exponent, bool& positive);

  bool scanRestOfNull() { return scanRestOfLiteral("ull", 3); }
  bool scanRestOfTrue() { return scanRestOfLiteral("rue", 3); }
  bool scanRestOfFalse() { return scanRestOfLiteral("alse", 4); }
  bool scanRestOfLiteral(const char* rest, unsigned int count);

  bool scanRestOfString(UTF8String* destination);
  void skipPlainBytes();
  bool appendBackSlashTrailingChar(UTF8String* destination);
  bool appendUnicodeEscape(UTF8String* destination);
  void appendPortionOfString(unsigned int start, UTF8String* destination);
  static void appendCodePt(unsigned int codePoint, UTF8String* destination);

  bool adv_digits(long long& value);
  bool adv_decimal_digits(double& value);

  void skipWhitespace();
  /// Steps over one UTF-8 character; false, without moving, when there is none.
  bool advance();

  /// The byte `offset` after the position. The zero byte after the text bounds every look ahead:
  /// each caller has seen the bytes before to be other than zero.
  unsigned char byteAt(unsigned int offset) const { return input_[position_ + offset]; }
  bool isContinuation(unsigned int offset) const { return (byteAt(offset) & 0xC0U) == 0x80U; }
  bool atDigit() const { return !atEnd() && byteAt(0) >= '0' && byteAt(0) <= '9'; }
  bool atEnd() const { return position_ >= length_; }
  unsigned int remaining() const { return atEnd() ? 0 : length_ - position_; }
  /// Steps over `expected` when it is the next byte.
  bool take(char expected);
  /// take(), within the text only.
  bool takeInText(char expected) { return !atEnd() && take(expected); }

 private:
  const unsigned char* input_;
  unsigned int length_;
  unsigned int position_ = 0;
  bool result_ = true;
  std::shared_ptr<QDOJSONValue> root_;
};

#endif  // COMMON_JSONUTILS_JSONPARSER_H_
