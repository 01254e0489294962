#include "commands/Diff.h"

#include "prediction/BundleInspection.h"
#include "prediction/TreeComparison.h"

namespace webresources {

namespace {

FileTree Inspect(const std::string& path, const DiffOptions& options, Report& report) {
  FileTree tree;
  Append(report.findings, ErrorsOf(InspectBundle(path, options.limits, &tree).findings));
  return tree;
}

}  // namespace

Report Diff(const DiffOptions& options) {
  Report report("diff");
  const FileTree before = Inspect(options.before, options, report);
  const FileTree after = Inspect(options.after, options, report);
  const TreeChanges changes = ChangesBetween(before, after);
  ReportChanges(changes, report);
  report.SetStatus();
  if (!changes.differences.empty()) {
    report.status = kHasFindings;
  }
  return report;
}

}  // namespace webresources
