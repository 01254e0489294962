#include "JSONParser.h"

#include <array>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>

namespace {

constexpr unsigned int kEscapeDigits = 4;

bool IsWhitespace(unsigned char byte) {
  return byte == ' ' || (byte >= '\t' && byte <= '\r');
}

/// Returns the value of a hexadecimal digit, or -1 for any other byte.
int HexDigit(unsigned char byte) {
  if (byte >= '0' && byte <= '9') {
    return byte - '0';
  }
  const auto letter = static_cast<unsigned char>(byte | 0x20U);
  return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

/// Returns a table of the bytes that a string contains unescaped. A quote, a backslash and control
/// characters are not among them.
constexpr std::array<bool, 256> PlainBytes() {
  std::array<bool, 256> plain = {};
  for (unsigned int byte = ' '; byte < plain.size(); ++byte) {
    plain[byte] = byte != '"' && byte != '\\';
  }
  return plain;
}

constexpr auto kPlain = PlainBytes();

/// Returns the byte for the escape "\" and `byte`, or 0 if there is no such escape.
char EscapedByte(unsigned char byte) {
  constexpr std::string_view kEscapes = R"("\/bfnrt)";
  const std::size_t index = kEscapes.find(static_cast<char>(byte));
  return index == std::string_view::npos ? '\0' : "\"\\/\b\f\n\r\t"[index];
}

/// Returns the product, which wraps at 64 bits on purpose.
long long Product(long long a, long long b) {
  return static_cast<long long>(static_cast<unsigned long long>(a) *
                                static_cast<unsigned long long>(b));
}

/// Returns 10 to the power of `exponent`, truncated to a signed 32-bit integer on purpose.
double Scale(long long exponent) {
  const auto power = static_cast<std::int32_t>(static_cast<std::uint32_t>(exponent));
  return power == 0 ? 1 : std::pow(10.0, power);  // most numbers need no slow pow()
}

/// Returns `scale` truncated to a 32-bit integer. A scale out of range gives the smallest integer,
/// on purpose.
std::int32_t IntegerScale(double scale) {
  constexpr auto kSmallest = std::numeric_limits<std::int32_t>::min();
  return scale < -static_cast<double>(kSmallest) ? static_cast<std::int32_t>(scale) : kSmallest;
}

}  // namespace

QDOJSONValue::~QDOJSONValue() {
  switch (type) {
    case String:
      delete stringValue;  // GCOVR_EXCL_BR_LINE: the compiler's test for null, here and below
      break;
    case Object:
      delete objectValue;  // GCOVR_EXCL_BR_LINE
      break;
    case Array:
      delete arrayValue;  // GCOVR_EXCL_BR_LINE
      break;
    default:
      break;
  }
}

bool QDOJSONText::scanNumber(Number& number) {
  number = 0LL;
  const long long sign = take('-') ? -1 : 1;
  if (byteAt(0) == '0' && isDigit(1)) {
    return false;  // a leading zero is a syntax error
  }
  long long mantissa = 0;
  if (!adv_digits(mantissa)) {
    return false;
  }
  const bool hasFraction = takeInText('.');
  double fraction = 0;
  if (hasFraction) {
    number = 0.0;
    if (!adv_decimal_digits(fraction)) {
      return false;
    }
  }
  long long exponent = 0;
  bool positiveExponent = true;
  if (!scanExponent(exponent, positiveExponent)) {
    return false;
  }
  const double scale = Scale(exponent);
  if (hasFraction) {
    const double value = static_cast<double>(mantissa) + fraction;
    number = (sign < 0 ? -value : value) * (positiveExponent ? IntegerScale(scale) : scale);
  } else if (positiveExponent) {
    number = Product(Product(mantissa, sign), IntegerScale(scale));
  } else {
    number = scale * static_cast<double>(Product(mantissa, sign));
  }
  return true;
}

bool QDOJSONText::scanExponent(long long& exponent, bool& positive) {
  if (!takeInText('e') && !takeInText('E')) {
    return true;
  }
  positive = !takeInText('-');
  if (positive) {
    takeInText('+');
  }
  if (!adv_digits(exponent)) {
    return false;
  }
  exponent = Product(exponent, positive ? 1 : -1);
  return true;
}

bool QDOJSONText::adv_digits(long long& value) {
  const unsigned int start = position_;
  unsigned long long digits = 0;  // unsigned, because overflow wraps on purpose
  for (; !atEnd() && isDigit(0); ++position_) {
    digits = digits * 10 + (byteAt(0) - static_cast<unsigned int>('0'));
  }
  value = static_cast<long long>(digits);
  return position_ != start;
}

