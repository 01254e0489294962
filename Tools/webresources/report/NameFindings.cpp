#include "report/NameFindings.h"

#include <algorithm>

#include "report/Rules.h"
#include "support/Text.h"

namespace webresources {

void AddCollisions(Findings& findings, const std::vector<std::string>& paths) {
  for (const Collision& collision : Collisions(paths)) {
    Add(findings, collision.differsInCase ? kCaseCollision : kNormalizationCollision,
        collision.second,
        "it differs from " + collision.first + " in " +
            (collision.differsInCase ? "case" : "Unicode normalization") + " only");
  }
}

std::optional<std::string> UncleanPart(const std::string& name) {
  if (name.front() == '/') {
    return "its name begins with \"/\": other tools may write it outside the directory";
  }
  if (name.find('\\') != std::string::npos) {
    return "its name has a backslash, which the installer does not treat as a separator";
  }
  // Some packers begin each name with "./". Every reader ignores this prefix.
  const std::size_t start = name.compare(0, 2, "./") == 0 ? 2 : 0;
  const std::string framed = "/" + name.substr(start) + (name.back() == '/' ? "" : "/");
  for (const char* part : {"//", "/./", "/../"}) {
    if (framed.find(part) != std::string::npos) {
      return "its name has an empty, \".\" or \"..\" component";
    }
  }
  const bool hasControl = std::any_of(name.begin(), name.end(), [](char byte) {
    return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f;
  });
  return hasControl ? std::optional("its name has a control character") : std::nullopt;
}

}  // namespace webresources
