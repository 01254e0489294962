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

/// One node of the tree: a type and its payload.
struct QDOJSONValue {
  enum Type : std::uint32_t {
    String = 0,
    Double = 1,
    Integer = 2,
    Object = 3,
    Array = 4,
    Boolean = 5,
    Null = 6,
    Unset = 7,  ///< The state of a node before a value is scanned.
  };

  QDOJSONValue() = default;
  ~QDOJSONValue();
  QDOJSONValue(const QDOJSONValue&) = delete;
  QDOJSONValue& operator=(const QDOJSONValue&) = delete;

  Type type = Unset;
  /// The payload: the member that belongs to `type`. The node owns the string, object or array and
  /// deletes the payload in its destructor.
  union {
    long long integerValue = 0;
    double doubleValue;
    std::int32_t booleanValue;
    UTF8String* stringValue;
    QDOJSONObject* objectValue;
    QDOJSONArray* arrayValue;
  };
};

/// Reads the tokens of a JSON text: the part of the scanner that does not depend on the target.
class QDOJSONText {
 protected:
  using Number = std::variant<long long, double>;

  QDOJSONText(const unsigned char* input, unsigned int length) : input_(input), length_(length) {}

  // Each operation reads at the current position and moves the position. A bool result tells
  // whether the operation succeeded. After a failure, advance(), take() and takeInText() have not
  // moved. After a failure of another operation, the position is unspecified.

  /// Reads a number. On failure, `number` is 0. The 0 is a double after a decimal point, and an
  /// integer otherwise.
  bool scanNumber(Number& number);
  /// Reads an optional exponent. Without an exponent, succeeds and changes neither argument. After
  /// "-", `positive` is false and `exponent` is not positive.
  bool scanExponent(long long& exponent, bool& positive);
  /// Reads digits as an integer, which wraps at 64 bits. Fails without a digit; `value` is then 0.
  bool adv_digits(long long& value);
  /// Reads the digits of a fraction. Fails without a digit; `value` is then 0.
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
  /// Skips one UTF-8 character. Returns false, and does not move, if no valid character follows.
  bool advance();

  /// Returns the byte `offset` bytes after the position. Requires: the `offset` bytes from the
  /// position on are not zero. So no read goes beyond the zero byte after the text.
  unsigned char byteAt(unsigned int offset) const { return input_[position_ + offset]; }
  bool isContinuation(unsigned int offset) const { return (byteAt(offset) & 0xC0U) == 0x80U; }
  bool isDigit(unsigned int offset) const { return byteAt(offset) >= '0' && byteAt(offset) <= '9'; }
  bool atEnd() const { return position_ >= length_; }
  unsigned int remaining() const { return atEnd() ? 0 : length_ - position_; }
  /// Skips the next byte if that byte is `expected`. Returns whether the byte was skipped.
  bool take(char expected);
  /// The same as take(), but returns false at the end of the text.
  bool takeInText(char expected) { return !atEnd() && take(expected); }

 private:
  const unsigned char* input_;
  unsigned int length_;
  unsigned int position_ = 0;
};

/// A lenient recursive-descent JSON scanner. The constructor parses the text in one pass.
///
///     const unsigned char text[] = R"({"a":[1,true]})";
///     const QDOJSONParserImplHelper scanner(text, sizeof text - 1);
///     scanner.succeeded();      // true
///     scanner.getRoot()->type;  // QDOJSONValue::Object
///
/// A syntax error makes succeeded() return false. The root keeps the members or elements before the
/// error, and drops the member or element with the error: `{"a":1,"b":[2,tru]}` gives an object
/// with only "a". A root string without a closing quote keeps only the bytes up to the last escape
/// sequence. Text after the root value is ignored. Each level of nesting uses stack; the depth has
/// no limit. Not thread-safe, except that several threads may call const operations.
///
/// These quirks are kept on purpose:
///  - vertical tab and form feed are whitespace;
///  - a byte that starts no value gives an unset value: `[1,]` has two elements, and `{"a":}` has
///    one member;
///  - the first of several equal keys wins;
///  - each `\u` escape is encoded separately, even a surrogate, and `\u0000` adds no byte;
///  - the scale of a positive exponent is a 32-bit integer: 1e2 is the integer 100, but 1e10 is
///    -2147483648 and 1.5e10 is -3221225472.0;
///  - the divisor of a fraction is a 32-bit integer, which wraps from the tenth digit on;
///  - integers wrap at 64 bits.
///
/// `Target` defines the result of the scan, for example QDOJSONTree.
template <typename Target>
class QDOJSONScanner : public QDOJSONText {
 public:
  using Value = typename Target::Value;
  using Child = typename Target::Child;
  using Object = typename Target::Object;
  using Array = typename Target::Array;

  /// Parses the `length` bytes at `input`. Keeps no reference to the bytes.
  /// Requires: a zero byte follows the bytes.
  QDOJSONScanner(const unsigned char* input, unsigned int length, Target target = Target())
      : QDOJSONText(input, length), target_(target) {
    result_ = parseValue(Target::valueOf(root_));
  }

  /// Returns whether the root value was parsed without a syntax error.
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
        // A digit, "-" or "." starts a number. Any other byte leaves the value unset, on purpose:
        // the caller accepts or rejects the byte.
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
      skipWhitespace();
      const bool isFollowed = take(',');
      if (isFollowed && array->empty()) {
        array->reserve(2);  // as the second push_back() would, without moving the first element
      }
      array->push_back(std::move(element));
      if (!isFollowed) {
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

/// The target of a scanner that makes a tree. The scanner reads a JSON value into a Value, which is
/// unset at first. A Child holds a value before its insertion into a container. A Key holds the
/// name of a member before its insertion.
struct QDOJSONTree {
  using Value = QDOJSONValue;
  using Child = std::shared_ptr<QDOJSONValue>;
  using Object = QDOJSONObject;
  using Array = QDOJSONArray;
  using Key = UTF8String;

  static Child makeChild() { return std::make_shared<QDOJSONValue>(); }
  static Value& valueOf(const Child& child) { return *child; }

  // The payload is stored before the type: if the allocation fails, the node stays unset.

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

  /// Returns whether the target accepts the key. The scanner treats another key as a syntax error.
  static bool takesKey(const UTF8String& /*text*/) { return true; }
  static Key makeKey(const UTF8String& text) { return text; }
  /// Inserts the member, unless the object has an equal key. Does not call emplace():
  /// UTF8String::compare() orders the empty key inconsistently, and emplace() of some libraries
  /// then drops a new key.
  static void insert(Object* object, Key key, Child member) {
    object->insert(Object::value_type(std::move(key), std::move(member)));
  }
};

/// The scanner that makes a tree.
using QDOJSONParserImplHelper = QDOJSONScanner<QDOJSONTree>;

#endif  // COMMON_JSONUTILS_JSONPARSER_H_
