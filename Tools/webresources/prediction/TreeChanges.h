#ifndef TOOLS_WEBRESOURCES_PREDICTION_TREECHANGES_H_
#define TOOLS_WEBRESOURCES_PREDICTION_TREECHANGES_H_

#include "Report.h"
#include "TreeComparison.h"

/// What becomes of the files of a tree when another tree takes its place.
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

/// Puts all changes into the members `changes` and `files` of the document, and a screen of them
/// into the listing.
void ReportChanges(const TreeChanges& changes, Report& report);

#endif  // TOOLS_WEBRESOURCES_PREDICTION_TREECHANGES_H_
