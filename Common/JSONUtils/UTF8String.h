#ifndef COMMON_JSONUTILS_UTF8STRING_H_
#define COMMON_JSONUTILS_UTF8STRING_H_

#include <cstdint>
#include <string>

/// The string in which the JSON scanner collects texts and keys. It stores and counts bytes and
/// knows nothing of UTF-8 beyond its name.
///
/// Operations that take a `const char*` stop at its first zero byte; the others keep zero bytes.
class UTF8String {
 public:
  UTF8String() = default;
  UTF8String(char byte) : bytes_(1, byte) {}
  UTF8String(const char* text) : bytes_(text) {}  // GCOVR_EXCL_BR_LINE: an exception's only

  UTF8String& assign(const char* text);
  UTF8String& append(const UTF8String& other);
  UTF8String& append(const char* text);
  UTF8String& append(const char* text, unsigned long atMost);
  UTF8String& append(char byte);

  void clear() { bytes_.clear(); }

  unsigned long length() const { return bytes_.length(); }

  /// The bytes with a terminating zero; valid until the string is changed or destroyed.
  const char* str() const { return bytes_.c_str(); }

  /// The byte at `index`, or 0 at and past the length.
  char operator[](unsigned long index) const { return index < length() ? bytes_[index] : '\0'; }

  /// Removes up to `count` bytes from `index` on. Throws std::out_of_range when `index` is past the
  /// length.
  void erase(unsigned long index, unsigned long count) { bytes_.erase(index, count); }

  /// Three-way comparison: bytes as unsigned, then lengths; the result's low 16 bits.
  ///
  /// An empty and a non-empty string each compare as less than the other, on purpose: a map that
  /// holds the empty key beside others may miss it or hold it twice.
  std::int16_t compare(const UTF8String& other) const;

  /// Reads the whole string as an unsigned decimal number; overflow wraps. Returns false at the
  /// first byte that is not a digit (no sign, no whitespace), with `out` the number before it. An
  /// empty string is 0.
  bool scanWSInt64(long long& out) const;

 private:
  std::string bytes_;
};

/// The order of map keys.
inline bool operator<(const UTF8String& a, const UTF8String& b) {
  return a.compare(b) < 0;
}

#endif  // COMMON_JSONUTILS_UTF8STRING_H_
