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
  if (IsRandomUnusable(installation.record)) {
    RemoveUnusableRandom(installation.hostRoot);
  }
  for (const std::string& path : ClosedDirectories(installation)) {
    if (chmod(path.c_str(), kDirectoryMode) != 0) {
      throw Error::FromErrno("open to other users", path);
    }
  }
}

namespace {

using Kind = Difference::Kind;

const char kPathName[] = "installed directory";

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
      : installation_(installation), record_(installation.record.values), expected_(expected) {}

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
      Append(findings_, FindInRecord(installation_.record, expected_.updateId));
    }
    return std::move(findings_);
  }

 private:
  void FindInDirectory() {
    const std::string& recorded = record_.installPath;
    if (recorded.empty()) {
      AddMissing(findings_, kPathName, installation_.record.installPath);
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
