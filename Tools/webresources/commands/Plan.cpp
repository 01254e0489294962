#include <unistd.h>

#include <cerrno>

#include "InstallerConstants.h"
#include "commands/Commands.h"
#include "machine/HostCheck.h"
#include "machine/InstallPlan.h"
#include "prediction/TreeComparison.h"
#include "report/Rules.h"
#include "support/Files.h"
#include "support/SystemLog.h"

namespace webresources {

namespace {

using Outcome = InstallPlan::Outcome;

/// Returns the installed tree. Reads the tree unless the tree was compared.
const FileTree& InstalledTree(HostState& host, const FileTree& expected) {
  const Installation& installation = host.installation;
  if (!host.tree) {
    host.tree = installation.directory
                    ? ReadTree(installation.installRoot + *installation.directory, Checksum::Sha256,
                               &expected)
                    : FileTree();
  }
  return *host.tree;
}

/// Returns the entries beside the installed directory.
std::vector<std::string> LeftoversOf(const Installation& installation) {
  std::vector<std::string> leftovers;
  for (const std::string& name : installation.names) {
    if (name != installation.directory) {
      leftovers.push_back(name);
    }
  }
  return leftovers;
}

void ReportLeftovers(const std::vector<std::string>& leftovers, Report& report) {
  Json& list = report.details["leftovers"] = Json::array();
  for (const std::string& name : leftovers) {
    Json json = Json::object();
    PutName(json, "name", name);
    list.push_back(json);
    report.listing.push_back("removed  " + name + "  (beside the installed directory)");
  }
}

void ReportInstallationChanges(InstallPlan& plan, const ExpectedBundle& bundle, Report& report) {
  const FileTree& before = InstalledTree(plan.host, bundle.tree);
  const bool installs = plan.outcome == Outcome::Install;
  ReportLeftovers(installs ? LeftoversOf(plan.host.installation) : std::vector<std::string>(),
                  report);
  ReportChanges(ChangesBetween(before, installs ? bundle.tree : before), report);
  const std::string recorded = UpdateText(UpdateIdOf(plan.host.installation.record));
  report.summary.push_back("update: " + recorded + " -> " +
                           (installs ? std::to_string(bundle.UpdateId()) : recorded));
}

/// The words for each outcome, in the order of the enumerators.
constexpr struct {
  const char* name;
  const char* conclusion;
} kOutcomes[] = {{"up-to-date", "up to date: install will change nothing"},
                 {"refuse", "install will refuse the bundle and change nothing"},
                 {"install", "install will run the installer"}};

/// Returns whether this user has no right to write in the directories that a run changes.
bool NeedsRoot(const Installation& installation) {
  for (const std::string& path :
       {installation.installRoot, installation.hostRoot + "/Library/Preferences"}) {
    if (access(NearestExisting(path).c_str(), W_OK) != 0 && (errno == EACCES || errno == EPERM)) {
      return true;
    }
  }
  return false;
}

void ReportPlan(InstallPlan& plan, const ExpectedBundle& bundle, Report& report) {
  const InstallRecord& record = plan.host.installation.record;
  const bool installs = plan.outcome == Outcome::Install;
  report.details["recordAfter"] =
      installs ? RecordAfter(record, bundle.metadata) : webresources::ToJson(record.values);
  report.details["freshDirectory"] = plan.freshDirectory;
  report.details["bytesNeeded"] = plan.bytesNeeded;
  report.details["bytesFree"] = plan.free.bytes;
  report.details["needsRoot"] = installs && NeedsRoot(plan.host.installation);
  ReportInstallationChanges(plan, bundle, report);
  if (installs && plan.freshDirectory != kFinalName) {
    report.summary.push_back("directory: " + plan.freshDirectory + ", renamed to " + kFinalName);
  }
  report.summary.push_back("random identifier: " +
                           std::string(report.details["recordAfter"]["random"] == "drawn"
                                           ? "a new one is drawn"
                                           : "it is kept"));
  if (report.details["needsRoot"] == true) {
    report.summary.push_back("permission: run install as root");
  }
  report.summary.push_back("bytes: " + std::to_string(plan.bytesNeeded) + " needed, " +
                           std::to_string(plan.free.bytes) + " free");
}

}  // namespace

Report Plan(const HostOptions& options) {
  RequireBundle(*options.bundle);
  HostState host = ReadHost(options.hostRoot);
  const ExpectedBundle bundle = ReadBundle(*options.bundle, host.receipt, options.limits);
  InstallPlan plan = MakePlan(options, bundle, std::move(host));
  Report report("plan");
  report.findings = plan.findings;
  report.SetStatus();
  const auto& words = kOutcomes[static_cast<int>(plan.outcome)];
  report.details["outcome"] = words.name;
  ReportInstallation(plan.host.installation, report);
  if (bundle.errors.empty()) {
    ReportPlan(plan, bundle, report);
  }
  report.summary.push_back(words.conclusion);
  return report;
}

}  // namespace webresources
