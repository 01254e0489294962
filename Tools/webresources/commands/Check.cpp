#include "Check.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "BundleFiles.h"
#include "Files.h"
#include "InstallerConstants.h"
#include "InstallerUtils.h"
#include "Metadata.h"
#include "OSUtils.h"
#include "PackageFindings.h"
#include "TreeComparison.h"

using Action = EntryPrediction::Action;
using RunOutcome = Metadata::RunOutcome;

namespace {

const char* NameOf(Action action) {
  switch (action) {
    case Action::MakeDirectory:
      return "directory";
    case Action::WriteFile:
      return "file";
    default:
      return "skip";
  }
}

const char* NameOf(RunOutcome outcome) {
  switch (outcome) {
    case RunOutcome::Nothing:
      return "nothing";
    case RunOutcome::Extracted:
      return "extracted";
    case RunOutcome::AllButRandom:
      return "all-but-random";
    default:
      return "complete";
  }
}

std::string Line(const EntryPrediction& entry) {
  std::string line = NameOf(entry.action);
  line.resize(10, ' ');
  std::string size = entry.action == Action::WriteFile ? std::to_string(entry.size) : "";
  line += std::string(size.length() < 10 ? 10 - size.length() : 0, ' ') + size + "  ";
  const std::string problem = Problem(entry);
  return line + entry.name + (problem.empty() ? "" : "  (" + problem + ")");
}

Json ToJson(const EntryPrediction& entry) {
  Json json = {{"action", NameOf(entry.action)}};
  PutName(json, "name", entry.name);
  if (entry.action == Action::WriteFile) {
    json["size"] = entry.size;
  }
  const std::string problem = Problem(entry);
  if (!problem.empty()) {
    json["problem"] = problem;
  }
  return json;
}

Json ToJson(const TreeItem& item) {
  Json json = {{"type", item.node->isDirectory ? "directory" : "file"}};
  PutName(json, "path", item.path);
  if (!item.node->isDirectory) {
    char crc[9] = {};
    std::snprintf(crc, sizeof crc, "%08x", static_cast<unsigned int>(item.node->crc32));
    json["size"] = item.node->size;
    json["crc32"] = crc;
  }
  return json;
}

template <typename Value>
Json OrNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json(nullptr);
}

Json ToJson(const Metadata& metadata) {
  return {{"clear", OrNull(metadata.clear)},
          {"updateid", OrNull(metadata.updateId)},
          {"regenerate", OrNull(metadata.regenerate)}};
}

void ReportEntries(const Prediction& prediction, bool isQuiet, Report& report) {
  Json& entries = report.details["entries"] = Json::array();
  for (const EntryPrediction& entry : prediction.entries) {
    entries.push_back(ToJson(entry));
    if (!isQuiet) {
      report.listing.push_back(Line(entry));
    }
  }
  Json& tree = report.details["tree"] = Json::array();
  for (const TreeItem& item : ItemsOf(prediction.tree)) {
    tree.push_back(ToJson(item));
  }
}

void ReportOutcome(const Prediction& prediction, const Metadata& metadata, Report& report) {
  const bool completes = metadata.outcome == RunOutcome::Complete;
  report.details["metadata"] = ToJson(metadata);
  report.details["outcome"] = {{"end", completes ? "exit" : "abort"},
                               {"reach", NameOf(metadata.outcome)},
                               {"description", Describe(metadata.outcome)}};
  const auto count = [&prediction](Action action) {
    return std::to_string(
        std::count_if(prediction.entries.begin(), prediction.entries.end(),
                      [action](const EntryPrediction& entry) { return entry.action == action; }));
  };
  report.summary.push_back("directories: " + count(Action::MakeDirectory) + ", files: " +
                           count(Action::WriteFile) + ", skipped: " + count(Action::Skip));
  const Json meaning = ToJson(metadata);
  report.summary.push_back("clear: " + meaning["clear"].dump() +
                           ", updateid: " + meaning["updateid"].dump() +
                           ", regenerate: " + meaning["regenerate"].dump());
  report.summary.push_back("a run " + Describe(metadata.outcome));
}

// Proof -----------------------------------------------------------------------------------------

/// A directory for one extraction, removed at the end.
class Scratch {
 public:
  Scratch() {
    const char* base = std::getenv("TMPDIR");
    path_ = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/webresources-XXXXXX";
    if (mkdtemp(path_.data()) == nullptr) {
      throw Error::FromErrno("make a directory like", path_);
    }
  }
  ~Scratch() { OSUtils::DeleteDir(path_); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

void RequireSpace(const Prediction& prediction, const std::string& path) {
  std::uint64_t needed = 0;
  for (const TreeItem& item : ItemsOf(prediction.tree)) {
    needed += item.node->size;
  }
  struct statvfs status = {};
  if (statvfs(path.c_str(), &status) != 0) {
    throw Error::FromErrno("read", path);
  }
  const std::uint64_t free = std::uint64_t{status.f_bavail} * status.f_frsize;
  if (needed > free) {
    throw Error(
        "extract to", path,
        std::to_string(needed) + " bytes are needed and " + std::to_string(free) + " are free");
  }
}

/// The differences between what the installer's extraction leaves and what was predicted.
std::vector<Difference> Prove(std::string packagePath, const Prediction& prediction,
                              PackageReader& package) {
  const Scratch scratch;
  RequireSpace(prediction, scratch.path());
  std::string destination = scratch.path() + "/" + kFinalName;
  if (!InstallerUtils::UncompressPackageFiles(packagePath, destination)) {
    throw Error("extract to", destination, "the directory cannot be made");
  }
  return Compare(prediction, package, destination);
}

void ReportProof(const std::vector<Difference>& differences, Report& report) {
  Json& proof = report.details["proof"];
  proof = {{"agrees", differences.empty()}, {"differences", Json::array()}};
  for (const Difference& difference : differences) {
    Json json = {{"reason", difference.reason}};
    PutName(json, "path", difference.path);
    proof["differences"].push_back(json);
    report.summary.push_back("differs: " + difference.path + ": " + difference.reason);
  }
  if (differences.empty()) {
    report.summary.push_back("proof: the extraction leaves exactly what is predicted");
  } else {
    report.summary.push_back(
        "proof: the extraction differs from the prediction: a defect of webresources");
    report.status = kCouldNotTell;
  }
}

}  // namespace

Report Check(const CheckOptions& options) {
  const BundleFiles resources = FindBundleFiles(options.path);
  const bool exists = StateOf(resources.package) == FileState::Present;
  PackageReader package(resources.package);
  const Prediction prediction = Predict(package);
  const Metadata metadata = ReadMetadata(resources.metadata);

  Report report("check");
  PutName(report.details, "resources", resources.directory);
  report.findings = FindInPackage(exists, prediction,
                                  exists ? ReadArchiveLayout(resources.package) : std::nullopt);
  report.findings.insert(report.findings.end(), metadata.findings.begin(), metadata.findings.end());
  report.SetStatus();
  ReportEntries(prediction, options.isQuiet, report);
  ReportOutcome(prediction, metadata, report);
  if (options.prove) {
    ReportProof(Prove(resources.package, prediction, package), report);
  }
  return report;
}
