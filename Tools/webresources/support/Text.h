#ifndef TOOLS_WEBRESOURCES_SUPPORT_TEXT_H_
#define TOOLS_WEBRESOURCES_SUPPORT_TEXT_H_

#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace webresources {

/// Names for people, terminals and file systems. Names are byte strings. Paths have "/" between
/// their components.

/// The longest component of a path in file systems, in bytes.
constexpr std::size_t kComponentLimit = 255;

bool IsUtf8(const std::string& name);
bool IsAscii(const std::string& name);

/// Returns `name` in a form that is safe for a terminal: bytes that are not UTF-8, and control or
/// invisible formatting characters, become \xNN for each byte.
std::string Printable(const std::string& name);

/// Returns `bytes` in hexadecimal, two lower-case digits for each byte.
std::string Hexadecimal(const std::string& bytes);

/// Returns the four octal digits of `mode`, which is at most 07777.
std::string Octal(unsigned int mode);

/// Returns the bytes for a text of Hexadecimal(). Returns nothing for any other text.
std::optional<std::string> FromHexadecimal(const std::string& text);

/// Returns the folded form of `name`. Two names with the same folded form are equal for a file
/// system that ignores case and normalization. Returns a name that is not UTF-8 unchanged.
std::string Folded(const std::string& name);

/// Two paths of one directory that are equal for such a file system.
struct Collision {
  std::string first;
  std::string second;
  bool differsInCase;  ///< False: only normalization differs.
};

/// Returns all collisions among `paths`. Each path is compared with the first path of the same
/// folded form. Paths below colliding directories are not compared. Requires: no path ends in "/".
std::vector<Collision> Collisions(const std::vector<std::string>& paths);

/// Returns `text` as one word of a shell's command line, in single quotes if necessary.
std::string ShellQuoted(const std::string& text);

/// ParentOf() returns `path` without the last component and the "/" before; LastOf() returns the
/// last component.
std::string ParentOf(const std::string& path);
std::string LastOf(const std::string& path);

/// Returns `seconds` since 1970 in the form of ISO 8601, in UTC.
std::string TimeText(std::time_t seconds);

/// Returns the word of `words` that differs from `typed` in the fewest letters: at most two, and
/// fewer than the letters of `typed`. Returns nothing if no word is similar.
std::optional<std::string> Suggestion(const std::string& typed,
                                      const std::vector<std::string>& words);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_SUPPORT_TEXT_H_
