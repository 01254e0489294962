#ifndef TOOLS_WEBRESOURCES_SUPPORT_TEXT_H_
#define TOOLS_WEBRESOURCES_SUPPORT_TEXT_H_

#include <ctime>
#include <optional>
#include <string>
#include <vector>

namespace webresources {

/// Names for people, terminals and file systems. Names are byte strings. Paths have "/" between
/// their components.

/// The longest component of a path that file systems take, in bytes.
constexpr std::size_t kComponentLimit = 255;

bool IsUtf8(const std::string& name);
bool IsAscii(const std::string& name);

/// Returns `name` in a form that is safe for a terminal: bytes that are not UTF-8, and control or
/// invisible formatting characters, become \xNN for each byte.
std::string Printable(const std::string& name);

/// The text of a JSON document with every control or invisible formatting character escaped as
/// \uNNNN, except for line breaks. Requires: `json` is UTF-8, and such characters are in strings
/// only.
std::string JsonPrintable(const std::string& json);

/// `bytes` in hexadecimal, two lower-case digits a byte.
std::string Hexadecimal(const std::string& bytes);

/// The bytes that Hexadecimal() made `text` of. Returns an empty string if `text` is not so made.
std::string FromHexadecimal(const std::string& text);

/// Returns the form of `name` that all names share which a file system without case and
/// normalization cannot distinguish. Returns a name that is not UTF-8 unchanged.
std::string Folded(const std::string& name);

/// Two paths of one directory that such a file system takes for one.
struct Collision {
  std::string first;
  std::string second;
  bool differsInCase;  ///< False: in normalisation only.
};

/// Returns all collisions among `paths`, each path with the first path of the same form. Paths
/// below colliding directories are not compared. Requires: no path ends in "/".
std::vector<Collision> Collisions(const std::vector<std::string>& paths);

/// Returns `text` as one word of a shell's command line: in single quotes if that is needed.
std::string ShellQuoted(const std::string& text);

/// ParentOf() returns `path` without the last component and the "/" before; LastOf() returns the
/// last component.
std::string ParentOf(const std::string& path);
std::string LastOf(const std::string& path);

/// `seconds` since 1970 as ISO 8601 writes them, in UTC.
std::string TimeText(std::time_t seconds);

/// Returns the word of `words` that is nearest to `typed`: the word with the fewest changed
/// letters, at most two, and fewer than the letters of `typed`. Returns nothing if there is none.
std::optional<std::string> Suggestion(const std::string& typed,
                                      const std::vector<std::string>& words);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_SUPPORT_TEXT_H_
