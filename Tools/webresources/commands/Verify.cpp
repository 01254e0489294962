#include "commands/Commands.h"
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

void VerifyWithBundle(const HostOptions& options, Report& report) {
  HostState host = ReadHost(options.hostRoot);
  const ExpectedBundle bundle = ReadBundle(*options.bundle, host.receipt, options.limits);
  RequireComplete(bundle);
  CompareWithBundle(host, bundle, options.ignoresModes);
  ReportInstallation(host.installation, report);
  report.findings = bundle.errors;
  Append(report.findings, host.AllFindings());
  if (bundle.errors.empty()) {
    HostOptions repair = options;
    repair.allowsDowngrade = IsNewerInstalled(host.installation, bundle);
    Advise(repair, report);
  }
}

void VerifyAlone(const HostOptions& options, Report& report) {
  HostState host = ReadHost(options.hostRoot);
  CompareWithReceipt(host, options.ignoresModes);
  ReportInstallation(host.installation, report);
  report.findings = host.AllFindings();
  Advise(options, report);
  report.details["comparedWith"] = host.isCompared ? "receipt" : "record";
  if (!host.isCompared) {
    report.summary.push_back("only the record was compared: no receipt tells the content");
  }
}

}  // namespace

Report Verify(const HostOptions& options) {
  CatchInterruptions();
  Report report("verify");
  if (options.bundle) {
    report.details["comparedWith"] = "bundle";
    VerifyWithBundle(options, report);
  } else {
    VerifyAlone(options, report);
  }
  report.SetStatus();
  std::string conclusion = "the installation is correct";
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
constexpr int kIsUnknown = 3;

std::string Sentence(const Finding& finding) {
  return finding.subject + ": " + finding.reason;
}

void Conclude(int status, const std::string& text, Report& report) {
  report.status = status;
  report.details["installNeeded"] = status == kIsNeeded;
  report.summary.push_back(text);
}

void CheckHost(const HostOptions& options, const ExpectedBundle& bundle, HostState& host,
               Report& report) {
  ReportInstallation(host.installation, report);
  if (const auto newer = UpdateIdOf(host.installation.record);
      IsNewerInstalled(host.installation, bundle)) {
    Conclude(kIsUpToDate,
             "up to date: the newer update " + std::to_string(*newer) + " is installed", report);
    return;  // each difference from the older bundle would read like a defect
  }
  CompareWithBundle(host, bundle, options.ignoresModes);
  report.findings = host.findings;
  Append(report.findings, host.receiptFindings);
  if (report.findings.empty()) {
    Conclude(kIsUpToDate, "up to date", report);
  } else {
    Conclude(kIsNeeded, "install needed: " + Sentence(report.findings.front()), report);
    Advise(options, report);
  }
  Append(report.findings, host.hostFindings);  // an installation does not repair these defects
}

}  // namespace

Report InstallCheck(const HostOptions& options) {
  Report report("installcheck");
  int failure = kIsUnknown;
  try {
    HostState host = ReadHost(options.hostRoot);
    failure = kCannotBeInstalled;
    const ExpectedBundle bundle = ReadBundle(*options.bundle, host.receipt, options.limits);
    failure = kIsUnknown;
    if (bundle.errors.empty()) {
      CheckHost(options, bundle, host, report);
    } else {
      report.findings = bundle.errors;
      Conclude(kCannotBeInstalled, "cannot be installed: " + Sentence(bundle.errors.front()),
               report);
    }
  } catch (const std::exception& error) {
    report = ReportOf("installcheck", error);
    const char* const what =
        failure == kIsUnknown ? "the installation is unknown: " : "cannot be installed: ";
    Conclude(failure, what + std::string(error.what()), report);
  }
  return report;
}

}  // namespace webresources
