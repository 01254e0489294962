#include "machine/HostCheck.h"

#include <sys/stat.h>

#include "InstallerConstants.h"
#include "prediction/FileTree.h"
#include "prediction/TreeComparison.h"
#include "report/Rules.h"
#include "support/Error.h"
#include "support/Files.h"
#include "support/Text.h"

namespace webresources {

namespace {

/// How many directories at the end of the install root's path are the product's.
constexpr int kOwnDirectories = 4;

bool IsClosed(const std::string& path) {
  constexpr mode_t kEnter = S_IROTH | S_IXOTH;
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 &&
         ((status.st_mode & kEnter) != kEnter || (status.st_mode & S_IWOTH) != 0);
}

}  // namespace

bool IsRandomUnusable(const Installation& installation) {
  using ValueState = OSUtils::ValueState;
  const int random = installation.record.random;
  return installation.states.random == ValueState::Unusable ||
         (installation.states.random == ValueState::Usable &&
          (random < 1 || random > OSUtils::kLargestRandom));
}

std::vector<std::string> ClosedDirectories(const Installation& installation) {
  std::vector<std::string> closed;
  std::string path = ParentOf(installation.installRoot);
  for (int i = 0; i < kOwnDirectories; ++i, path = ParentOf(path)) {
    if (IsClosed(path)) {
      closed.insert(closed.begin(), path);
    }
  }
  return closed;
}

void RepairWhatARunKeeps(const Installation& installation) {
  // Each value is read for itself: one that could not be read looks like a wrong one. It is looked
  // at again before it is removed.
  if (IsRandomUnusable(installation) && IsRandomUnusable(ReadInstallation(installation.hostRoot)) &&
      !OSUtils::RemoveRandom(installation.hostRoot)) {
    throw Error("write", "the record", "the random identifier cannot be removed");
  }
  for (const std::string& path : ClosedDirectories(installation)) {
    if (chmod(path.c_str(), kDirectoryMode) != 0) {
      throw Error::FromErrno("open to other users", path);
    }
  }
}

namespace {

using Kind = Difference::Kind;
using ValueState = OSUtils::ValueState;

const char kPathName[] = "installed directory";
const char kUpdateIdName[] = "update number";
const char kVersionName[] = "full version";
const char kRandomName[] = "random identifier";

const Rule& RuleOf(Kind kind) {
  switch (kind) {
    case Kind::Missing:
      return kFileMissing;
    case Kind::Extra:
      return kFileExtra;
    case Kind::Type:
      return kFileType;
    case Kind::Content:
      return kFileDiffers;
    case Kind::Mode:
      return kModeDiffers;
    default:
      return kOwnerDiffers;
  }
}

/// The user who owns the host: whoever owns its topmost directory.
unsigned int OwnerOf(const std::string& hostRoot) {
  return StatusOf(hostRoot + "/").st_uid;
}

class InstallationFinder {
 public:
  InstallationFinder(const Installation& installation, const Expectation& expected)
      : installation_(installation), record_(installation.record), expected_(expected) {}

  Findings Find() {
    if (!installation_.isRootUsable) {
      AddFinding(kRootBlocked, installation_.installRoot,
                 "something other than a directory is there");
    } else if (installation_.IsEmpty()) {
      AddFinding(kNotInstalled, installation_.installRoot, "neither directory nor record is there");
    } else {
      FindInDirectory();
      FindInTree();
      FindLeftovers();
      FindInRecord();
    }
    return std::move(findings_);
  }

 private:
  void FindInDirectory() {
    const std::string& recorded = record_.installPath;
    if (recorded.empty()) {
      AddMissing(kPathName, installation_.states.installPath);
    } else if (installation_.directory != recorded &&
               (!installation_.directory.empty() || !IsBareName(recorded))) {
      AddFinding(kRecordDirectory, kPathName, "there is no directory " + recorded);
    } else if (installation_.directory == recorded && recorded != kFinalName) {
      AddFinding(kRecordDiffers, kPathName, "it is " + recorded + " instead of " + kFinalName);
    }
    if (installation_.directory.empty()) {
      AddFinding(kNotInstalled, installation_.installRoot + kFinalName,
                 "there is no such directory");
    }
  }

