#include "TreeChanges.h"

#include <algorithm>

namespace {

using Kind = Difference::Kind;

constexpr std::size_t kScreen = 15;  // lines of changes for people

const char* NameOf(Kind kind) {
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
  Json json = {{"change", NameOf(difference.kind)}};
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
  changes.differences = OfContent(Compare(before, after));
  // A tree without its top is no tree yet, or no longer: that is no change in it.
  changes.differences.erase(std::remove_if(changes.differences.begin(), changes.differences.end(),
                                           [](const Difference& one) { return one.path == "."; }),
                            changes.differences.end());
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
    if (list.size() <= kScreen) {
      report.listing.push_back(std::string(NameOf(difference.kind)) + "  " + difference.path +
                               "  (" + Sizes(difference) + ")");
    }
  }
  if (list.size() > kScreen) {
    report.listing.push_back("… and " + std::to_string(list.size() - kScreen) +
                             " more: --json lists all");
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
