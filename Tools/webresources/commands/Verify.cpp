#include "commands/Verify.h"

#include "machine/Advice.h"
#include "machine/HostCheck.h"
#include "machine/InstallPlan.h"
#include "support/Progress.h"

namespace webresources {

namespace {

void RequireComplete(const ExpectedBundle& bundle) {
  if (bundle.metadata.outcome != Metadata::RunOutcome::Complete) {
    const Finding cause = ErrorsOf(bundle.metadata.findings).front();
    throw Error("use", bundle.files.metadata,
                std::string("[") + cause.rule->id + "] " + cause.reason, cause.rule->fix);
  }
}

void VerifyWithBundle(const VerifyOptions& options, Report& report) {
  Findings ignored;
  const ExpectedBundle bundle =
      ReadBundle(*options.bundle, ReadReceipt(options.hostRoot, ignored), options.limits);
  RequireComplete(bundle);
  const MachineState state = CompareWithBundle(options.hostRoot, bundle, options.ignoresModes);
  ReportInstallation(state.installation, report);
  report.findings = bundle.errors;
  Append(report.findings, state.findings);
  Append(report.findings, state.receiptFindings);
  Append(report.findings, state.hostFindings);
  if (bundle.errors.empty()) {
    Advise({*options.bundle, options.hostRoot, IsNewerInstalled(state.installation, bundle),
            options.ignoresModes},
           report);
  }
}

void VerifyAlone(const VerifyOptions& options, Report& report) {
  const SelfCheck check = CheckInstallation(options.hostRoot, options.ignoresModes);
  ReportInstallation(check.installation, report);
  report.findings = check.findings;
  Advise({"", options.hostRoot, false, options.ignoresModes}, report);
  report.details["comparedWith"] = check.receipt ? "receipt" : "record";
  if (!check.receipt) {
    report.summary.push_back(
        "only the record was compared: there is no receipt that tells what was installed");
  }
}

}  // namespace

Report Verify(const VerifyOptions& options) {
  CatchInterruptions();
  Report report("verify");
  if (options.bundle) {
    report.details["comparedWith"] = "bundle";
    VerifyWithBundle(options, report);
  } else {
    VerifyAlone(options, report);
  }
  report.SetStatus();
  std::string conclusion = "the installation is as it should be";
  if (!report.findings.empty()) {
    conclusion = "findings: " + std::to_string(report.findings.size());
  }
  report.summary.push_back(conclusion);
  return report;
}

namespace {

constexpr int kIsNeeded = 0;
constexpr int kIsUpToDate = 1;
constexpr int kCannotBeInstalled = 2;

std::string Text(const Finding& finding) {
  return finding.subject + ": " + finding.reason;
}

void Conclude(int status, const std::string& text, Report& report) {
  report.status = status;
  report.details["installNeeded"] = status == kIsNeeded;
  report.summary.push_back(text);
}

void CheckMachine(const VerifyOptions& options, const ExpectedBundle& bundle, Report& report) {
  MachineState state = CompareWithBundle(options.hostRoot, bundle, options.ignoresModes);
  ReportInstallation(state.installation, report);
  report.findings = state.findings;
  Append(report.findings, state.receiptFindings);
  if (IsNewerInstalled(state.installation, bundle)) {
    Conclude(kIsUpToDate, "a newer update is installed", report);
  } else if (report.findings.empty()) {
    Conclude(kIsUpToDate, "up to date", report);
  } else {
    Conclude(kIsNeeded, "install needed: " + Text(report.findings.front()), report);
    Advise({*options.bundle, options.hostRoot, false, options.ignoresModes}, report);
  }
  Append(report.findings, state.hostFindings);  // no installation repairs them
}

}  // namespace

Report InstallCheck(const VerifyOptions& options) {
  Report report("installcheck");
  try {
    Findings ignored;
    const ExpectedBundle bundle =
        ReadBundle(*options.bundle, ReadReceipt(options.hostRoot, ignored), options.limits);
    if (bundle.errors.empty()) {
      CheckMachine(options, bundle, report);
    } else {
      report.findings = bundle.errors;
      Conclude(kCannotBeInstalled, "cannot be installed: " + Text(bundle.errors.front()), report);
    }
  } catch (const std::exception& error) {
    report = ReportOf("installcheck", error);
    Conclude(kIsNeeded, std::string("install needed: ") + error.what(), report);
  }
  return report;
}

}  // namespace webresources
