#include "commands/Commands.h"
#include "machine/HostCheck.h"
#include "prediction/FileTree.h"
#include "support/Files.h"
#include "support/SystemLog.h"
#include "support/Text.h"

namespace webresources {

namespace {

std::string NameOfState(const Receipt& receipt) {
  return receipt.isBegun ? "begun" : "installed";
}

Json StateToJson(const Receipt& receipt) {
  return {{"state", NameOfState(receipt)}, {"time", receipt.time}, {"updateId", receipt.updateId}};
}

std::string Soundness(const HostState& host) {
  const Findings& findings = host.findings.empty() ? host.receiptFindings : host.findings;
  if (!findings.empty()) {
    const Finding& first = findings.front();
    return "no: " + first.subject + ": " + first.reason;
  }
  if (!host.isCompared) {
    return "yes, but only the record was compared: no receipt tells the content";
  }
  return "yes, compared with the receipt";
}

}  // namespace

Report Status(const HostOptions& options) {
  HostState host = ReadHost(options.hostRoot);
  CompareWithReceipt(host, options.ignoresModes);
  const Installation& installation = host.installation;
  Report report("status");
  report.findings = host.AllFindings();
  Advise(options, report);
  report.SetStatus();
  ReportInstallation(installation, report);
  const bool isThere = installation.directory.has_value();
  const std::string directory = installation.installRoot + installation.directory.value_or("");
  if (!host.tree) {
    host.tree = isThere ? ReadTree(directory, Checksum::None) : FileTree();
  }
  // without a usable receipt, the time of the directory's last change
  std::optional<std::string> since;
  if (isThere) {
    since = host.isCompared ? host.receipt->time : TimeText(StatusOf(directory).st_mtime);
  }
  PutOptional(report.details, "directory", isThere ? std::optional(directory) : std::nullopt);
  report.details["files"] = FilesOf(*host.tree);
  report.details["bytes"] = BytesOf(*host.tree);
  PutOptional(report.details, "since", since);
  report.details["receipt"] = host.receipt ? StateToJson(*host.receipt) : Json(nullptr);
  report.details["comparedWith"] = host.isCompared ? "receipt" : "record";
  report.summary = {
      "update:    " + UpdateText(UpdateIdOf(installation.record)) + ", version " +
          (installation.record.values.fullVersion.empty() ? "none"
                                                          : installation.record.values.fullVersion),
      "directory: " + (isThere ? directory : std::string("none")),
      "content:   " + std::to_string(FilesOf(*host.tree)) + " files, " +
          std::to_string(BytesOf(*host.tree)) + " bytes",
      "since:     " + since.value_or("never"),
      "receipt:   " +
          (host.receipt ? NameOfState(*host.receipt) + ", " + host.receipt->time : "none"),
      "sound:     " + Soundness(host)};
  return report;
}

}  // namespace webresources
