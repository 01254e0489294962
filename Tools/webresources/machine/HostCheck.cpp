#include "machine/HostCheck.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "InstallerConstants.h"
#include "machine/Access.h"
#include "machine/InstallLock.h"
#include "prediction/FileTree.h"
#include "prediction/TreeComparison.h"
#include "report/Rules.h"
#include "support/Error.h"
#include "support/Progress.h"
#include "support/Text.h"

namespace webresources {

void RepairWhatARunKeeps(const Installation& installation, bool ignoresModes) {
  // A second read: after a failed read, a usable value could look like an unusable value.
  if (IsRandomUnusable(installation.record) &&
      IsRandomUnusable(ReadHostRecord(installation.hostRoot)) &&
      !RemoveRandom(installation.hostRoot)) {
    throw Error("write", RecordLocation(installation.hostRoot),
                "the random identifier cannot be removed");
  }
  if (!ignoresModes) {
    RepairAccess(installation.hostRoot);
  }
}

namespace {

using Kind = Difference::Kind;

/// The rule of each kind of difference, in the order of the kinds.
const Rule* const kRules[] = {&kFileMissing, &kFileExtra,   &kFileType,
                              &kFileDiffers, &kModeDiffers, &kOwnerDiffers};

/// Returns `tree` without differences that give nobody access: a directory inherits the
/// set-group-ID bit from the directory above, and root may own a file in the place of `owner`.
FileTree Normalized(FileTree tree, unsigned int owner) {
  for (FileItem& item : tree) {
    if (item.type == FileItem::Type::Directory) {
      item.mode = static_cast<std::uint16_t>(*item.mode & ~S_ISGID);
    }
    if (IsTrustedOwner(*item.owner, owner)) {
      item.owner = owner;
    }
  }
  return tree;
}

class InstallationFinder {
 public:
  InstallationFinder(const Installation& installation, const Expectation& expected,
                     std::optional<FileTree>* tree)
      : installation_(installation),
        record_(installation.record.values),
        expected_(expected),
        tree_(*tree) {}

  Findings Find() {
    if (!installation_.isRootUsable) {
      Add(findings_, kRootBlocked, installation_.installRoot,
          "something other than a directory is there");
    } else if (installation_.names.empty() && IsEmpty(installation_.record)) {
      Add(findings_, kNotInstalled, installation_.installRoot,
          "neither directory nor record is there");
    } else {
      FindInDirectory();
      if (!expected_.ignoresModes) {
        Append(findings_, FindInAccess(installation_.hostRoot, Places::Product));
      }
      FindInTree();
      FindLeftovers();
      Append(findings_, FindInRecord(installation_.record, expected_.metadata));
    }
    return std::move(findings_);
  }

 private:
  void FindInDirectory() {
    const std::string& recorded = record_.installPath;
    if (recorded.empty()) {
      AddMissing(findings_, kInstallPathField, installation_.record);
    } else if (installation_.directory != recorded &&
               (installation_.directory || !IsBareName(recorded))) {
      Add(findings_, kRecordDirectory, kInstallPathField.label,
          "there is no directory " + recorded);
    } else if (installation_.directory == recorded && recorded != kFinalName) {
      Add(findings_, kRecordDiffers, kInstallPathField.label,
          "it is " + recorded + " instead of " + kFinalName);
    }
    if (!installation_.directory) {
      Add(findings_, kNotInstalled, installation_.installRoot + kFinalName,
          "there is no such directory");
    }
  }

  /// Returns whether a Mac's Finder makes an entry with this name in each directory that a user
  /// opens. The next run removes the entry.
  static bool IsFinders(const std::string& path) { return LastOf(path) == ".DS_Store"; }

  void FindInTree() {
    if (expected_.tree == nullptr || !installation_.directory) {
      return;
    }
    const unsigned int owner = OwnerOf(installation_.hostRoot);
    const std::string& name = *installation_.directory;
    const std::string directory = installation_.installRoot + name;
    tree_ = Normalized(ReadTree(directory, Checksum::Sha256, expected_.tree), owner);
    for (const Difference& difference : Topmost(Compare(*expected_.tree, *tree_, owner))) {
      const bool isFinders = difference.kind == Kind::Extra && IsFinders(difference.path);
      if (!isFinders && (difference.kind < Kind::Mode || !expected_.ignoresModes)) {
        Add(findings_, *kRules[static_cast<int>(difference.kind)], name + "/" + difference.path,
            difference.reason);
      }
    }
    if (!expected_.ignoresModes) {
      FindInLists(directory, *tree_);
    }
  }

