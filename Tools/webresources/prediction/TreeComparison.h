#ifndef TOOLS_WEBRESOURCES_PREDICTION_TREECOMPARISON_H_
#define TOOLS_WEBRESOURCES_PREDICTION_TREECOMPARISON_H_

#include <string>
#include <vector>

#include "prediction/FileTree.h"
#include "report/Report.h"

namespace webresources {

/// One difference between a tree and the expected tree.
struct Difference {
  enum class Kind { Missing, Extra, Type, Content, Mode, Owner };
  Kind kind;
  std::string path;                  ///< As FileItem::path.
  std::string reason;                ///< The description for people.
  std::optional<FileItem> expected;  ///< Absent if extra.
  std::optional<FileItem> actual;    ///< Absent if missing.
};

using Differences = std::vector<Difference>;

/// Compares two trees. The differences are in the order of their paths. A checksum or mode that is
/// absent in one of the trees is not compared. A CRC-32 detects accidental damage, but not a file
/// that was forged to have the same CRC-32. Every entry must have the owner `owner`, if given.
/// Throws Error if the user stops the command; see CatchInterruptions().
Differences Compare(const FileTree& expected, const FileTree& actual,
                    std::optional<unsigned int> owner = std::nullopt);

/// Returns `differences` without the differences of mode and owner, because a package has neither.
Differences OfContent(Differences differences);

/// Returns `differences` without the entries below a directory that is missing, extra or of another
/// type.
Differences Topmost(Differences differences);

/// Returns the paths of `tree` that some volumes, for example most volumes of a Mac, refuse or
/// confuse. These are paths that are not UTF-8, and paths that differ from another path only in
/// case or in Unicode normalization.
std::vector<std::string> PathsForSomeVolumesOnly(const FileTree& tree);

/// Returns `differences` without the entries at `paths` and below `paths`.
Differences Without(const std::vector<std::string>& paths, Differences differences);

/// The changes of the files if one tree is replaced by another tree.
struct TreeChanges {
  Differences differences;  ///< Without modes and owners.
  /// The numbers of files. A file that becomes a directory is a changed file, and so is a directory
  /// that becomes a file.
  std::size_t added = 0;
  std::size_t changed = 0;
  std::size_t removed = 0;
  std::size_t unchanged = 0;
};

/// Compares `before` with `after`.
TreeChanges ChangesBetween(const FileTree& before, const FileTree& after);

/// Adds all changes to the members `changes` and `files` of the JSON document, and to the listing.
void ReportChanges(const TreeChanges& changes, Report& report);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_PREDICTION_TREECOMPARISON_H_
