#include "InstallationFindings.h"

#include "Files.h"
#include "InstallerConstants.h"
#include "Names.h"
#include "Repair.h"
#include "TreeComparison.h"

namespace {

using Kind = Difference::Kind;
using ValueState = OSUtils::ValueState;

const char kPathName[] = "installed directory";
const char kUpdateIdName[] = "update number";
const char kVersionName[] = "full version";
const char kRandomName[] = "random identifier";

const char* RuleOf(Kind kind) {
  switch (kind) {
    case Kind::Missing:
      return "file-missing";
    case Kind::Extra:
      return "file-extra";
    case Kind::Type:
      return "file-type";
    case Kind::Content:
      return "file-differs";
    case Kind::Mode:
      return "mode-differs";
    default:
      return "owner-differs";
  }
}

/// The user who owns the host: whoever owns its topmost directory.
unsigned int OwnerOf(const std::string& prefix) {
  return StatusOf(prefix + "/").st_uid;
}

class InstallationFinder {
 public:
  InstallationFinder(const Installation& installation, const Expectation& expected)
      : installation_(installation), record_(installation.record), expected_(expected) {}

  Findings Find() {
    if (!installation_.isRootUsable) {
      AddFinding("root-blocked", installation_.root, "something other than a directory is there");
    } else if (installation_.IsEmpty()) {
      AddFinding("not-installed", installation_.root, "neither directory nor record is there");
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
      AddFinding("record-directory", kPathName, "there is no directory " + recorded);
    } else if (installation_.directory == recorded && recorded != kFinalName) {
      AddFinding("record-differs", kPathName, "it is " + recorded + " instead of " + kFinalName);
    }
    if (installation_.directory.empty()) {
      AddFinding("not-installed", installation_.root + kFinalName, "there is no such directory");
    }
  }

  void FindInTree() {
    if (!expected_.ignoresModes) {
      for (const std::string& path : ClosedDirectories(installation_)) {
        AddFinding("mode-differs", path, "other users cannot enter it, or can write to it");
      }
    }
    if (expected_.tree == nullptr || installation_.directory.empty()) {
      return;
    }
    FileTree tree = *expected_.tree;
    for (FileItem& item : tree) {
      item.owner = OwnerOf(installation_.prefix);
    }
    const FileTree actual = ReadTree(installation_.root + installation_.directory);
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
        AddFinding("leftover", installation_.root + name, "it is not the installed directory");
      }
    }
  }

  void FindInRecord() {
    FindInUpdateId();
    FindInVersion();
    if (installation_.states.random != ValueState::Usable) {
      AddMissing(kRandomName, installation_.states.random);
    } else if (IsRandomUnusable(installation_)) {
      AddFinding("record-random", kRandomName,
                 "it is " + std::to_string(record_.random) + ", not from 1 to " +
                     std::to_string(OSUtils::kLargestRandom));
    }
  }

  void FindInUpdateId() {
    const auto recorded = installation_.UpdateId();
    if (!recorded) {
      AddMissing(kUpdateIdName, installation_.states.updateId);
    } else if (expected_.updateId && recorded != expected_.updateId) {
      AddFinding("record-differs", kUpdateIdName,
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
      AddFinding(expected_.updateId ? "record-differs" : "record-version", kVersionName,
                 "it is " + record_.fullVersion +
                     (expected_.updateId ? " instead of " : ", which the update number makes ") +
                     version);
    }
  }

  /// A text may be recorded and empty: it counts as missing.
  void AddMissing(const char* name, ValueState state) {
    if (state == ValueState::Unusable) {
      AddFinding("record-type", name, "its value is of another type, or out of range");
    } else {
      AddFinding("record-missing", name, "it is not recorded");
    }
  }

  void AddFinding(const char* id, const std::string& subject, const std::string& reason) {
    Add(findings_, id, subject, reason);
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
