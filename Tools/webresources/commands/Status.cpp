#include "commands/Status.h"

#include "machine/Advice.h"
#include "machine/HostCheck.h"
#include "prediction/FileTree.h"
#include "support/Files.h"
#include "support/Text.h"

namespace webresources {

namespace {

/// When the directory was filled: by the receipt, else by its time of modification.
std::string Since(const SelfCheck& check, const std::string& directory) {
  if (check.receipt) {
    return check.receipt->time;
  }
  return TimeText(StatusOf(directory).st_mtime);
}

std::string Soundness(const SelfCheck& check) {
  if (!check.findings.empty()) {
    const Finding& first = check.findings.front();
    return "no: " + first.subject + ": " + first.reason;
  }
  if (!check.receipt) {
    return "yes, but only the record was compared: there is no receipt";
  }
  return "yes, compared with the receipt";
}

}  // namespace

Report Status(const StatusOptions& options) {
  const SelfCheck check = CheckInstallation(options.hostRoot, options.ignoresModes);
  const Installation& installation = check.installation;
  Report report("status");
  report.findings = check.findings;
  Advise({"", options.hostRoot, false, options.ignoresModes}, report);
  report.SetStatus();
  ReportInstallation(installation, report);
  const bool isThere = !installation.directory.empty();
  const std::string directory = installation.installRoot + installation.directory;
  const FileTree tree = isThere ? ReadTree(directory, Checksum::None) : FileTree();
  const std::string since = isThere ? Since(check, directory) : "";
  PutOptional(report.details, "directory", isThere ? directory : "");
  report.details["files"] = FilesOf(tree);
  report.details["bytes"] = BytesOf(tree);
  PutOptional(report.details, "since", since);
  report.details["comparedWith"] = check.receipt ? "receipt" : "record";
  const auto updateId = UpdateIdOf(installation.record);
  report.summary = {
      "update:    " + (updateId ? std::to_string(*updateId) : std::string("none")) + ", version " +
          (installation.record.values.fullVersion.empty() ? "none"
                                                          : installation.record.values.fullVersion),
      "directory: " + (isThere ? directory : std::string("none")),
      "content:   " + std::to_string(FilesOf(tree)) + " files, " + std::to_string(BytesOf(tree)) +
          " bytes",
      "since:     " + (since.empty() ? "never" : since), "sound:     " + Soundness(check)};
  return report;
}

}  // namespace webresources
