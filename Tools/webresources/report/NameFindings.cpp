#include "NameFindings.h"

#include <algorithm>
#include <string_view>

#include "Names.h"

namespace {

/// Components that begin and end in certain ways, and who leaves such files behind.
struct Junk {
  std::string_view begin;
  std::string_view end;  ///< Without data if the component is `begin` and nothing else.
  const char* owner;

  bool Is(std::string_view component) const {
    if (end.data() == nullptr) {
      return component == begin;
    }
    return component.length() >= begin.length() + end.length() &&
           component.substr(0, begin.length()) == begin &&
           component.substr(component.length() - end.length()) == end;
  }
};

constexpr std::string_view kWhole;
constexpr char kMacOs[] = "macOS keeps it for itself";
constexpr char kWindows[] = "Windows keeps it for itself";
constexpr char kVersionControl[] = "it belongs to a version-control system";
constexpr char kBackup[] = "it is an editor's backup";

constexpr Junk kJunk[] = {
    {".DS_Store", kWhole, kMacOs},
    {"__MACOSX", kWhole, kMacOs},
    {"._", "", kMacOs},
    {"Thumbs.db", kWhole, kWindows},
    {"desktop.ini", kWhole, kWindows},
    {"Desktop.ini", kWhole, kWindows},
    {".git", kWhole, kVersionControl},
    {".svn", kWhole, kVersionControl},
    {".hg", kWhole, kVersionControl},
    {".bzr", kWhole, kVersionControl},
    {"_darcs", kWhole, kVersionControl},
    {"CVS", kWhole, kVersionControl},
    {"", "~", kBackup},
    {".", ".swp", kBackup},
    {".", ".swo", kBackup},
    {"#", "#", kBackup},
};

const char* JunkOwner(std::string_view component) {
  const auto* const junk =
      std::find_if(std::begin(kJunk), std::end(kJunk),
                   [component](const Junk& candidate) { return candidate.Is(component); });
  return junk != std::end(kJunk) ? junk->owner : nullptr;
}

}  // namespace

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
    return "its name begins with \"/\": other tools may write it outside the directory";
  }
  if (name.find('\\') != std::string::npos) {
    return "its name has a backslash, which the installer does not treat as a separator";
  }
  // Some packers begin each name with "./", which every reader ignores.
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
  return hasControl ? "its name has a control character" : "";
}

std::string JunkReason(const std::string& path) {
  for (std::size_t start = 0; start < path.length();) {
    const std::size_t end = std::min(path.find('/', start), path.length());
    if (const char* owner = JunkOwner(std::string_view(path).substr(start, end - start))) {
      return owner;
    }
    start = end + 1;
  }
  return {};
}
