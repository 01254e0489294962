#include <sys/stat.h>

#include "commands/Commands.h"
#include "machine/InstallLock.h"
#include "machine/InstallPlan.h"
#include "machine/InstallerProcess.h"
#include "machine/PrivateCopy.h"
#include "machine/Receipt.h"
#include "report/Rules.h"
#include "support/Error.h"
#include "support/Progress.h"
#include "support/SystemLog.h"

namespace webresources {

namespace {

void Conclude(const char* outcome, int status, const std::string& text, Report& report) {
  report.details["outcome"] = outcome;
  report.status = status;
  report.summary.push_back(text);
}

void WriteReceiptOf(const ExpectedBundle& bundle, const std::string& hostRoot) {
  Receipt receipt;
  receipt.updateId = bundle.UpdateId();
  receipt.packageSha256 = bundle.packageSha256;
  receipt.tree = bundle.tree;
  AtomicFile file(ReceiptPath(hostRoot));
  WriteReceipt(file, receipt);
}

/// Writes a receipt with the state "begun", and runs the installer of the copy. If the installer
/// cannot be started, the old receipt is restored.
void Run(const HostOptions& options, const ExpectedBundle& bundle, const InstallLock& lock,
         Report& report) {
  Receipt begun;
  begun.isBegun = true;
  begun.updateId = bundle.UpdateId();
  AtomicFile file(ReceiptPath(options.hostRoot));
  WriteReceipt(file, begun);
  try {
    if (IsInterrupted()) {
      throw CannotStart("install", *options.bundle, "interrupted");
    }
    if (const auto end =
            RunInstaller(*bundle.files.program, lock.descriptor(), BytesOf(bundle.tree))) {
      Add(report.findings, kStepFailed, *options.bundle, *end);
    }
  } catch (const CannotStart&) {
    file.Rollback();
    throw;
  }
  ThrowIfInterrupted("install", *options.bundle);
}

void RunAndVerify(const HostOptions& options, const ExpectedBundle& bundle, const InstallLock& lock,
                  const InstallPlan& plan, Report& report) {
  RepairWhatARunKeeps(plan.host.installation, options.ignoresModes);
  Run(options, bundle, lock, report);
  HostState after = ReadHost(options.hostRoot);
  CompareWithBundle(after, bundle, options.ignoresModes);
  ReportInstallation(after.installation, report);
  Append(report.findings, after.findings);
  const bool isInstalled = report.findings.empty();
  Append(report.findings, after.hostFindings);
  if (!isInstalled) {
    Conclude("failed", kHasFindings, "the installation is not correct", report);
    return;
  }
  WriteReceiptOf(bundle, options.hostRoot);
  Conclude("installed", kAsItShouldBe,
           "installed: update " + std::to_string(bundle.UpdateId()) + ", " +
               std::to_string(FilesOf(bundle.tree)) + " files, " +
               std::to_string(BytesOf(bundle.tree)) + " bytes",
           report);
  report.SetStatus();  // the host's places can have findings
}

void Refuse(const Installation& installation, const Findings& reasons, Report& report) {
  ReportInstallation(installation, report);
  report.findings = reasons;
  const auto updateId = UpdateIdOf(installation.record);
  Conclude("refused", kHasFindings,
           updateId ? "refused: update " + std::to_string(*updateId) + " stays installed"
                    : "refused: nothing is installed",
           report);
}

void LeaveAlone(const InstallPlan& plan, const ExpectedBundle& bundle, Report& report) {
  ReportInstallation(plan.host.installation, report);
  if (plan.needsReceipt) {
    WriteReceiptOf(bundle, plan.host.installation.hostRoot);
  }
  Conclude("up-to-date", kAsItShouldBe, "up to date", report);
  report.findings = plan.host.hostFindings;
  report.SetStatus();
}

/// Returns whether the bundle is refused before the lock is taken. A refusal must change nothing,
/// and the lock makes directories on a host without an installation. If another process makes the
/// lock's file during this function, that process may be changing the host. In this case the
/// decision is made again under the lock.
bool IsRefusedUntouched(const HostOptions& options, LogEntry& entry, Report& report) {
  if (InstallLock::IsThere(options.hostRoot)) {
    return false;
  }
  try {
    HostState host = ReadHost(options.hostRoot);
    entry.before = UpdateText(UpdateIdOf(host.installation.record));
    const ExpectedBundle bundle = ReadBundle(*options.bundle, host.receipt, options.limits);
    const InstallPlan plan = MakePlan(options, bundle, std::move(host));
    if (plan.outcome != InstallPlan::Outcome::Refuse || InstallLock::IsThere(options.hostRoot)) {
      return false;
    }
    Refuse(plan.host.installation, plan.findings, report);
    return true;
  } catch (const Error&) {
    if (!InstallLock::IsThere(options.hostRoot)) {
      throw;
    }
    return false;
  }
}

/// Returns whether the receipt proves that exactly this package is installed, as `updateId`. The
/// bundle is then not copied.
bool IsUpToDate(const HostOptions& options, const std::optional<int>& updateId, HostState host,
                Report& report) {
  if (options.isForced || !host.receipt || host.receipt->isBegun ||
      host.receipt->updateId != updateId ||
      host.receipt->packageSha256 != DigestOfPackage(FindBundleFiles(*options.bundle).package)) {
    return false;
  }
  const ExpectedBundle bundle = ReadBundle(*options.bundle, host.receipt, options.limits);
  const InstallPlan plan = MakePlan(options, bundle, std::move(host));
  if (plan.outcome != InstallPlan::Outcome::UpToDate || plan.needsReceipt) {
    return false;
  }
  LeaveAlone(plan, bundle, report);
  return true;
}

/// Makes a private copy of the bundle. Decides, runs the installer, verifies and writes the receipt
/// with this copy only.
void InstallCopy(const HostOptions& options, const InstallLock& lock, HostState host,
                 Report& report) {
  const Findings reasons = FindBeforeCopy(options, host.installation);
  if (!reasons.empty()) {
    Refuse(host.installation, reasons, report);
    return;
  }
  const PrivateCopy copy(options.hostRoot, *options.bundle, options.limits);
  ExpectedBundle bundle = ReadBundle(copy.path(), std::nullopt, options.limits);
  bundle.bytesToCopy = 0;  // the copy is made
  const InstallPlan plan = MakePlan(options, bundle, std::move(host));
  if (plan.outcome == InstallPlan::Outcome::Refuse) {
    Refuse(plan.host.installation, plan.findings, report);
  } else if (plan.outcome == InstallPlan::Outcome::UpToDate) {
    LeaveAlone(plan, bundle, report);
  } else {
    RunAndVerify(options, bundle, lock, plan, report);
  }
}

/// Installs, and fills the known members of `entry`.
Report InstallWith(const HostOptions& options, LogEntry& entry) {
  Report report("install");
  if (IsRefusedUntouched(options, entry, report)) {
    return report;
  }
  const InstallLock lock(options.hostRoot, options.wait);
  RemoveLeftovers(options.hostRoot);
  HostState host;
  host.installation = ReadInstallation(options.hostRoot);
  entry.before = UpdateText(UpdateIdOf(host.installation.record));
  const auto updateId = ReadMetadata(FindBundleFiles(*options.bundle).metadata).updateId;
  host.receipt = ReadReceipt(options.hostRoot, updateId, host.receiptFindings);
  if (!IsUpToDate(options, updateId, host, report)) {
    InstallCopy(options, lock, std::move(host), report);
  }
  return report;
}

/// Returns the outcome of the report with the reason, for people.
std::string OutcomeOf(const Report& report) {
  std::string outcome = report.details["outcome"];
  if (!report.findings.empty()) {
    const Finding& first = report.findings.front();
    outcome += std::string(": [") + first.rule->id + "] " + first.subject + ": " + first.reason;
  }
  return outcome;
}

}  // namespace

Report Install(const HostOptions& options) {
  umask(022);
  CatchInterruptions();
  return Logged({"install"}, [&options](LogEntry& entry) {
    RequireBundle(*options.bundle);
    Report report = InstallWith(options, entry);
    const Json& updateId = report.details["record"]["updateId"];
    entry.after = UpdateText(updateId.is_null() ? std::nullopt : std::optional<int>(updateId));
    entry.outcome = OutcomeOf(report);
    entry.isFailure = report.status != kAsItShouldBe;
    return report;
  });
}

}  // namespace webresources
