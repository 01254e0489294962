#include "commands/Install.h"

#include <sys/stat.h>

#include "machine/HostCheck.h"
#include "machine/InstallLock.h"
#include "machine/InstallPlan.h"
#include "machine/InstallerProcess.h"
#include "report/Rules.h"
#include "support/Error.h"

namespace webresources {

namespace {

void Conclude(const char* outcome, int status, const std::string& text, Report& report) {
  report.details["outcome"] = outcome;
  report.status = status;
  report.summary.push_back(text);
}

void WriteReceiptOf(const ExpectedBundle& bundle, const std::string& prefix) {
  WriteReceipt(prefix, {bundle.UpdateId(), bundle.packageSha256, "", "", bundle.tree});
}

void RunAndVerify(const InstallOptions& options, const ExpectedBundle& bundle,
                  const std::string& step, const InstallLock& lock, const Installation& before,
                  Report& report) {
  RemoveReceipt(options.hostRoot);  // of what is about to go
  RepairWhatARunKeeps(before, options.ignoresModes);
  const std::string end = RunStep(step, lock.descriptor());
  if (!end.empty()) {
    Add(report.findings, kStepFailed, step, end);
  }
  const MachineState after = CompareWithBundle(options.hostRoot, bundle, options.ignoresModes);
  ReportInstallation(after.installation, report);
  Append(report.findings, after.findings);
  const bool isRight = report.findings.empty();
  Append(report.findings, after.hostFindings);
  if (!isRight) {
    Conclude("failed", kHasFindings, "the installation is not as it should be", report);
    return;
  }
  WriteReceiptOf(bundle, options.hostRoot);
  Conclude("installed", kAsItShouldBe,
           "installed: update " + std::to_string(bundle.UpdateId()) + ", " +
               std::to_string(FilesOf(bundle.tree)) + " files, " +
               std::to_string(BytesOf(bundle.tree)) + " bytes",
           report);
  report.SetStatus();  // the host's directories can have findings
}

void Refuse(const InstallPlan& plan, Report& report) {
  ReportInstallation(plan.installation, report);
  report.findings = plan.findings;
  const auto updateId = UpdateIdOf(plan.installation.record);
  Conclude("refused", kHasFindings,
           updateId ? "refused: update " + std::to_string(*updateId) + " stays installed"
                    : "refused: nothing is installed",
           report);
}

void LeaveAlone(const InstallPlan& plan, const ExpectedBundle& bundle, Report& report) {
  ReportInstallation(plan.installation, report);
  if (plan.needsReceipt) {
    WriteReceiptOf(bundle, plan.installation.hostRoot);
  }
  Conclude("up-to-date", kAsItShouldBe, "up to date", report);
  report.findings = plan.hostFindings;
  report.SetStatus();
}

/// Whether the bundle is refused before the lock is taken: taking it makes directories on a machine
/// that has none yet, and a refusal must not touch anything. Where the directories are, the plan
/// under the lock decides.
bool IsRefusedUntouched(const InstallOptions& options, const ExpectedBundle& bundle,
                        Report& report) {
  if (bundle.errors.empty() && InstallLock::IsThere(options.hostRoot)) {
    return false;
  }
  try {
    const InstallPlan plan = MakePlan(options, bundle);
    if (plan.outcome == InstallPlan::Outcome::Refuse) {
      Refuse(plan, report);
      return true;
    }
  } catch (const Error&) {
    // A first installation beside this one makes the lock and changes what is looked at. Under the
    // lock the same look is told if it fails.
    if (!InstallLock::IsThere(options.hostRoot)) {
      throw;
    }
  }
  return false;
}

void InstallLocked(const InstallOptions& options, const ExpectedBundle& bundle,
                   const InstallLock& lock, const std::string& step, Report& report) {
  const InstallPlan plan = MakePlan(options, bundle);
  if (plan.outcome == InstallPlan::Outcome::Refuse) {
    Refuse(plan, report);
  } else if (plan.outcome == InstallPlan::Outcome::UpToDate) {
    LeaveAlone(plan, bundle, report);
  } else {
    RunAndVerify(options, bundle, step, lock, plan.installation, report);
  }
}

}  // namespace

Report Install(const InstallOptions& options) {
  Report report("install");
  umask(022);
  const ExpectedBundle bundle = ReadBundle(options);
  if (IsRefusedUntouched(options, bundle, report)) {
    return report;
  }
  const std::string step = StepOf(bundle.files);
  const InstallLock lock(options.hostRoot, options.wait);
  InstallLocked(options, bundle, lock, step, report);
  return report;
}

}  // namespace webresources
