#ifndef COMMON_JSONUTILS_JSONPARSER_H_
#define COMMON_JSONUTILS_JSONPARSER_H_

#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <variant>
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

/// Reads the tokens of a JSON text: what the grammar needs whatever the text becomes.
class QDOJSONText {
 protected:
  using Number = std::variant<long long, double>;

  QDOJSONText(const unsigned char* input, unsigned int length) : input_(input), length_(length) {}

  // Each works at the position and moves it; bool results say success.

  /// A number that fails is 0, of the type that was certain by then.
  bool scanNumber(Number& number);
  bool scanExponent(long long& exponent, bool& positive);
  bool adv_digits(long long& value);
  bool adv_decimal_digits(double& value);

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

  void skipWhitespace();
  /// Steps over one UTF-8 character; false, without moving, when there is none.
  bool advance();

  /// The byte `offset` after the position. The zero byte after the text bounds every look ahead:
  /// each caller has seen the bytes before to be other than zero.
  unsigned char byteAt(unsigned int offset) const { return input_[position_ + offset]; }
  bool isContinuation(unsigned int offset) const { return (byteAt(offset) & 0xC0U) == 0x80U; }
  bool isDigit(unsigned int offset) const { return byteAt(offset) >= '0' && byteAt(offset) <= '9'; }
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
};

/// A lenient recursive-descent JSON scanner. It parses in its constructor, in a single pass, and
/// afterwards only serves the root.
///
/// A syntax error is a false result and nothing else: the values read so far stay in the root, each
/// with the type it was given, and what was read of a failed string or container stays in it. What
/// follows the root value is not examined. Nesting costs stack and is not limited.
///
/// Lenient or odd on purpose, each kept exactly:
///  - vertical tab and form feed are whitespace;
///  - a byte that starts no value leaves one unset: `[1,]` has two elements, `{"a":}` a member;
///  - the first of several equal keys wins;
///  - `\u` escapes are encoded one by one, surrogates too, and `\u0000` vanishes;
///  - an integer with a positive exponent is multiplied by a 32-bit scale: 1e2 is the integer 100,
///    but 1e10 is -2147483648 and 1.5e10 is -3221225472.0;
///  - the divisor of a fraction is 32 bits wide: it wraps from the tenth digit on;
///  - integers wrap at 64 bits.
///
/// `Target` says what the text becomes: see QDOJSONTree.
template <typename Target>
class QDOJSONScanner : public QDOJSONText {
 public:
  using Value = typename Target::Value;
  using Child = typename Target::Child;
  using Object = typename Target::Object;
  using Array = typename Target::Array;

  /// Parses `length` bytes at `input`, which must be followed by a zero byte. The bytes are not
  /// used after construction.
  QDOJSONScanner(const unsigned char* input, unsigned int length, Target target = Target())
      : QDOJSONText(input, length), target_(target) {
    result_ = parseValue(Target::valueOf(root_));
  }

  /// Whether the root value was parsed without an error.
  bool succeeded() const { return result_; }
  const Child& getRoot() const& { return root_; }
  Child getRoot() && { return std::move(root_); }

 protected:
  bool parseValue(Value& value) {
    if (atEnd()) {
      return true;
    }
    skipWhitespace();
    switch (byteAt(0)) {
      case '"':
        return parseString(value);
      case '[':
        return parseArray(target_.becomeArray(value));
      case '{':
        return parseObject(target_.becomeObject(value));
      case 't':
        target_.becomeBoolean(value, true);
        return scanRestOfTrue();
      case 'f':
        target_.becomeBoolean(value, false);
        return scanRestOfFalse();
      case 'n':
        target_.becomeNull(value);
        return scanRestOfNull();
      default:
        // Any other byte leaves the value unset, on purpose: the caller judges it.
        return !(isDigit(0) || byteAt(0) == '-' || byteAt(0) == '.') || parseNumber(value);
    }
  }

