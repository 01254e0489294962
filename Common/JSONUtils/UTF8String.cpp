#include "UTF8String.h"

#include <algorithm>
#include <cstring>

namespace {

/// Returns the low 16 bits of `value` as a signed integer.
std::int16_t Low16(unsigned long value) {
  return static_cast<std::int16_t>(static_cast<std::uint16_t>(value));
}

}  // namespace

UTF8String& UTF8String::assign(const char* text) {
  bytes_.assign(text);
  return *this;
}

UTF8String& UTF8String::append(const UTF8String& other) {
  bytes_.append(other.bytes_);
  return *this;
}

UTF8String& UTF8String::append(const char* text) {
  bytes_.append(text);
  return *this;
}

UTF8String& UTF8String::append(const char* text, unsigned long atMost) {
  bytes_.append(text, strnlen(text, atMost));
  return *this;
}

UTF8String& UTF8String::append(char byte) {
  bytes_.push_back(byte);
  return *this;
}

std::int16_t UTF8String::compare(const UTF8String& other) const {
  if (bytes_.empty() || other.bytes_.empty()) {
    return length() == other.length() ? 0 : -1;  // -1 in both directions, on purpose
  }
  const int bytes = std::memcmp(str(), other.str(), std::min(length(), other.length()));
  if (bytes != 0) {
    return bytes < 0 ? -1 : 1;
  }
  return Low16(length() - other.length());
}

bool UTF8String::scanWSInt64(long long& out) const {
  unsigned long long value = 0;  // unsigned: overflow wraps
  const auto isDigit = [](char byte) { return byte >= '0' && byte <= '9'; };
  auto next = bytes_.begin();
  for (; next != bytes_.end() && isDigit(*next); ++next) {
    value = value * 10 + static_cast<unsigned long long>(*next - '0');
  }
  out = static_cast<long long>(value);
  return next == bytes_.end();
}
