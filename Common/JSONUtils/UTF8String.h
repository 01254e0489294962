#ifndef COMMON_JSONUTILS_UTF8STRING_H_
#define COMMON_JSONUTILS_UTF8STRING_H_

#include <cstdint>
#include <string>

/// The string of the JSON scanner. The class stores and counts bytes, and never checks whether the
/// bytes are valid UTF-8.
///
///     UTF8String key("id");
///     key.append('^');
///     key.length();  // 3
///     key[3];        // '\0'
///
/// Operations with a `const char*` stop at the first zero byte. The other operations keep zero
/// bytes. Not thread-safe, except that several threads may call const operations.
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

  /// Returns the bytes with a terminating zero. Valid until the string is changed or destroyed.
  const char* str() const { return bytes_.c_str(); }

  /// Returns the byte at `index`. Returns 0 if `index` is length() or more.
  char operator[](unsigned long index) const { return index < length() ? bytes_[index] : '\0'; }

  /// Removes up to `count` bytes, starting at `index`. Throws std::out_of_range if `index` is more
  /// than length().
  void erase(unsigned long index, unsigned long count) { bytes_.erase(index, count); }

  /// Returns a negative number, 0 or a positive number: the order of the bytes as unsigned numbers,
  /// then the difference of the lengths.
  ///
  /// Two quirks are kept on purpose. The difference of the lengths is truncated to 16 bits: one "a"
  /// equals 65,537 times "a". An empty string and any other string are each less than the other: a
  /// map may miss an empty key, or hold the key twice.
  std::int16_t compare(const UTF8String& other) const;

  /// Reads the string as an unsigned decimal number into `out`. Overflow wraps at 64 bits. Returns
  /// whether every byte is a digit; a sign and whitespace are no digits. If a byte is no digit,
  /// `out` is the number before that byte. An empty string gives true and 0. The name "WS" is
  /// fixed: the function skips no whitespace.
  bool scanWSInt64(long long& out) const;

 private:
  std::string bytes_;
};

/// The order of map keys.
inline bool operator<(const UTF8String& a, const UTF8String& b) {
  return a.compare(b) < 0;
}

#endif  // COMMON_JSONUTILS_UTF8STRING_H_
