#include "commands/Diff.h"

#include "prediction/BundleInspection.h"
#include "prediction/TreeComparison.h"

namespace webresources {

namespace {

BundleInspection Inspect(const std::string& path, const DiffOptions& options, Report& report) {
  BundleInspection bundle = InspectBundle(path, options.maxSize);
  Append(report.findings, ErrorsOf(bundle.findings));
  return bundle;
}

}  // namespace

Report Diff(const DiffOptions& options) {
  Report report("diff");
  const BundleInspection before = Inspect(options.before, options, report);
  const BundleInspection after = Inspect(options.after, options, report);
  const TreeChanges changes = ChangesBetween(before.tree, after.tree);
  ReportChanges(changes, report);
  report.SetStatus();
  if (!changes.differences.empty()) {
    report.status = kHasFindings;
  }
  return report;
}

}  // namespace webresources
