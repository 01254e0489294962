#include "commands/Commands.h"
#include "prediction/BundleInspection.h"
#include "prediction/TreeComparison.h"

namespace webresources {

Report Diff(const std::string& before, const std::string& after, const Limits& limits) {
  Report report("diff");
  FileTree trees[2];
  for (const auto& [path, tree] : {std::pair(before, &trees[0]), std::pair(after, &trees[1])}) {
    Append(report.findings, ErrorsOf(InspectBundle(path, limits, tree).findings));
  }
  const TreeChanges changes = ChangesBetween(trees[0], trees[1]);
  ReportChanges(changes, report);
  report.SetStatus();
  if (!changes.differences.empty()) {
    report.status = kHasFindings;
  }
  return report;
}

}  // namespace webresources
