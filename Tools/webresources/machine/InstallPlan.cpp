#include "machine/InstallPlan.h"

#include "machine/Access.h"
#include "machine/HostCheck.h"
#include "prediction/BundleInspection.h"
#include "report/Rules.h"
#include "support/Files.h"

namespace webresources {

namespace {

std::string DigestOfPackage(const std::string& path) {
  return StateOf(path) == FileState::Missing ? "" : DigestText(DigestOfFile(RealPath(path)));
}

}  // namespace

ExpectedBundle ReadBundle(const std::string& path, const std::optional<Receipt>& receipt,
                          const Limits& limits) {
  ExpectedBundle bundle;
  bundle.files = FindBundleFiles(path);
  bundle.packageSha256 = DigestOfPackage(bundle.files.package);
  if (receipt && receipt->packageSha256 == bundle.packageSha256 &&
      receipt->version == WEBRESOURCES_VERSION) {
    bundle.metadata = ReadMetadata(bundle.files.metadata);
    bundle.tree = receipt->tree;
    bundle.errors = ErrorsOf(bundle.metadata.findings);
  } else {
    BundleInspection inspection = InspectBundle(path, limits, &bundle.tree);
    bundle.metadata = std::move(inspection.metadata);
    bundle.isRead = inspection.isRead;
    bundle.errors = ErrorsOf(inspection.findings);
  }
  return bundle;
}

MachineState CompareWithBundle(const std::string& hostRoot, const ExpectedBundle& bundle,
                               bool ignoresModes) {
  MachineState state;
  state.installation = ReadInstallation(hostRoot);
  state.findings = FindInInstallation(state.installation, {bundle.isRead ? &bundle.tree : nullptr,
                                                           bundle.UpdateId(), ignoresModes});
  const auto receipt = ReadReceipt(hostRoot, state.receiptFindings);
  state.hasReceipt = receipt.has_value();
  const bool belongs =
      receipt && FindInReceipt(*receipt, state.installation, state.receiptFindings);
  if (belongs && state.findings.empty() && receipt->packageSha256 != bundle.packageSha256) {
    Add(state.receiptFindings, kReceiptDiffers, ReceiptPath(hostRoot),
        "it is of another package than the one that is installed");
  }
  if (!ignoresModes) {
    state.hostFindings = FindInHostAccess(hostRoot);
  }
  return state;
}

bool IsNewerInstalled(const Installation& installation, const ExpectedBundle& bundle) {
  const auto recorded = UpdateIdOf(installation.record);
  return recorded && *recorded > bundle.UpdateId();
}

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
  const std::string fresh = plan.installation.installRoot + plan.freshDirectory;
  if (!plan.installation.isRootUsable) {
    return plan.installation.installRoot;
  }
  return Exists(fresh) ? fresh : "";
}

void FindObstacles(const PlanOptions& options, const ExpectedBundle& bundle, InstallPlan& plan) {
  if (!options.allowsDowngrade && IsNewerInstalled(plan.installation, bundle)) {
    Add(plan.findings, kNewerInstalled, plan.installation.installRoot,
        "update " + std::to_string(plan.installation.record.values.updateId) +
            " is installed, and the bundle has update " + std::to_string(bundle.UpdateId()));
  }
  if (const std::string path = BlockedPath(plan); !path.empty()) {
    Add(plan.findings, kRootBlocked, path, "it is in the place of a directory");
  }
  if (plan.bytesNeeded > plan.bytesFree) {
    Add(plan.findings, kNoSpace, plan.installation.installRoot,
        "it needs " + std::to_string(plan.bytesNeeded) + " bytes, and " +
            std::to_string(plan.bytesFree) + " are free");
  }
}

}  // namespace

ExpectedBundle ReadBundle(const PlanOptions& options) {
  Findings ignored;
  return ReadBundle(options.bundle, ReadReceipt(options.hostRoot, ignored), options.limits);
}

InstallPlan MakePlan(const PlanOptions& options, const ExpectedBundle& bundle) {
  InstallPlan plan;
  plan.findings = bundle.errors;
  if (!plan.findings.empty()) {
    plan.installation = ReadInstallation(options.hostRoot);
    return plan;
  }
  MachineState state = CompareWithBundle(options.hostRoot, bundle, options.ignoresModes);
  plan.installation = std::move(state.installation);
  plan.hostFindings = std::move(state.hostFindings);
  plan.needsReceipt = !state.hasReceipt || !state.receiptFindings.empty();
  plan.freshDirectory = OSUtils::GetUniqueDirectoryName(plan.installation.installRoot);
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

}  // namespace webresources
