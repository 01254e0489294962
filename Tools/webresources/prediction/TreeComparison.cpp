#include "prediction/TreeComparison.h"

#include <algorithm>
#include <set>

#include "support/Progress.h"
#include "support/Text.h"

namespace webresources {

namespace {

using Kind = Difference::Kind;
using Type = FileItem::Type;

/// Returns whether both values are present and differ.
template <typename Value>
bool AreDifferent(const std::optional<Value>& expected, const std::optional<Value>& actual) {
  return expected && actual && expected != actual;
}

class Comparison {
 public:
  explicit Comparison(std::optional<unsigned int> owner) : owner_(owner) {}

  Differences Run(const FileTree& expected, const FileTree& actual) {
    auto e = expected.begin();
    auto a = actual.begin();
    while (e != expected.end() || a != actual.end()) {
      ThrowIfInterrupted("compare", "the installed files");
      const int order = e == expected.end() ? 1 : a == actual.end() ? -1 : e->path.compare(a->path);
      if (order < 0) {
        Add(Kind::Missing, "it is missing", *e, std::nullopt);
      } else if (order > 0) {
        Add(Kind::Extra, "it does not belong there", std::nullopt, *a);
      } else {
        CompareItems(*e, *a);
      }
      e += order <= 0 ? 1 : 0;
      a += order >= 0 ? 1 : 0;
    }
    return std::move(differences_);
  }

 private:
  void CompareItems(const FileItem& expected, const FileItem& actual) {
    if (expected.type != actual.type) {
      Add(Kind::Type,
          expected.type == Type::Directory ? "it is not a directory" : "it is not a regular file",
          expected, actual);
      return;
    }
    if (expected.type == Type::File) {
      CompareContents(expected, actual);
    }
    if (AreDifferent(expected.mode, actual.mode)) {
      Add(Kind::Mode, "its mode is " + Octal(*actual.mode) + " instead of " + Octal(*expected.mode),
          expected, actual);
    }
    if (AreDifferent(owner_, actual.owner)) {
      Add(Kind::Owner,
          "its owner is user " + std::to_string(*actual.owner) + " instead of " +
              std::to_string(*owner_),
          expected, actual);
    }
  }

  void CompareContents(const FileItem& expected, const FileItem& actual) {
    if (expected.size != actual.size) {
      Add(Kind::Content,
          "it has " + std::to_string(actual.size) + " bytes instead of " +
              std::to_string(expected.size),
          expected, actual);
    } else if (AreDifferent(expected.sha256, actual.sha256) ||
               AreDifferent(expected.crc32, actual.crc32)) {
      Add(Kind::Content, "it has other content", expected, actual);
    }
  }

  void Add(Kind kind, const std::string& reason, const std::optional<FileItem>& expected,
           const std::optional<FileItem>& actual) {
    differences_.push_back({kind, (expected ? expected : actual)->path, reason, expected, actual});
  }

