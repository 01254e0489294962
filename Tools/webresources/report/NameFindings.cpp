#include "NameFindings.h"

#include <algorithm>

#include "Names.h"

void AddCollisions(Findings& findings, const std::vector<std::string>& paths) {
  for (const names::Collision& collision : names::Collisions(paths)) {
    Add(findings, collision.differsInCase ? "case-collision" : "normalization-collision",
        collision.second,
        "it differs from " + collision.first + " in " +
            (collision.differsInCase ? "case" : "Unicode normalization") + " only");
  }
}

std::string UncleanPart(const std::string& name) {
  if (name.front() == '/') {
    return "starts with \"/\", which stays inside for the installer but not for everyone";
  }
  if (name.find('\\') != std::string::npos) {
    return "has a backslash, which is no separator: it becomes part of the file's name";
  }
  // Some packers begin each name with "./", which every reader ignores.
  const std::size_t start = name.compare(0, 2, "./") == 0 ? 2 : 0;
  const std::string framed = "/" + name.substr(start) + (name.back() == '/' ? "" : "/");
  for (const char* part : {"//", "/./", "/../"}) {
    if (framed.find(part) != std::string::npos) {
      return "has an empty, \".\" or \"..\" component";
    }
  }
  const bool hasControl = std::any_of(name.begin(), name.end(), [](char byte) {
    return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f;
  });
  return hasControl ? "has a control character" : "";
}