  void FindInTree() {
    if (!expected_.ignoresModes) {
      for (const std::string& path : ClosedDirectories(installation_)) {
        AddFinding(kModeDiffers, path, "other users cannot enter it, or can write to it");
      }
    }
    if (expected_.tree == nullptr || installation_.directory.empty()) {
      return;
    }
    FileTree tree = *expected_.tree;
    for (FileItem& item : tree) {
      item.owner = OwnerOf(installation_.hostRoot);
    }
    const FileTree actual = ReadTree(installation_.installRoot + installation_.directory);
    for (const Difference& difference : Topmost(Compare(tree, actual))) {
      if (difference.kind < Kind::Mode || !expected_.ignoresModes) {
        AddFinding(RuleOf(difference.kind), installation_.directory + "/" + difference.path,
                   difference.reason);
      }
    }
  }

  void FindLeftovers() {
    for (const std::string& name : installation_.names) {
      if (name != installation_.directory) {
        AddFinding(kLeftover, installation_.installRoot + name,
                   "it is not the installed directory");
      }
    }
  }

  void FindInRecord() {
    FindInUpdateId();
    FindInVersion();
    if (installation_.states.random != ValueState::Usable) {
      AddMissing(kRandomName, installation_.states.random);
    } else if (IsRandomUnusable(installation_)) {
      AddFinding(kRecordRandom, kRandomName,
                 "it is " + std::to_string(record_.random) + ", not from 1 to " +
                     std::to_string(OSUtils::kLargestRandom));
    }
  }

  void FindInUpdateId() {
    const auto recorded = installation_.UpdateId();
    if (!recorded) {
      AddMissing(kUpdateIdName, installation_.states.updateId);
    } else if (expected_.updateId && recorded != expected_.updateId) {
      AddFinding(kRecordDiffers, kUpdateIdName,
                 "it is " + std::to_string(*recorded) + " instead of " +
                     std::to_string(*expected_.updateId));
    }
  }

  void FindInVersion() {
    const auto updateId = expected_.updateId ? expected_.updateId : installation_.UpdateId();
    if (record_.fullVersion.empty()) {
      AddMissing(kVersionName, installation_.states.fullVersion);
    } else if (updateId && record_.fullVersion != OSUtils::CompleteVersion(*updateId)) {
      const std::string version = OSUtils::CompleteVersion(*updateId);
      AddFinding(expected_.updateId ? kRecordDiffers : kRecordVersion, kVersionName,
                 "it is " + record_.fullVersion +
                     (expected_.updateId ? " instead of " : ", which the update number makes ") +
                     version);
    }
  }

  /// A text may be recorded and empty: it counts as missing.
  void AddMissing(const char* name, ValueState state) {
    if (state == ValueState::Unusable) {
      AddFinding(kRecordType, name, "its value is of another type, or out of range");
    } else {
      AddFinding(kRecordMissing, name, "it is not recorded");
    }
  }

  void AddFinding(const Rule& rule, const std::string& subject, const std::string& reason) {
    Add(findings_, rule, subject, reason);
  }

  const Installation& installation_;
  const WebRegInfo& record_;
  const Expectation& expected_;
  Findings findings_;
};

}  // namespace

Findings FindInInstallation(const Installation& installation, const Expectation& expected) {
  return InstallationFinder(installation, expected).Find();
}

SelfCheck CheckInstallation(const std::string& hostRoot, bool ignoresModes) {
  SelfCheck check;
  check.installation = ReadInstallation(hostRoot);
  Findings ofReceipt;
  check.receipt = ReadReceipt(hostRoot, ofReceipt);
  if (check.receipt && !FindInReceipt(*check.receipt, check.installation, ofReceipt)) {
    check.receipt.reset();
  }
  check.findings = FindInInstallation(
      check.installation,
      {check.receipt ? &check.receipt->tree : nullptr, std::nullopt, ignoresModes});
  Append(check.findings, ofReceipt);
  return check;
}

}  // namespace webresources
