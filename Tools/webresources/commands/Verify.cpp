#include "Verify.h"

#include <sys/stat.h>

#include "BundleFiles.h"
#include "Files.h"
#include "InstallerConstants.h"
#include "Metadata.h"
#include "OSUtils.h"
#include "TreeComparison.h"

namespace {

const WebRegInfo kAbsent;

const char kPathName[] = "installed directory";
const char kUpdateIdName[] = "update number";
const char kVersionName[] = "full version";
const char kRandomName[] = "random identifier";

/// `path`, for a file there that can be read or is missing. Throws Error for any other.
const std::string& Openable(const std::string& path) {
  StateOf(path);
  return path;
}

/// What a bundle's run should leave.
struct Expected {
  explicit Expected(const std::string& bundle)
      : resources(FindBundleFiles(bundle)),
        package(Openable(resources.package)),
        prediction(Predict(package)) {
    const Metadata metadata = ReadMetadata(resources.metadata);
    if (metadata.outcome != Metadata::RunOutcome::Complete) {
      throw Error("tell what is to be installed by", resources.metadata,
                  "a run " + Describe(metadata.outcome));
    }
    updateId = *metadata.updateId;
  }

  BundleFiles resources;
  PackageReader package;
  Prediction prediction;
  int updateId = 0;
};

bool IsBareName(const std::string& name) {
  return name.find('/') == std::string::npos && name != "." && name != "..";
}

class Verification {
 public:
  explicit Verification(const std::string& root)
      : installRoot_(root + OSUtils::GetPellamResourceDirectory()) {
    if (!OSUtils::InfoUnder(root, &record_)) {
      throw Error("read", "the record of " + (root.empty() ? "this host" : root),
                  "it is not readable here");
    }
    if (StateOf(installRoot_) == FileState::Present) {
      installed_ = NamesIn(installRoot_);
    }
  }

  Findings Run(Expected* expected) {
    if (installed_.empty() && record_.installPath.empty() && record_.fullVersion.empty() &&
        record_.updateId == kAbsent.updateId && record_.random == kAbsent.random) {
      AddFinding("not-installed", installRoot_, "neither directory nor record is there");
      return std::move(findings_);
    }
    const std::string directory = FindDirectory();
    if (expected != nullptr && !directory.empty()) {
      CompareTree(*expected, directory);
    }
    FindLeftovers(directory);
    FindInRecord(expected);
    return std::move(findings_);
  }

  const WebRegInfo& record() const { return record_; }
  const std::string& installRoot() const { return installRoot_; }

 private:
  /// The name of the directory that is installed: the record's, else the final one; empty when
  /// there is none.
  std::string FindDirectory() {
    const std::string& recorded = record_.installPath;
    if (!recorded.empty() && IsBareName(recorded) && IsInstalled(recorded)) {
      if (recorded != kFinalName) {
        AddFinding("record-differs", kPathName, "it is " + recorded + " instead of " + kFinalName);
      }
      return recorded;
    }
    if (recorded.empty()) {
      AddFinding("record-missing", kPathName, "it is not recorded");
    } else if (IsInstalled(kFinalName) || !IsBareName(recorded)) {
      AddFinding("record-directory", kPathName, "there is no directory " + recorded);
    }
    if (IsInstalled(kFinalName)) {
      return kFinalName;
    }
    AddFinding("not-installed", installRoot_ + kFinalName, "there is no such directory");
    return {};
  }

