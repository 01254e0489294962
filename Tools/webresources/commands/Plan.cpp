#include "Plan.h"

#include "Files.h"
#include "InstallerConstants.h"
#include "MachineState.h"
#include "Repair.h"
#include "TreeChanges.h"

namespace {

using Outcome = InstallPlan::Outcome;

constexpr std::uint64_t kBlock = 4096;  // what a file takes at least, on most file systems

std::uint64_t BytesNeeded(const FileTree& tree) {
  std::uint64_t needed = 0;
  for (const FileItem& item : tree) {
    needed += (item.size + kBlock - 1) / kBlock * kBlock + kBlock;
  }
  return needed;
}

/// What is in the place of the directory that a run would make, so that it would install nothing.
std::string BlockedPath(const InstallPlan& plan) {
  const std::string fresh = plan.installation.root + plan.freshDirectory;
  if (!plan.installation.isRootUsable) {
    return plan.installation.root;
  }
  return Exists(fresh) ? fresh : "";
}

void FindObstacles(const PlanOptions& options, const ExpectedBundle& bundle, InstallPlan& plan) {
  if (!options.allowsDowngrade && IsNewerInstalled(plan.installation, bundle)) {
    Add(plan.findings, "newer-installed", plan.installation.root,
        "update " + std::to_string(plan.installation.record.updateId) +
            " is installed, and the bundle has update " + std::to_string(bundle.UpdateId()));
  }
  if (const std::string path = BlockedPath(plan); !path.empty()) {
    Add(plan.findings, "root-blocked", path, "it is in the place of a directory");
  }
  if (plan.bytesNeeded > plan.bytesFree) {
    Add(plan.findings, "no-space", plan.installation.root,
        "it needs " + std::to_string(plan.bytesNeeded) + " bytes, and " +
            std::to_string(plan.bytesFree) + " are free");
  }
}

bool WillDrawRandom(const Installation& installation, const ExpectedBundle& bundle) {
  return bundle.metadata.regenerate.value_or(false) || IsRandomUnusable(installation) ||
         installation.states.random == OSUtils::ValueState::Absent;
}

Json RecordAfter(const InstallPlan& plan, const ExpectedBundle& bundle) {
  WebRegInfo after = plan.installation.record;
  const bool installs = plan.outcome == Outcome::Install;
  if (installs) {
    after.installPath = kFinalName;
    after.updateId = bundle.UpdateId();
    after.fullVersion = OSUtils::CompleteVersion(after.updateId);
  }
  Json json = ToJson(after);
  if (installs && WillDrawRandom(plan.installation, bundle)) {
    json["random"] = "drawn";
  }
  return json;
}

FileTree InstalledTree(const Installation& installation) {
  return installation.directory.empty() ? FileTree()
                                        : ReadTree(installation.root + installation.directory);
}

/// What goes beside the installed directory.
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

void ReportInstallationChanges(const InstallPlan& plan, const ExpectedBundle& bundle,
                               Report& report) {
  const FileTree before = InstalledTree(plan.installation);
  const bool installs = plan.outcome == Outcome::Install;
  ReportChanges(ChangesBetween(before, installs ? bundle.tree : before), report);
  ReportLeftovers(installs ? LeftoversOf(plan.installation) : std::vector<std::string>(), report);
  const auto updateId = plan.installation.UpdateId();
  const std::string recorded = updateId ? std::to_string(*updateId) : "none";
  report.summary.push_back("update: " + recorded + " -> " +
                           (installs ? std::to_string(bundle.UpdateId()) : recorded));
}

const char* NameOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::UpToDate:
      return "up-to-date";
    case Outcome::Refuse:
      return "refuse";
    default:
      return "install";
  }
}

void ReportPlan(const InstallPlan& plan, const ExpectedBundle& bundle, Report& report) {
  report.details["outcome"] = NameOf(plan.outcome);
  ReportInstallation(plan.installation, report);
  report.details["recordAfter"] = RecordAfter(plan, bundle);
  report.details["freshDirectory"] = plan.freshDirectory;
  report.details["bytesNeeded"] = plan.bytesNeeded;
  report.details["bytesFree"] = plan.bytesFree;
  ReportInstallationChanges(plan, bundle, report);
  if (plan.outcome == Outcome::Install && plan.freshDirectory != kFinalName) {
    report.summary.push_back("directory: " + plan.freshDirectory + ", renamed to " + kFinalName);
  }
  report.summary.push_back("random identifier: " +
                           std::string(report.details["recordAfter"]["random"] == "drawn"
                                           ? "a new one is drawn"
                                           : "it is kept"));
  report.summary.push_back("bytes: " + std::to_string(plan.bytesNeeded) + " needed, " +
                           std::to_string(plan.bytesFree) + " free");
}

const char* Conclusion(Outcome outcome) {
  switch (outcome) {
    case Outcome::UpToDate:
      return "up to date: install will change nothing";
    case Outcome::Refuse:
      return "install will refuse the bundle and change nothing";
    default:
      return "install will run the step";
  }
}

}  // namespace

ExpectedBundle ReadBundle(const PlanOptions& options) {
  Findings ignored;
  return ReadBundle(options.bundle, ReadReceipt(options.root, ignored), options.maxSize);
}

InstallPlan MakePlan(const PlanOptions& options, const ExpectedBundle& bundle) {
  InstallPlan plan;
  plan.findings = bundle.errors;
  if (!plan.findings.empty()) {
    plan.installation = ReadInstallation(options.root);
    return plan;
  }
  MachineState state = CompareWithBundle(options.root, bundle, options.ignoresModes);
  plan.installation = std::move(state.installation);
  plan.needsReceipt = !state.hasReceipt || !state.receiptFindings.empty();
  plan.freshDirectory = OSUtils::GetUniqueDirectoryName(plan.installation.root);
  plan.bytesNeeded = BytesNeeded(bundle.tree);
  plan.bytesFree = FreeBytes(plan.installation);
  if (state.findings.empty() && !options.isForced) {
    plan.outcome = Outcome::UpToDate;
    return plan;
  }
  FindObstacles(options, bundle, plan);
  plan.outcome = plan.findings.empty() ? Outcome::Install : Outcome::Refuse;
  return plan;
}

Report Plan(const PlanOptions& options) {
  const ExpectedBundle bundle = ReadBundle(options);
  const InstallPlan plan = MakePlan(options, bundle);
  Report report("plan");
  report.findings = plan.findings;
  report.SetStatus();
  if (bundle.errors.empty()) {
    ReportPlan(plan, bundle, report);
  } else {
    report.details["outcome"] = NameOf(plan.outcome);
    ReportInstallation(plan.installation, report);
  }
  report.summary.push_back(Conclusion(plan.outcome));
  return report;
}
