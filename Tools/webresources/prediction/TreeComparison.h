#ifndef TOOLS_WEBRESOURCES_PREDICTION_TREECOMPARISON_H_
#define TOOLS_WEBRESOURCES_PREDICTION_TREECOMPARISON_H_

#include <string>
#include <vector>

#include "prediction/FileTree.h"
#include "report/Report.h"

namespace webresources {

/// One way in which a tree is not as expected.
struct Difference {
  enum class Kind { Missing, Extra, Type, Content, Mode, Owner };
  Kind kind;
  std::string path;                  ///< As FileItem::path.
  std::string reason;                ///< For people.
  std::optional<FileItem> expected;  ///< None if extra.
  std::optional<FileItem> actual;    ///< None if missing.
};

using Differences = std::vector<Difference>;

/// Compares two trees. The differences are in the order of their paths. An attribute (checksum,
/// mode, owner) that one of the two does not state is not compared. A CRC-32 finds a defect, but
/// not a file that somebody has made to have the same one.
Differences Compare(const FileTree& expected, const FileTree& actual);

/// `differences` without those of mode and owner, which not the package but the caller decides.
Differences OfContent(Differences differences);

/// `differences` without those below a directory that is missing, extra or of another type itself.
Differences Topmost(Differences differences);

/// The paths of `tree` that some volumes cannot keep apart or refuse: a Mac's, usually. These are
/// paths that are not UTF-8, and paths that differ from another one in case or in Unicode
/// normalization only.
std::vector<std::string> PathsForSomeVolumesOnly(const FileTree& tree);

/// `differences` without those at `paths` and below them.
Differences Without(const std::vector<std::string>& paths, Differences differences);

/// The changes of the files of a tree that another tree replaces.
struct TreeChanges {
  Differences differences;  ///< Of content alone: modes and owners are no changes.
  /// Files. One that becomes a directory, or the other way round, is changed.
  std::size_t added = 0;
  std::size_t changed = 0;
  std::size_t removed = 0;
  std::size_t unchanged = 0;
};

/// Compares `before` with `after`.
TreeChanges ChangesBetween(const FileTree& before, const FileTree& after);

/// Puts all changes into the members `changes` and `files` of the document, and into the listing.
void ReportChanges(const TreeChanges& changes, Report& report);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_PREDICTION_TREECOMPARISON_H_
