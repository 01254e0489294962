#include "machine/InstallPlan.h"

#include <sys/stat.h>

#include <algorithm>

#include "TrialStart.h"
#include "machine/Access.h"
#include "machine/HostCheck.h"
#include "prediction/BundleInspection.h"
#include "prediction/TreeComparison.h"
#include "report/Rules.h"
#include "support/Files.h"
#include "support/Text.h"

namespace webresources {

namespace {

constexpr std::uint64_t kBlock = 4096;  // the smallest space of a file on most file systems

std::uint64_t RoundedUp(std::uint64_t size) {
  return (size + kBlock - 1) / kBlock * kBlock;
}

/// Returns the bytes that the files take on the disk. A hole takes no bytes.
std::uint64_t BytesToCopy(const BundleFiles& files) {
  std::uint64_t bytes = 0;
  for (const std::string& path : {files.package, files.metadata, files.program.value_or(""),
                                  ParentOf(files.directory) + "/Info.plist"}) {
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0) {
      constexpr std::uint64_t kUnit = 512;  // the unit of st_blocks
      const std::uint64_t taken = static_cast<std::uint64_t>(status.st_blocks) * kUnit;
      bytes += std::min(taken, RoundedUp(static_cast<std::uint64_t>(status.st_size)));
    }
  }
  return bytes;
}

/// Returns whether `tree` has the paths, types and sizes in the central directory of the package,
/// and the modes that a run sets.
bool IsOutlineOf(const std::string& package, const FileTree& tree) {
  PackageReader reader(package, PackageReader::Unlocked());
  return Compare(TreeOf(PredictOutline(reader)), tree).empty();
}

/// Returns whether the package has no errors and the tree of the receipt.
bool IsProof(const std::optional<Receipt>& receipt, const ExpectedBundle& bundle) {
  return receipt && !receipt->tree.empty() && receipt->isOwnersOwn &&
         receipt->packageSha256 == bundle.packageSha256 &&
         IsOutlineOf(bundle.files.package, receipt->tree);
}

/// Returns whether `receipt` describes an installation of `bundle`, as far as both are known.
bool IsOf(const Receipt& receipt, const ExpectedBundle& bundle) {
  const bool areTreesKnown = bundle.isRead && !receipt.tree.empty();
  return receipt.packageSha256 == bundle.packageSha256 &&
         (!areTreesKnown || Compare(bundle.tree, receipt.tree).empty());
}

}  // namespace

ExpectedBundle ReadBundle(const std::string& path, const std::optional<Receipt>& receipt,
                          const Limits& limits) {
  ExpectedBundle bundle;
  bundle.files = FindBundleFiles(path);
  bundle.bytesToCopy = BytesToCopy(bundle.files);
  bundle.packageSha256 = DigestOfPackage(bundle.files.package);
  if (IsProof(receipt, bundle)) {
    bundle.metadata = ReadMetadata(bundle.files.metadata);
    bundle.tree = receipt->tree;
    bundle.errors = ErrorsOf(bundle.metadata.findings);
    Append(bundle.errors, FindInProgram(bundle.files));
  } else {
    BundleInspection inspection = InspectBundle(path, limits, &bundle.tree);
    bundle.metadata = std::move(inspection.metadata);
    bundle.isRead = inspection.isRead;
    bundle.errors = ErrorsOf(inspection.findings);
  }
  bundle.files.RequireUnchanged();
  return bundle;
}

void CompareWithBundle(HostState& host, const ExpectedBundle& bundle, bool ignoresModes) {
  host.findings = FindInInstallation(
      host.installation, {bundle.isRead ? &bundle.tree : nullptr, &bundle.metadata, ignoresModes},
      &host.tree);
  const bool belongs =
      host.receipt && FindInReceipt(*host.receipt, host.installation, host.receiptFindings);
  if (belongs && host.findings.empty() && !IsOf(*host.receipt, bundle)) {
    Add(host.receiptFindings, kReceiptDiffers, ReceiptPath(host.installation.hostRoot),
        "it does not describe the package that is installed");
  }
  if (!ignoresModes) {
    host.hostFindings = FindInAccess(host.installation.hostRoot, Places::Host);
  }
}

bool IsNewerInstalled(const Installation& installation, const ExpectedBundle& bundle) {
  const auto recorded = UpdateIdOf(installation.record);
  return recorded && *recorded > bundle.UpdateId();
}