  bool parseObject(Object* object) {
    advance();
    skipWhitespace();
    if (byteAt(0) == '}') {
      return takeInText('}');
    }
    do {
      if (!parseMember(object)) {
        return false;
      }
      skipWhitespace();
    } while (take(','));
    return takeInText('}');
  }

  bool parseMember(Object* object) {
    if (atEnd()) {
      return false;
    }
    skipWhitespace();
    if (byteAt(0) != '"') {
      return false;
    }
    const bool hasKey = scanString() && target_.takesKey(text_);
    skipWhitespace();
    if (!hasKey || !take(':')) {
      return false;
    }
    typename Target::Key key = Target::makeKey(text_);
    Child member = Target::makeChild();
    if (!parseValue(Target::valueOf(member))) {
      return false;
    }
    Target::insert(object, std::move(key), std::move(member));
    return true;
  }

  bool parseArray(Array* array) {
    advance();
    skipWhitespace();
    if (byteAt(0) == ']') {
      return takeInText(']');
    }
    while (!atEnd()) {
      Child element = Target::makeChild();
      if (!parseValue(Target::valueOf(element))) {
        return false;
      }
      array->push_back(std::move(element));
      skipWhitespace();
      if (!take(',')) {
        break;
      }
    }
    return takeInText(']');
  }

  bool parseString(Value& value) {
    const bool scanned = scanString();
    target_.becomeString(value, text_);
    return scanned;
  }

  bool parseNumber(Value& value) {
    Number number;
    const bool scanned = scanNumber(number);
    std::visit([&](auto kind) { target_.becomeNumber(value, kind); }, number);
    return scanned;
  }

  /// Reads a string or a key into `text_`.
  bool scanString() {
    text_.clear();
    return scanRestOfString(&text_);
  }

 private:
  Target target_;
  UTF8String text_;
  bool result_ = true;
  Child root_ = Target::makeChild();
};

/// What a scanner needs to make a tree. Value: what a JSON value is read into, unset at first.
/// Child: one that is not yet in its container. Key: a key that is not yet in its object.
struct QDOJSONTree {
  using Value = QDOJSONValue;
  using Child = std::shared_ptr<QDOJSONValue>;
  using Object = QDOJSONObject;
  using Array = QDOJSONArray;
  using Key = UTF8String;

  static Child makeChild() { return std::make_shared<QDOJSONValue>(); }
  static Value& valueOf(const Child& child) { return *child; }

  // The payload is stored before the type: a node that cannot be filled stays unset.

  static Object* becomeObject(Value& value) {
    value.objectValue = new Object;
    value.type = Value::Object;
    return value.objectValue;
  }
  static Array* becomeArray(Value& value) {
    value.arrayValue = new Array;
    value.type = Value::Array;
    return value.arrayValue;
  }
  static void becomeString(Value& value, const UTF8String& text) {
    value.stringValue = new UTF8String(text);
    value.type = Value::String;
  }
  static void becomeBoolean(Value& value, bool isTrue) {
    value.booleanValue = isTrue ? 1 : 0;
    value.type = Value::Boolean;
  }
  static void becomeNumber(Value& value, long long number) {
    value.integerValue = number;
    value.type = Value::Integer;
  }
  static void becomeNumber(Value& value, double number) {
    value.doubleValue = number;
    value.type = Value::Double;
  }
  static void becomeNull(Value& value) { value.type = Value::Null; }

  /// A key that is not taken is treated as a syntax error.
  static bool takesKey(const UTF8String& /*text*/) { return true; }
  static Key makeKey(const UTF8String& text) { return text; }
  /// Drops the member when the object has an equal key. Not emplace(), which looks keys up in
  /// another way: under the order of the empty key a library may then lose the member of a new key.
  static void insert(Object* object, Key key, Child member) {
    object->insert(Object::value_type(std::move(key), std::move(member)));
  }
};

/// The scanner that makes a tree.
using QDOJSONParserImplHelper = QDOJSONScanner<QDOJSONTree>;

#endif  // COMMON_JSONUTILS_JSONPARSER_H_