  void FindInLists(const std::string& directory, const FileTree& tree) {
    for (const FileItem& item : tree) {
      ThrowIfInterrupted("read", directory + "/" + item.path);
      if (LetsOthersWrite(directory + "/" + item.path)) {
        Add(findings_, kModeDiffers, *installation_.directory + "/" + item.path, kListReason);
      }
    }
  }

  void FindLeftovers() {
    for (const std::string& name : installation_.names) {
      if (name != installation_.directory && !IsFinders(name)) {
        Add(findings_, kLeftover, installation_.installRoot + name,
            "it is not the installed directory");
      }
    }
  }

  const Installation& installation_;
  const WebRegInfo& record_;
  const Expectation& expected_;
  std::optional<FileTree>& tree_;
  Findings findings_;
};

}  // namespace

Findings FindInInstallation(const Installation& installation, const Expectation& expected,
                            std::optional<FileTree>* tree) {
  return InstallationFinder(installation, expected, tree).Find();
}

Findings HostState::AllFindings() const {
  Findings all = findings;
  Append(all, receiptFindings);
  Append(all, hostFindings);
  return all;
}

HostState ReadHost(const std::string& hostRoot) {
  HostState host;
  host.installation = ReadInstallation(hostRoot);
  host.receipt = ReadReceipt(hostRoot, std::nullopt, host.receiptFindings);
  return host;
}

void CompareWithReceipt(HostState& host, bool ignoresModes) {
  host.isCompared = host.receipt &&
                    FindInReceipt(*host.receipt, host.installation, host.receiptFindings) &&
                    !host.receipt->tree.empty();
  host.findings = FindInInstallation(
      host.installation, {host.isCompared ? &host.receipt->tree : nullptr, nullptr, ignoresModes},
      &host.tree);
  if (!ignoresModes) {
    host.hostFindings = FindInAccess(host.installation.hostRoot, Places::Host);
  }
}

namespace {

std::string Absolute(const std::string& path) {
  std::string absolute = std::filesystem::absolute(path).lexically_normal().string();
  while (absolute.length() > 1 && absolute.back() == '/') {
    absolute.pop_back();
  }
  return absolute;
}

std::string InstallOf(const std::string& bundle, const HostOptions& options) {
  return std::string("webresources install ") +
         (options.allowsDowngrade ? "--allow-downgrade " : "") +
         (options.ignoresModes ? "--ignore-modes " : "") + bundle;
}

std::string CommandLineOf(const HostOptions& options) {
  const std::string sudo = geteuid() == 0 ? "" : "sudo ";
  const std::string bundle = options.bundle ? Absolute(*options.bundle) : "";
  const std::string word = options.bundle ? ShellQuoted(bundle) : "BUNDLE";
  const std::string hostRoot = options.hostRoot.empty() ? "" : Absolute(options.hostRoot);
  const std::string unlock =
      InstallLock::IsRefusedForRoot(hostRoot)
          ? sudo + "rm " + ShellQuoted(InstallLock::PathOf(hostRoot)) + " && "
          : "";
  if (hostRoot.empty()) {
    return unlock + sudo + InstallOf(word, options);
  }
  const std::string chroot = unlock + sudo + "chroot " + ShellQuoted(hostRoot) + " ";
  if (!options.bundle) {
    return chroot + InstallOf(word, options);
  }
  if (bundle.rfind(hostRoot + "/", 0) == 0) {
    return chroot + InstallOf(ShellQuoted(bundle.substr(hostRoot.length())), options);
  }
  const std::string copied = "/" + LastOf(bundle);
  return sudo + "cp -R " + ShellQuoted(bundle + "/.") + " " + ShellQuoted(hostRoot + copied) +
         " && " + chroot + InstallOf(ShellQuoted(copied), options);
}

bool IsRepairedByInstall(const Finding& finding) {
  return std::strstr(finding.rule->fix, "run webresources install") != nullptr;
}

}  // namespace

void Advise(const HostOptions& options, Report& report) {
  if (std::any_of(report.findings.begin(), report.findings.end(), IsRepairedByInstall)) {
    report.advice = CommandLineOf(options);
  }
}

}  // namespace webresources