namespace {

using Outcome = InstallPlan::Outcome;

std::uint64_t BytesNeeded(const FileTree& tree) {
  std::uint64_t needed = 0;
  for (const FileItem& item : tree) {
    needed += RoundedUp(item.size) + kBlock;
  }
  return needed;
}

void FindInSpace(const std::string& installRoot, const FreeSpace& free, std::uint64_t bytes,
                 std::uint64_t files, Findings& findings) {
  const auto find = [&](std::uint64_t needed, std::uint64_t left, const char* unit) {
    if (needed > left) {
      Add(findings, kNoSpace, installRoot,
          "it needs " + std::to_string(needed) + unit + ", and " + std::to_string(left) +
              " are free");
    }
  };
  constexpr std::uint64_t kOwnFiles = 12;  // the private copy, and temporary files
  find(bytes, free.bytes, " bytes");
  find(files + kOwnFiles, free.files, " files and directories (inodes)");
}

/// Adds a finding if this system cannot start the installer. Only this host is examined, because
/// another host may have another processor.
void FindInStart(const std::string& program, const HostOptions& options, Findings& findings) {
  if (options.hostRoot.empty() && !TrialStart::CanStart(program)) {
    Add(findings, kProgramUnusable, program,
        "this system cannot start it: it is for another processor or system, or its interpreter is "
        "missing");
  }
}

/// Returns the path of an entry that prevents a run from making the new directory: the run would
/// install nothing. Returns nothing if there is no such entry.
std::optional<std::string> BlockedPath(const InstallPlan& plan) {
  const Installation& installation = plan.host.installation;
  if (!installation.isRootUsable) {
    return installation.installRoot;
  }
  const std::string fresh = installation.installRoot + plan.freshDirectory;
  return Exists(fresh) ? std::optional(fresh) : std::nullopt;
}

void FindObstacles(const HostOptions& options, const ExpectedBundle& bundle, InstallPlan& plan) {
  const Installation& installation = plan.host.installation;
  if (!options.allowsDowngrade && IsNewerInstalled(installation, bundle)) {
    Add(plan.findings, kNewerInstalled, installation.installRoot,
        "update " + std::to_string(installation.record.values.updateId) +
            " is installed, and the bundle has update " + std::to_string(bundle.UpdateId()));
  }
  if (const auto path = BlockedPath(plan)) {
    Add(plan.findings, kRootBlocked, *path, "it is in the place of a directory");
  }
  FindInSpace(installation.installRoot, plan.free, plan.bytesNeeded, bundle.tree.size(),
              plan.findings);
  FindInStart(*bundle.files.program, options, plan.findings);
}

bool IsInstalled(const HostOptions& options, const ExpectedBundle& bundle, HostState& host) {
  if (UpdateIdOf(host.installation.record) != bundle.UpdateId()) {
    return false;
  }
  CompareWithBundle(host, bundle, options.ignoresModes);
  return host.findings.empty();
}

}  // namespace

Findings FindBeforeCopy(const HostOptions& options, const Installation& installation) {
  const BundleFiles files = FindBundleFiles(*options.bundle);
  Findings findings = FindInProgram(files);
  if (!findings.empty()) {
    return findings;
  }
  FindInStart(*files.program, options, findings);
  FindInSpace(installation.installRoot, FreeSpaceAt(NearestExisting(installation.installRoot)),
              BytesToCopy(files), 0, findings);
  return findings;
}

InstallPlan MakePlan(const HostOptions& options, const ExpectedBundle& bundle, HostState host) {
  InstallPlan plan;
  plan.findings = bundle.errors;
  plan.host = std::move(host);
  if (!plan.findings.empty()) {
    return plan;
  }
  const bool isInstalled = IsInstalled(options, bundle, plan.host);
  plan.needsReceipt = !plan.host.receipt || !plan.host.receiptFindings.empty();
  plan.freshDirectory = OSUtils::GetUniqueDirectoryName(plan.host.installation.installRoot);
  plan.bytesNeeded = BytesNeeded(bundle.tree) + bundle.bytesToCopy;
  plan.free = FreeSpaceAt(NearestExisting(plan.host.installation.installRoot));
  if (isInstalled && !options.isForced) {
    plan.outcome = Outcome::UpToDate;
    return plan;
  }
  FindObstacles(options, bundle, plan);
  plan.outcome = plan.findings.empty() ? Outcome::Install : Outcome::Refuse;
  return plan;
}

}  // namespace webresources
