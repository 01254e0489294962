#include "Install.h"

#include <sys/stat.h>

#include "FileTree.h"
#include "InstallLock.h"
#include "Repair.h"
#include "Step.h"
#include "Verify.h"

namespace {

constexpr std::uint64_t kBlock = 4096;  // what a file takes at least, on most file systems

const char kHere[] = "";  // the prefix of this host

std::uint64_t BytesNeeded(const FileTree& tree) {
  std::uint64_t needed = 0;
  for (const FileItem& item : tree) {
    needed += (item.size + kBlock - 1) / kBlock * kBlock + kBlock;
  }
  return needed;
}

void Conclude(const char* outcome, int status, const std::string& text, Report& report) {
  report.details["outcome"] = outcome;
  report.status = status;
  report.summary.push_back(text);
}

/// Adds what forbids to run the step of `bundle` on this machine.
void FindObstacles(const InstallOptions& options, const ExpectedBundle& bundle,
                   const Installation& installation, Findings& findings) {
  if (!options.allowsDowngrade && IsNewerInstalled(installation, bundle)) {
    Add(findings, "newer-installed", installation.root,
        "update " + std::to_string(installation.record.updateId) +
            " is installed, and the bundle has update " + std::to_string(bundle.UpdateId()));
  }
  const std::uint64_t needed = BytesNeeded(bundle.tree);
  const std::uint64_t free = FreeBytes(installation);
  if (needed > free) {
    Add(findings, "no-space", installation.root,
        std::to_string(needed) + " bytes are needed and " + std::to_string(free) + " are free");
  }
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
  const MachineState after = CompareWithBundle(kHere, bundle, options.ignoresModes);
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

void InstallLocked(const InstallOptions& options, const ExpectedBundle& bundle,
                   const std::string& step, const InstallLock& lock, Report& report) {
  const MachineState state = CompareWithBundle(kHere, bundle, options.ignoresModes);
  ReportInstallation(state.installation, report);
  if (state.findings.empty() && !options.isForced) {
    if (!state.hasReceipt || !state.receiptFindings.empty()) {
      WriteReceiptOf(bundle);
    }
    Conclude("up-to-date", kAsItShouldBe, "up to date", report);
    return;
  }
  FindObstacles(options, bundle, state.installation, report.findings);
  if (!report.findings.empty()) {
    Conclude("refused", kHasFindings, "nothing is installed", report);
    return;
  }
  RunAndVerify(options, bundle, step, lock, state.installation, report);
}

}  // namespace

Report Install(const InstallOptions& options) {
  Report report("install");
  umask(022);
  Findings ignored;
  const ExpectedBundle bundle =
      ReadBundle(options.bundle, ReadReceipt(kHere, ignored), options.maxSize);
  report.findings = bundle.errors;
  if (!report.findings.empty()) {
    Conclude("refused", kHasFindings, "nothing is installed", report);
    return report;
  }
  const std::string step = StepOf(bundle.files);
  const InstallLock lock(options.wait);
  InstallLocked(options, bundle, step, lock, report);
  return report;
}
