#include "support/Text.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <numeric>
#include <utility>

#include "MallocPointer.h"

namespace webresources {

namespace {

/// Returns the length of the character at `offset` of `name`, and stores the character through
/// `point`. The result is not positive if the bytes there are not UTF-8.
utf8proc_ssize_t Character(const std::string& name, std::size_t offset, utf8proc_int32_t* point) {
  return utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(name.data()) + offset,
                          static_cast<utf8proc_ssize_t>(name.length() - offset), point);
}

bool IsVisible(utf8proc_int32_t point) {
  const auto category = utf8proc_category(point);
  return category < UTF8PROC_CATEGORY_ZL || category == UTF8PROC_CATEGORY_CO;
}

std::string Escaped(char byte) {
  char text[5] = {};
  std::snprintf(text, sizeof text, "\\x%02X", static_cast<unsigned int>(byte) & 0xFFU);
  return text;
}

std::string Mapped(const std::string& name, int options) {
  utf8proc_uint8_t* mapped = nullptr;
  const utf8proc_ssize_t length =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(name.data()),
                   static_cast<utf8proc_ssize_t>(name.length()), &mapped,
                   static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_DECOMPOSE | options));
  const MallocPointer<utf8proc_uint8_t> owner(mapped);
  return length < 0
             ? name
             : std::string(reinterpret_cast<char*>(mapped), static_cast<std::size_t>(length));
}

std::string LowerCase(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(), [](char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + ('a' - 'A')) : byte;
  });
  return name;
}

}  // namespace

bool IsUtf8(const std::string& name) {
  utf8proc_int32_t point = 0;
  utf8proc_ssize_t length = 0;
  for (std::size_t i = 0; i < name.length(); i += static_cast<std::size_t>(length)) {
    length = Character(name, i, &point);
    if (length <= 0) {
      return false;
    }
  }
  return true;
}

bool IsAscii(const std::string& name) {
  return std::all_of(name.begin(), name.end(),
                     [](char byte) { return static_cast<unsigned char>(byte) < 0x80; });
}

std::string Printable(const std::string& name) {
  std::string printable;
  printable.reserve(name.length());
  for (std::size_t i = 0; i < name.length();) {
    if (name[i] >= ' ' && name[i] <= '~') {  // visible ASCII: the case of most bytes
      printable += name[i++];
      continue;
    }
    utf8proc_int32_t point = 0;
    const utf8proc_ssize_t length = Character(name, i, &point);
    const std::string bytes(name, i, length > 0 ? static_cast<std::size_t>(length) : 1);
    for (const char byte : bytes) {
      printable += length > 0 && IsVisible(point) ? std::string(1, byte) : Escaped(byte);
    }
    i += bytes.length();
  }
  return printable;
}

std::string Hexadecimal(const std::string& bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.length());
  for (const char byte : bytes) {
    text += digits[static_cast<unsigned char>(byte) >> 4U];
    text += digits[static_cast<unsigned char>(byte) & 15U];
  }
  return text;
}

std::string Octal(unsigned int mode) {
  std::string text;
  for (const unsigned int shift : {9U, 6U, 3U, 0U}) {
    text += static_cast<char>('0' + (mode >> shift & 7U));
  }
  return text;
}

std::optional<std::string> FromHexadecimal(const std::string& text) {
  static const std::string digits = "0123456789abcdef";
  std::string bytes;
  for (std::size_t i = 0; i + 1 < text.length(); i += 2) {
    const std::size_t high = digits.find(text[i]);
    const std::size_t low = digits.find(text[i + 1]);
    if (high == std::string::npos || low == std::string::npos) {
      return std::nullopt;
    }
    bytes += static_cast<char>(high * 16 + low);
  }
  return text.length() % 2 == 0 ? std::optional(bytes) : std::nullopt;
}

std::string Folded(const std::string& name) {
  return IsAscii(name) ? LowerCase(name) : Mapped(name, UTF8PROC_CASEFOLD);
}

namespace {

std::string KeyOf(const std::string& path) {
  return ParentOf(path) + "/" + Folded(LastOf(path));
}

/// Returns the paths whose key has the same hash value as the key of another path, in their order.
/// The other paths have no collision. A hash value takes less memory than a key.
std::vector<const std::string*> WithEqualHashes(const std::vector<std::string>& paths) {
  std::vector<std::pair<std::size_t, const std::string*>> hashes;
  hashes.reserve(paths.size());
  for (const std::string& path : paths) {
    hashes.emplace_back(std::hash<std::string>()(KeyOf(path)), &path);
  }
  std::sort(hashes.begin(), hashes.end());
  std::vector<const std::string*> found;
  for (std::size_t i = 0; i < hashes.size(); ++i) {
    const bool likeBefore = i > 0 && hashes[i - 1].first == hashes[i].first;
    const bool likeAfter = i + 1 < hashes.size() && hashes[i + 1].first == hashes[i].first;
    if (likeBefore || likeAfter) {
      found.push_back(hashes[i].second);
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace

std::vector<Collision> Collisions(const std::vector<std::string>& paths) {
  std::vector<Collision> collisions;
  // an attacker can make a hash table slow by chosen names
  std::map<std::string, const std::string*> firsts;
  for (const std::string* path : WithEqualHashes(paths)) {
    const auto [first, isNew] = firsts.emplace(KeyOf(*path), path);
    if (!isNew && *first->second != *path) {
      const bool differsInCase = Mapped(LastOf(*first->second), 0) != Mapped(LastOf(*path), 0);
      collisions.push_back({*first->second, *path, differsInCase});
    }
  }
  return collisions;
}

std::string ShellQuoted(const std::string& text) {
  constexpr char kPlain[] =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+,:@%=";
  if (!text.empty() && text.find_first_not_of(kPlain) == std::string::npos) {
    return text;
  }
  std::string quoted = "'";
  for (const char byte : text) {
    quoted += byte == '\'' ? std::string("'\\''") : std::string(1, byte);
  }
  return quoted + "'";
}

std::string ParentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string LastOf(const std::string& path) {
  return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

namespace {

constexpr std::size_t kMostChanges = 2;

/// Returns the number of letters to insert, remove or replace in `from` to get `to`.
std::size_t Changes(const std::string& from, const std::string& to) {
  std::vector<std::size_t> row(to.length() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < from.length(); ++i) {
    std::size_t diagonal = row[0]++;
    for (std::size_t j = 0; j < to.length(); ++j) {
      const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

}  // namespace

std::optional<std::string> Suggestion(const std::string& typed,
                                      const std::vector<std::string>& words) {
  std::optional<std::string> nearest;
  std::size_t fewest = std::min(kMostChanges + 1, typed.length());
  for (const std::string& word : words) {
    const std::size_t changes = Changes(typed, word);
    if (changes < fewest) {
      fewest = changes;
      nearest = word;
    }
  }
  return nearest;
}

std::string TimeText(std::time_t seconds) {
  std::tm time = {};
  gmtime_r(&seconds, &time);
  char text[32] = {};
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &time);
  return text;
}

}  // namespace webresources
