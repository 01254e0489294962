#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <iomanip>
#include <sstream>
#include <utility>

#include "InstallerConstants.h"
#include "OSUtils.h"
#include "commands/Commands.h"
#include "prediction/BundleInspection.h"
#include "prediction/TreeComparison.h"
#include "support/Files.h"
#include "support/Progress.h"

namespace webresources {

using Action = EntryPrediction::Action;
using RunOutcome = Metadata::RunOutcome;

namespace {

// The names in documents, each list in the order of the enumerators.
constexpr const char* kActions[] = {"directory", "file", "skip"};
constexpr const char* kReaches[] = {"nothing", "extracted", "all-but-random", "complete"};

const char* NameOfAction(Action action) {
  return kActions[static_cast<int>(action)];
}

std::string Line(const EntryPrediction& entry) {
  std::ostringstream line;
  line << std::left << std::setw(10) << NameOfAction(entry.action) << std::right << std::setw(10);
  if (entry.action == Action::WriteFile) {
    line << entry.size;
  } else {
    line << "";
  }
  line << "  " << entry.name;
  if (const auto problem = Problem(entry)) {
    line << "  (" << *problem << ")";
  }
  return line.str();
}

Json ToJson(const EntryPrediction& entry) {
  Json json = {{"action", NameOfAction(entry.action)}};
  PutName(json, "name", entry.name);
  if (entry.action == Action::WriteFile) {
    json["size"] = entry.size;
  }
  if (const auto problem = Problem(entry)) {
    json["problem"] = *problem;
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

void PutEntries(const Prediction& prediction, Json& details) {
  Json& entries = details["entries"] = Json::array();
  for (const EntryPrediction& entry : prediction.entries) {
    entries.push_back(ToJson(entry));
  }
  Json& tree = details["tree"] = Json::array();
  for (const TreeItem& item : ItemsOf(prediction.tree)) {
    tree.push_back(ToJson(item));
  }
}

void ReportEntries(Prediction prediction, const CheckOptions& options, Report& report) {
  std::deque<EntryPrediction>& entries = prediction.entries;
  const auto count = [&entries](Action action) {
    return std::to_string(
        std::count_if(entries.begin(), entries.end(),
                      [action](const EntryPrediction& entry) { return entry.action == action; }));
  };
  report.summary.push_back("directories: " + count(Action::MakeDirectory) + ", files: " +
                           count(Action::WriteFile) + ", skipped: " + count(Action::Skip));
  if (options.asJson) {
    PutEntries(prediction, report.details);
    return;
  }
  prediction.tree = PredictedTree();  // the lines take the memory of the tree and of the entries
  for (; !entries.empty(); entries.pop_front()) {
    report.listing.push_back(Line(entries.front()));
  }
}

void ReportOutcome(const Metadata& metadata, Report& report) {
  const bool completes = metadata.outcome == RunOutcome::Complete;
  report.details["metadata"] = ToJson(metadata);
  Json& outcome = report.details["outcome"];
  outcome["end"] = completes ? "exit" : "abort";
  outcome["reach"] = kReaches[static_cast<int>(metadata.outcome)];
  outcome["description"] = Describe(metadata.outcome);
  std::string line;
  for (const auto& [name, value] : report.details["metadata"].items()) {
    line += (line.empty() ? "" : ", ") + name + ": " + ValueText(value);
  }
  report.summary.push_back(line);
  report.summary.push_back("a run " + Describe(metadata.outcome));
}

// Proof -----------------------------------------------------------------------------------------

/// Owns a new directory for one extraction. The destructor removes the directory with all contents.
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

void RequireSpace(std::uint64_t bytes, std::uint64_t files, const std::string& path) {
  const FreeSpace free = FreeSpaceAt(path);
  const auto require = [&path](std::uint64_t needed, std::uint64_t left, const char* unit) {
    if (needed > left) {
      throw Error("extract to", path,
                  "up to " + std::to_string(needed) + unit + " are needed and " +
                      std::to_string(left) + " are free",
                  "set TMPDIR to a larger volume");
    }
  };
  require(bytes, free.bytes, " bytes");
  require(files, free.files, " files and directories");
}

/// The result of a trial extraction.
struct Proof {
  Differences differences;
  std::vector<std::string> notCompared;  ///< Paths that depend on the volume.
};

/// Predicts the result during an extraction by the installer's code. Then compares the prediction
/// with the extracted tree. Prediction and extraction share the reading of the data; the comparison
/// of checksums tests the reading.
Prediction Prove(PackageReader& package, const PackageExtent& extent, Proof& proof) {
  CatchInterruptions();
  const Scratch scratch;
  RequireSpace(extent.bytes, extent.entries + extent.directories, scratch.path());
  const std::string destination = scratch.path() + "/" + kFinalName;
  Prediction prediction = PredictAndExtract(package, extent.bytes, destination);
  const FileTree predicted = TreeOf(prediction);
  proof.notCompared = PathsForSomeVolumesOnly(predicted);
  proof.differences = Topmost(OfContent(
      Without(proof.notCompared, Compare(predicted, ReadTree(destination, Checksum::Crc32)))));
  return prediction;
}

Json PathWithReason(const std::string& path, const std::string& reason) {
  Json json = {{"reason", reason}};
  PutName(json, "path", path);
  return json;
}

/// Reports the digest of the package, for a comparison with the digest in a receipt.
void ReportDigest(const std::string& package, Report& report) {
  const std::optional<std::string> digest = DigestOfPackage(package);
  PutOptional(report.details, "sha256", digest);
  if (digest) {
    report.summary.push_back("SHA-256: " + *digest);
  }
}

void ReportProof(const Proof& proof, Report& report) {
  Json& json = report.details["proof"];
  json = {{"agrees", proof.differences.empty()}, {"differences", Json::array()}};
  for (const Difference& difference : proof.differences) {
    json["differences"].push_back(PathWithReason(difference.path, difference.reason));
    report.summary.push_back("differs: " + difference.path + ": " + difference.reason);
  }
  for (const std::string& path : proof.notCompared) {
    json["notCompared"].push_back(PathWithReason(path, "its name depends on the volume"));
    report.summary.push_back("not compared: " + path + ": its name depends on the volume");
  }
  if (proof.differences.empty()) {
    report.summary.push_back("proof: the extraction leaves exactly what is predicted");
  } else {
    report.summary.push_back(
        "proof: the extraction differs from the prediction: a defect of webresources");
    report.status = kCouldNotTell;
  }
}

}  // namespace

Report Check(const CheckOptions& options) {
  Proof proof;
  BundleInspection bundle = InspectBundle(
      options.path, options.limits,
      [&options, &proof](PackageReader& package, const PackageExtent& extent) {
        return options.prove ? Prove(package, extent, proof) : Predict(package, extent.bytes);
      });
  Report report("check");
  PutName(report.details, "resources", bundle.files.directory);
  ReportDigest(bundle.files.package, report);
  bundle.files.RequireUnchanged();
  report.findings = std::move(bundle.findings);
  report.SetStatus();
  if (bundle.isRead) {
    ReportEntries(std::move(bundle.prediction), options, report);
  }
  ReportOutcome(bundle.metadata, report);
  if (bundle.isRead && options.prove) {
    ReportProof(proof, report);
  }
  return report;
}

}  // namespace webresources