bool QDOJSONText::adv_decimal_digits(double& value) {
  const unsigned int start = position_;
  std::uint32_t divisor = 1;  // 32 bits, on purpose: the divisor wraps from the tenth digit on
  value = 0;
  for (; !atEnd() && isDigit(0); ++position_) {
    value = value * 10.0 + (byteAt(0) - '0');
    divisor *= 10;
  }
  static_assert(std::numeric_limits<double>::is_iec559, "32 digits divide by zero");
  static_assert(FLT_EVAL_METHOD == 0 || FLT_EVAL_METHOD == 1,
                "each step rounds to a double; 32-bit x86 needs -msse2 -mfpmath=sse");
  value /= divisor;
  return position_ != start;
}

bool QDOJSONText::scanRestOfLiteral(const char* rest, unsigned int count) {
  if (remaining() <= count || std::memcmp(input_ + position_ + 1, rest, count) != 0) {
    return false;
  }
  position_ += 1 + count;
  return true;
}

bool QDOJSONText::scanRestOfString(UTF8String* destination) {
  advance();
  for (;;) {
    const unsigned int start = position_;
    skipPlainBytes();
    if (atEnd() || byteAt(0) < 0x20) {
      return false;
    }
    appendPortionOfString(start, destination);
    if (take('"')) {
      return true;
    }
    ++position_;
    if (!appendBackSlashTrailingChar(destination)) {
      return false;
    }
  }
}

void QDOJSONText::skipPlainBytes() {
  unsigned int next = position_;  // a local variable, because the member is stored at each step
  while (next < length_ && kPlain[input_[next]]) {
    ++next;
  }
  position_ = next;
}

void QDOJSONText::appendPortionOfString(unsigned int start, UTF8String* destination) {
  destination->append(reinterpret_cast<const char*>(input_ + start), position_ - start);
}

bool QDOJSONText::appendBackSlashTrailingChar(UTF8String* destination) {
  if (take('u')) {
    return appendUnicodeEscape(destination);
  }
  const char escaped = EscapedByte(byteAt(0));
  if (escaped == '\0') {
    return false;
  }
  destination->append(escaped);
  ++position_;
  return true;
}

bool QDOJSONText::appendUnicodeEscape(UTF8String* destination) {
  if (remaining() < kEscapeDigits) {
    return false;
  }
  unsigned int codePoint = 0;
  for (unsigned int i = 0; i < kEscapeDigits; ++i) {
    const int digit = HexDigit(byteAt(i));
    if (digit < 0) {
      return false;
    }
    codePoint = codePoint * 16 + static_cast<unsigned int>(digit);
  }
  appendCodePt(codePoint, destination);
  position_ += kEscapeDigits;
  return true;
}

void QDOJSONText::appendCodePt(unsigned int codePoint, UTF8String* destination) {
  char bytes[4] = {};
  if (codePoint <= 0x7F) {
    bytes[0] = static_cast<char>(codePoint);
  } else if (codePoint <= 0x7FF) {
    bytes[0] = static_cast<char>(0xC0U | (codePoint >> 6U));
    bytes[1] = static_cast<char>(0x80U | (codePoint & 0x3FU));
  } else {
    bytes[0] = static_cast<char>(0xE0U | (codePoint >> 12U));
    bytes[1] = static_cast<char>(0x80U | ((codePoint >> 6U) & 0x3FU));
    bytes[2] = static_cast<char>(0x80U | (codePoint & 0x3FU));
  }
  destination->append(bytes);  // code point 0 is the empty zero-terminated string, on purpose
}

void QDOJSONText::skipWhitespace() {
  while (IsWhitespace(byteAt(0))) {
    ++position_;
  }
}

bool QDOJSONText::advance() {
  const unsigned char lead = byteAt(0);
  const unsigned int size = lead < 0x80              ? 1
                            : (lead & 0xE0U) == 0xC0 ? 2
                            : (lead & 0xF0U) == 0xE0 ? 3
                            : (lead & 0xF8U) == 0xF0 ? 4
                                                     : 0;
  for (unsigned int i = 1; i < size; ++i) {
    if (!isContinuation(i)) {
      return false;
    }
  }
  position_ += size;
  return size != 0;
}

bool QDOJSONText::take(char expected) {
  if (byteAt(0) != static_cast<unsigned char>(expected)) {
    return false;
  }
  ++position_;
  return true;
}