  const std::optional<unsigned int> owner_;
  Differences differences_;
};

/// Returns whether a directory above `path` is one of `directories`.
bool IsBelow(std::string path, const std::set<std::string>& directories) {
  while (!(path = ParentOf(path)).empty()) {
    if (directories.count(path) != 0) {
      return true;
    }
  }
  return false;
}

/// Returns `differences` without the elements for which `isLeftOut` is true.
template <typename Predicate>
Differences Filtered(Differences differences, Predicate isLeftOut) {
  differences.erase(std::remove_if(differences.begin(), differences.end(), isLeftOut),
                    differences.end());
  return differences;
}

}  // namespace

Differences Compare(const FileTree& expected, const FileTree& actual,
                    std::optional<unsigned int> owner) {
  return Comparison(owner).Run(expected, actual);
}

Differences OfContent(Differences differences) {
  return Filtered(std::move(differences),
                  [](const Difference& one) { return one.kind >= Kind::Mode; });
}

std::vector<std::string> PathsForSomeVolumesOnly(const FileTree& tree) {
  std::vector<std::string> all;
  std::set<std::string> found;
  for (const FileItem& item : tree) {
    all.push_back(item.path);
    if (!IsUtf8(item.path)) {
      found.insert(item.path);
    }
  }
  for (const Collision& collision : Collisions(all)) {
    found.insert({collision.first, collision.second});
  }
  return {found.begin(), found.end()};
}

Differences Without(const std::vector<std::string>& paths, Differences differences) {
  const std::set<std::string> left(paths.begin(), paths.end());
  return Filtered(std::move(differences), [&left](const Difference& one) {
    return left.count(one.path) != 0 || IsBelow(one.path, left);
  });
}

Differences Topmost(Differences differences) {
  Differences topmost;
  std::set<std::string> whole;
  for (Difference& difference : differences) {
    const bool isWhole = difference.kind < Kind::Content;
    if (isWhole && IsBelow(difference.path, whole)) {
      continue;
    }
    if (isWhole) {
      whole.insert(difference.path);
    }
    topmost.push_back(std::move(difference));
  }
  return topmost;
}

namespace {

const char* NameOfChange(Kind kind) {
  return kind == Kind::Missing ? "removed" : kind == Kind::Extra ? "added" : "changed";
}

bool IsFile(const std::optional<FileItem>& item) {
  return item && item->type == FileItem::Type::File;
}

std::string Sizes(const Difference& difference) {
  std::string text;
  if (IsFile(difference.expected)) {
    text += std::to_string(difference.expected->size);
  }
  if (IsFile(difference.actual)) {
    text += (text.empty() ? "" : " -> ") + std::to_string(difference.actual->size);
  }
  return text.empty() ? "directory" : text + " bytes";
}

Json ToJson(const Difference& difference) {
  Json json = {{"change", NameOfChange(difference.kind)}};
  PutName(json, "path", difference.path);
  if (IsFile(difference.expected)) {
    json["sizeBefore"] = difference.expected->size;
  }
  if (IsFile(difference.actual)) {
    json["sizeAfter"] = difference.actual->size;
  }
  return json;
}

void Count(const Difference& difference, TreeChanges& changes) {
  if (!IsFile(difference.expected) && !IsFile(difference.actual)) {
    return;
  }
  std::size_t& count = difference.kind == Kind::Missing ? changes.removed
                       : difference.kind == Kind::Extra ? changes.added
                                                        : changes.changed;
  ++count;
}

}  // namespace

TreeChanges ChangesBetween(const FileTree& before, const FileTree& after) {
  TreeChanges changes;
  // An empty tree means a missing directory. The top of a tree is therefore no change.
  changes.differences = Filtered(OfContent(Compare(before, after)),
                                 [](const Difference& one) { return one.path == "."; });
  std::size_t kept = FilesOf(before);
  for (const Difference& difference : changes.differences) {
    Count(difference, changes);
    kept -= IsFile(difference.expected) ? 1 : 0;
  }
  changes.unchanged = kept;
  return changes;
}

void ReportChanges(const TreeChanges& changes, Report& report) {
  Json& list = report.details["changes"] = Json::array();
  for (const Difference& difference : changes.differences) {
    list.push_back(ToJson(difference));
    report.listing.push_back(std::string(NameOfChange(difference.kind)) + "  " + difference.path +
                             "  (" + Sizes(difference) + ")");
  }
  report.details["files"] = {{"added", changes.added},
                             {"changed", changes.changed},
                             {"removed", changes.removed},
                             {"unchanged", changes.unchanged}};
  report.summary.push_back("files: " + std::to_string(changes.added) + " added, " +
                           std::to_string(changes.changed) + " changed, " +
                           std::to_string(changes.removed) + " removed, " +
                           std::to_string(changes.unchanged) + " unchanged");
}

}  // namespace webresources