  bool IsInstalled(const std::string& name) const {
    struct stat status = {};
    return lstat((installRoot_ + name).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  }

  void CompareTree(Expected& expected, const std::string& directory) {
    for (const Difference& difference :
         Compare(expected.prediction, expected.package, installRoot_ + directory)) {
      static const char* const ids[] = {"file-missing", "file-extra", "file-type", "file-differs"};
      AddFinding(ids[static_cast<int>(difference.kind)], directory + "/" + difference.path,
                 difference.reason);
    }
  }

  void FindLeftovers(const std::string& directory) {
    for (const std::string& name : installed_) {
      if (name != directory) {
        AddFinding("leftover", installRoot_ + name, "it is not the installed directory");
      }
    }
  }

  void FindInRecord(const Expected* expected) {
    FindInUpdateId(expected);
    FindInVersion(expected);
    if (record_.random == kAbsent.random) {
      AddFinding("record-missing", kRandomName, "it is not recorded");
    } else if (record_.random < 1 || record_.random > OSUtils::kLargestRandom) {
      AddFinding("record-random", kRandomName,
                 "it is " + std::to_string(record_.random) + ", not from 1 to " +
                     std::to_string(OSUtils::kLargestRandom));
    }
  }

  void FindInUpdateId(const Expected* expected) {
    if (expected != nullptr && record_.updateId == expected->updateId) {
      return;  // even one that counts as absent
    }
    if (record_.updateId == kAbsent.updateId) {
      AddFinding("record-missing", kUpdateIdName, "it is not recorded");
    } else if (expected != nullptr) {
      AddFinding("record-differs", kUpdateIdName,
                 "it is " + std::to_string(record_.updateId) + " instead of " +
                     std::to_string(expected->updateId));
    }
  }

  void FindInVersion(const Expected* expected) {
    const std::string version =
        OSUtils::CompleteVersion(expected != nullptr ? expected->updateId : record_.updateId);
    if (record_.fullVersion.empty()) {
      AddFinding("record-missing", kVersionName, "it is not recorded");
    } else if (expected != nullptr && record_.fullVersion != version) {
      AddFinding("record-differs", kVersionName,
                 "it is " + record_.fullVersion + " instead of " + version);
    } else if (record_.updateId != kAbsent.updateId && record_.fullVersion != version) {
      AddFinding("record-version", kVersionName,
                 "it is " + record_.fullVersion + ", which the update number makes " + version);
    }
  }

  void AddFinding(const char* id, const std::string& subject, const std::string& reason) {
    Add(findings_, id, subject, reason);
  }

  const std::string installRoot_;
  WebRegInfo record_;
  std::vector<std::string> installed_;
  Findings findings_;
};

Json ToJson(const WebRegInfo& record) {
  Json json = Json::object();
  PutName(json, "installPath", record.installPath);
  json["updateId"] = record.updateId;
  PutName(json, "fullVersion", record.fullVersion);
  json["random"] = record.random;
  return json;
}

}  // namespace

Report Verify(const VerifyOptions& options) {
  std::optional<Expected> expected;
  if (options.bundle) {
    expected.emplace(*options.bundle);
  }
  if (!options.root.empty() && !IsDirectory(options.root)) {
    throw Error("read", options.root, "it is not a directory");
  }
  Verification verification(options.root);
  Report report("verify");
  report.findings = verification.Run(expected ? &*expected : nullptr);
  report.SetStatus();
  PutName(report.details, "installRoot", verification.installRoot());
  report.details["record"] = ToJson(verification.record());
  report.summary.push_back(report.findings.empty()
                               ? std::string("the installation is as it should be")
                               : "findings: " + std::to_string(report.findings.size()));
  return report;
}

Report InstallCheck(const VerifyOptions& options) {
  constexpr int kIsNeeded = 0;
  constexpr int kIsUpToDate = 1;
  Report report("installcheck");
  std::string why;
  try {
    Report verified = Verify(options);
    report.findings = std::move(verified.findings);
    report.details = std::move(verified.details);
    if (!report.findings.empty()) {
      const Finding& first = report.findings.front();
      why = first.subject + ": " + first.reason;
    }
  } catch (const Error& error) {
    report = ReportOf("installcheck", error);
    why = error.what();
  } catch (const std::exception& error) {
    why = error.what();
  }
  report.status = why.empty() ? kIsUpToDate : kIsNeeded;
  report.details["installNeeded"] = !why.empty();
  report.summary.push_back(why.empty() ? "up to date" : "install needed: " + why);
  return report;
}
