#include "Install.h"

#include <sys/stat.h>

#include "InstallLock.h"
#include "MachineState.h"
#include "Repair.h"
#include "Step.h"

namespace {

void Conclude(const char* outcome, int status, const std::string& text, Report& report) {
  report.details["outcome"] = outcome;
  report.status = status;
  report.summary.push_back(text);
}

void WriteReceiptOf(const ExpectedBundle& bundle) {
  WriteReceipt({bundle.UpdateId(), bundle.packageSha256, "", "", bundle.tree});
}

void RunAndVerify(const InstallOptions& options, const ExpectedBundle& bundle,
                  const std::string& step, const InstallLock& lock, const Installation& before,
                  Report& report) {
  RemoveReceipt();  // of what is about to go
  RepairWhatARunKeeps(before);
  const std::string end = RunStep(step, lock.descriptor());
  if (!end.empty()) {
    Add(report.findings, "step-failed", step, end);
  }
  const MachineState after = CompareWithBundle(options.root, bundle, options.ignoresModes);
  ReportInstallation(after.installation, report);
  report.findings.insert(report.findings.end(), after.findings.begin(), after.findings.end());
  if (!report.findings.empty()) {
    Conclude("failed", kHasFindings, "the installation is not as it should be", report);
    return;
  }
  WriteReceiptOf(bundle);
  Conclude("installed", kAsItShouldBe,
           "installed: update " + std::to_string(bundle.UpdateId()) + ", " +
               std::to_string(FilesOf(bundle.tree)) + " files, " +
               std::to_string(BytesOf(bundle.tree)) + " bytes",
           report);
}

void Follow(const InstallPlan& plan, const InstallOptions& options, const ExpectedBundle& bundle,
            const std::string& step, const InstallLock& lock, Report& report) {
  if (plan.outcome == InstallPlan::Outcome::Install) {
    RunAndVerify(options, bundle, step, lock, plan.installation, report);
    return;
  }
  ReportInstallation(plan.installation, report);
  report.findings = plan.findings;
  if (plan.outcome == InstallPlan::Outcome::Refuse) {
    Conclude("refused", kHasFindings, "nothing is installed", report);
    return;
  }
  if (plan.needsReceipt) {
    WriteReceiptOf(bundle);
  }
  Conclude("up-to-date", kAsItShouldBe, "up to date", report);
}

}  // namespace

Report Install(const InstallOptions& options) {
  Report report("install");
  umask(022);
  const ExpectedBundle bundle = ReadBundle(options);
  if (!bundle.errors.empty()) {  // before the lock, which makes directories
    report.findings = bundle.errors;
    Conclude("refused", kHasFindings, "nothing is installed", report);
    return report;
  }
  const std::string step = StepOf(bundle.files);
  const InstallLock lock(options.wait);
  Follow(MakePlan(options, bundle), options, bundle, step, lock, report);
  return report;
}
