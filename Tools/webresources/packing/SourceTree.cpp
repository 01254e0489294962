#include "packing/SourceTree.h"

#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

#include "InstallerConstants.h"
#include "PackageReader.h"
#include "report/Rules.h"
#include "support/Error.h"
#include "support/Files.h"
#include "support/Text.h"

namespace webresources {

namespace {

/// Components with a certain begin and end, and the program that makes such files.
struct Junk {
  std::string_view begin;
  std::string_view end;  ///< Without data if the component must equal `begin`.
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

/// Debian 12's zip library cannot read sizes and offsets of Zip64.
constexpr std::uint64_t kTooLarge = std::uint64_t{4} << 30U;

class Collector {
 public:
  explicit Collector(const Selection& selection) : selection_(selection) {}

  SourceTree Collect(const std::string& path) {
    CollectDirectory(path, "", StatusOf(path));
    std::sort(tree_.items.begin(), tree_.items.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    RefuseCollisions();
    RefuseSize();
    RefuseMissing();
    return std::move(tree_);
  }

 private:
  void CollectDirectory(const std::string& path, const std::string& prefix,
                        const struct stat& status) {
    const std::pair<dev_t, ino_t> identity(status.st_dev, status.st_ino);
    if (!above_.insert(identity).second) {
      Refuse(kLinkBroken, prefix, "it points to a directory that contains it");
      return;
    }
    for (const std::string& name : NamesIn(path)) {
      CollectEntry(path + "/" + name, prefix + name);
    }
    above_.erase(identity);
  }

  void CollectEntry(const std::string& path, const std::string& name) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) {
      throw Error::FromErrno("read", path);
    }
    if (IsLeftOut(name)) {
      return;
    }
    if (S_ISLNK(status.st_mode)) {
      if (!selection_.followLinks) {
        Refuse(kLinkEntry, name, "it is a symbolic link, and the installer makes none");
        return;
      }
      if (stat(path.c_str(), &status) != 0) {
        Refuse(kLinkBroken, name, "what it points to does not exist");
        return;
      }
    }
    if (S_ISDIR(status.st_mode)) {
      AddItem(name + "/", path, true, 0);
      CollectDirectory(path, name + "/", status);
    } else if (S_ISREG(status.st_mode)) {
      AddItem(name, path, false, static_cast<std::uint64_t>(status.st_size));
    } else {
      Refuse(kSpecialFile, name, "it is neither a file nor a directory");
    }
  }

  bool IsLeftOut(const std::string& name) {
    const auto junk = JunkReason(LastOf(name));
    if (junk && FindMatching(selection_.kept, name) == nullptr) {
      tree_.leftOut.push_back({name, "junk: " + *junk});
      return true;
    }
    const std::string* const glob = FindMatching(selection_.excluded, name);
    if (glob != nullptr) {
      tree_.leftOut.push_back({name, "excluded by " + *glob});
    }
    return glob != nullptr;
  }

  /// Returns the first of `globs` that matches the path `name` or, without a "/", the last
  /// component.
  static const std::string* FindMatching(const std::vector<std::string>& globs,
                                         const std::string& name) {
    const auto found = std::find_if(globs.begin(), globs.end(), [&name](const std::string& glob) {
      const bool isPath = glob.find('/') != std::string::npos;
      return fnmatch(glob.c_str(), name.c_str(), 0) == 0 ||
             (!isPath && fnmatch(glob.c_str(), LastOf(name).c_str(), 0) == 0);
    });
    return found != globs.end() ? &*found : nullptr;
  }

  void AddItem(const std::string& name, const std::string& path, bool isDirectory,
               std::uint64_t size) {
    if (PackageReader::KindOf(name.c_str(), name.length()) == PackageEntry::Kind::NameTooLong) {
      Refuse(kNameTooLong, name, "its name has " + std::to_string(name.length()) + " bytes");
    } else if (!IsUtf8(name)) {
      Refuse(kNameNotUtf8, name, "its name is not UTF-8, which a volume may refuse");
    } else if (const auto part = UncleanPart(name)) {
      Refuse(kNameUnclean, name, *part);
    }
    if (size >= kTooLarge) {
      Refuse(kPackageTooLarge, name, "it has " + std::to_string(size) + " bytes");
    } else {
      tree_.bytes += size;
    }
    tree_.items.push_back({name, path, isDirectory, size});
  }

  /// Data that does not shrink is stored, so the package may be as large as the files together.
  void RefuseSize() {
    if (tree_.bytes >= kTooLarge) {
      Refuse(kPackageTooLarge, kPackageFileName,
             "its files have " + std::to_string(tree_.bytes) + " bytes together");
    }
  }

  void RefuseMissing() {
    if (tree_.items.empty()) {
      Refuse(kPackageEmpty, kPackageFileName, "there is nothing to pack");
    }
    for (const std::string& name : selection_.required) {
      const auto isRequired = [&name](const SourceTree::Item& item) { return item.name == name; };
      if (std::none_of(tree_.items.begin(), tree_.items.end(), isRequired)) {
        Refuse(kRequiredMissing, name, "no file of this name is packed");
      }
    }
  }

  void RefuseCollisions() {
    std::vector<std::string> paths;
    for (const SourceTree::Item& item : tree_.items) {
      paths.push_back(item.name.substr(0, item.name.length() - (item.isDirectory ? 1 : 0)));
    }
    AddCollisions(tree_.refused, paths);
  }

  void Refuse(const Rule& rule, const std::string& name, const std::string& reason) {
    Add(tree_.refused, rule, name, reason);
  }

  const Selection& selection_;
  SourceTree tree_;
  std::set<std::pair<dev_t, ino_t>> above_;  ///< The directories above the current entry.
};

}  // namespace

SourceTree CollectSource(const std::string& path, const Selection& selection) {
  return Collector(selection).Collect(path);
}

std::optional<std::string> JunkReason(const std::string& path) {
  for (std::size_t start = 0; start < path.length();) {
    const std::size_t end = std::min(path.find('/', start), path.length());
    if (const char* owner = JunkOwner(std::string_view(path).substr(start, end - start))) {
      return owner;
    }
    start = end + 1;
  }
  return std::nullopt;
}

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
