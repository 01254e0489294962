#include "Verify.h"

#include "InstallationFindings.h"

namespace {

void Append(Findings& findings, const Findings& more) {
  findings.insert(findings.end(), more.begin(), more.end());
}

Json ToJson(const WebRegInfo& record) {
  Json json = Json::object();
  PutName(json, "installPath", record.installPath);
  json["updateId"] = record.updateId;
  PutName(json, "fullVersion", record.fullVersion);
  json["random"] = record.random;
  return json;
}

void RequireComplete(const ExpectedBundle& bundle) {
  if (bundle.metadata.outcome != Metadata::RunOutcome::Complete) {
    throw Error("tell what is to be installed by", bundle.files.metadata,
                "a run " + Describe(bundle.metadata.outcome));
  }
}

void VerifyWithBundle(const VerifyOptions& options, Report& report) {
  Findings ignored;
  const ExpectedBundle bundle = ReadBundle(*options.bundle, ReadReceipt(options.root, ignored));
  RequireComplete(bundle);
  const MachineState state = CompareWithBundle(options.root, bundle, options.ignoresModes);
  ReportInstallation(state.installation, report);
  report.findings = bundle.errors;
  Append(report.findings, state.findings);
  Append(report.findings, state.receiptFindings);
}

void VerifyAlone(const VerifyOptions& options, Report& report) {
  const Installation installation = ReadInstallation(options.root);
  ReportInstallation(installation, report);
  Findings ofReceipt;
  const auto receipt = ReadReceipt(options.root, ofReceipt);
  const bool belongs = receipt && FindInReceipt(*receipt, installation, ofReceipt);
  report.findings = FindInInstallation(
      installation, {belongs ? &receipt->tree : nullptr, std::nullopt, options.ignoresModes});
  Append(report.findings, ofReceipt);
  report.details["comparedWith"] = belongs ? "receipt" : "record";
  if (!belongs) {
    report.summary.push_back(
        "only the record was compared: there is no receipt that tells what was installed");
  }
}

}  // namespace

MachineState CompareWithBundle(const std::string& prefix, const ExpectedBundle& bundle,
                               bool ignoresModes) {
  MachineState state;
  state.installation = ReadInstallation(prefix);
  state.findings = FindInInstallation(state.installation, {bundle.isRead ? &bundle.tree : nullptr,
                                                           bundle.UpdateId(), ignoresModes});
  const auto receipt = ReadReceipt(prefix, state.receiptFindings);
  state.hasReceipt = receipt.has_value();
  const bool belongs =
      receipt && FindInReceipt(*receipt, state.installation, state.receiptFindings);
  if (belongs && state.findings.empty() && receipt->packageSha256 != bundle.packageSha256) {
    Add(state.receiptFindings, "receipt-differs", ReceiptPath(prefix),
        "it is of another package than the one that is installed");
  }
  return state;
}

bool IsNewerInstalled(const Installation& installation, const ExpectedBundle& bundle) {
  const auto recorded = installation.UpdateId();
  return recorded && *recorded > bundle.UpdateId();
}

void ReportInstallation(const Installation& installation, Report& report) {
  PutName(report.details, "installRoot", installation.root);
  report.details["record"] = ToJson(installation.record);
}

Report Verify(const VerifyOptions& options) {
  Report report("verify");
  if (options.bundle) {
    report.details["comparedWith"] = "bundle";
    VerifyWithBundle(options, report);
  } else {
    VerifyAlone(options, report);
  }
  report.SetStatus();
  report.summary.push_back(report.findings.empty()
                               ? std::string("the installation is as it should be")
                               : "findings: " + std::to_string(report.findings.size()));
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
  MachineState state = CompareWithBundle(options.root, bundle, options.ignoresModes);
  ReportInstallation(state.installation, report);
  report.findings = state.findings;
  Append(report.findings, state.receiptFindings);
  if (IsNewerInstalled(state.installation, bundle)) {
    Conclude(kIsUpToDate, "a newer update is installed", report);
  } else if (report.findings.empty()) {
    Conclude(kIsUpToDate, "up to date", report);
  } else {
    Conclude(kIsNeeded, "install needed: " + Text(report.findings.front()), report);
  }
}

}  // namespace

Report InstallCheck(const VerifyOptions& options) {
  Report report("installcheck");
  try {
    Findings ignored;
    const ExpectedBundle bundle = ReadBundle(*options.bundle, ReadReceipt(options.root, ignored));
    if (bundle.errors.empty()) {
      CheckMachine(options, bundle, report);
    } else {
      report.findings = bundle.errors;
      Conclude(kCannotBeInstalled, "cannot be installed: " + Text(bundle.errors.front()), report);
    }
  } catch (const Error& error) {
    report = ReportOf("installcheck", error);
    Conclude(kIsNeeded, std::string("install needed: ") + error.what(), report);
  } catch (const std::exception& error) {
    Conclude(kIsNeeded, std::string("install needed: ") + error.what(), report);
  }
  return report;
}
