#include <charconv>
#include <cstdlib>
#include <filesystem>

#include "bundle/BundleFiles.h"
#include "commands/Commands.h"
#include "packing/ArchiveWriter.h"
#include "support/AtomicFile.h"
#include "support/Files.h"
#include "support/Progress.h"
#include "support/Text.h"

namespace webresources {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kFixedTime = 315532800;  // 1980-01-01, the first time of the format

/// Returns the time of all entries. The time does not depend on the machine.
std::int64_t EntryTime() {
  const char* text = std::getenv("SOURCE_DATE_EPOCH");
  if (text == nullptr || *text == '\0') {
    return kFixedTime;
  }
  char* end = nullptr;
  errno = 0;
  const std::int64_t seconds = std::strtoll(text, &end, 10);
  if (*end != '\0' || errno != 0) {
    throw Error("use", "SOURCE_DATE_EPOCH", "it is not a number of seconds: " + std::string(text));
  }
  return seconds;
}

/// Finds the files to write. Throws Error for a directory that is no bundle, unless the options
/// allow any directory: the caller has most likely made a mistake.
BundleFiles FindOutput(const PackOptions& options) {
  BundleFiles files = FindBundleFiles(options.output);
  if (!options.createsOutput && LastOf(RealPath(files.directory)) != "Resources") {
    throw Error("write to", options.output,
                "it is neither a bundle nor a Resources directory (--create writes there "
                "nevertheless)");
  }
  return files;
}

/// Throws Error if the output is inside the directory to pack: a package must not contain a
/// package. Makes no directory.
void RequireOutput(const PackOptions& options) {
  const bool isMissing = options.createsOutput && !Exists(options.output);
  const std::string directory = isMissing ? options.output : FindOutput(options).directory;
  const std::string outer = RealPath(options.directory) + "/";
  const fs::path inner = fs::weakly_canonical(fs::absolute(directory)) / "";
  if (inner.string().compare(0, outer.length(), outer) == 0) {
    throw Error("write to", directory, "it lies in the directory that is packed");
  }
}

struct Totals {
  std::uint64_t directories = 0;
  std::uint64_t files = 0;
  std::uint64_t packedBytes = 0;
  std::string sha256;
};

void WriteArchive(const SourceTree& tree, const AtomicFile& package, std::int64_t time) {
  constexpr std::uint64_t kReadings = 2;
  Progress progress("packing", kReadings * tree.bytes + tree.items.size());
  ArchiveWriter::Options options;
  options.seconds = time;
  options.onRead = [&progress](const std::string& path, std::size_t bytes) {
    ThrowIfInterrupted("pack", path);  // the temporary files are removed
    progress.Step(bytes);
  };
  ArchiveWriter archive(package.descriptor(), package.temporary(), options);
  for (const SourceTree::Item& item : tree.items) {
    ThrowIfInterrupted("pack", item.path);
    if (item.isDirectory) {
      archive.AddDirectory(item.name);
    } else {
      archive.AddFile(item.name, item.path, item.size);
    }
    progress.Step();
  }
  archive.Close();
}

Totals WritePackage(const SourceTree& tree, const AtomicFile& package, std::int64_t time) {
  WriteArchive(tree, package, time);
  Totals totals;
  for (const SourceTree::Item& item : tree.items) {
    ++(item.isDirectory ? totals.directories : totals.files);
  }
  Sha256 hash;
  ForEachChunk(package.descriptor(), package.temporary(),
               [&](const char* bytes, std::size_t length) {
                 hash.Update(bytes, length);
                 totals.packedBytes += length;
               });
  totals.sha256 = DigestText(hash.Finish());
  return totals;
}

void ReportLeftOut(const SourceTree& tree, Report& report) {
  Json& leftOut = report.details["leftOut"] = Json::array();
  for (const SourceTree::LeftOut& item : tree.leftOut) {
    Json json = {{"reason", item.reason}};
    PutName(json, "path", item.name);
    leftOut.push_back(json);
    report.listing.push_back("left out: " + item.name + " (" + item.reason + ")");
  }
}

void ReportTotals(const SourceTree& tree, const Totals& totals, const BundleFiles& resources,
                  Report& report) {
  Json& package = report.details["package"] = Json::object();
  PutName(package, "path", resources.package);
  package["directories"] = totals.directories;
  package["files"] = totals.files;
  package["bytes"] = tree.bytes;
  package["packedBytes"] = totals.packedBytes;
  package["sha256"] = totals.sha256;
  report.summary.push_back("directories: " + std::to_string(totals.directories) +
                           ", files: " + std::to_string(totals.files) +
                           ", bytes: " + std::to_string(tree.bytes) + ", packed into " +
                           std::to_string(totals.packedBytes) + " bytes: " + resources.package);
  report.summary.push_back("sha256: " + totals.sha256);
}

}  // namespace

Report Pack(const PackOptions& options) {
  const std::int64_t time = EntryTime();
  RequireOutput(options);
  const SourceTree tree = CollectSource(options.directory, options.selection);

  Report report("pack");
  ReportLeftOut(tree, report);
  report.findings = tree.refused;
  AddUpdateIdFindings(report.findings, *options.metadata.updateId);
  report.SetStatus();
  const Findings& stopping = options.allowsWarnings ? ErrorsOf(report.findings) : report.findings;
  if (!stopping.empty()) {
    report.refusal = "nothing was written";
    return report;
  }
  report.status = kAsItShouldBe;
  CatchInterruptions();
  if (options.createsOutput) {
    MakeDirectories(options.output);
  }
  const BundleFiles resources = FindOutput(options);
  AtomicFile metadata(resources.metadata);
  metadata.Write(ToJson(options.metadata).dump() + "\n");
  AtomicFile package(resources.package);
  const Totals totals = WritePackage(tree, package, time);
  AtomicFile::CommitBoth(package, metadata);
  ReportTotals(tree, totals, resources, report);
  return report;
}

std::string ProblemOfUpdateId(const std::string& text) {
  std::int32_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  const bool fits = number >= kSmallestUpdateId && number <= kLargestUpdateId;
  return fits && text == std::to_string(number)
             ? std::string()
             : "the update number must be a whole number from " +
                   std::to_string(kSmallestUpdateId) + " to " + std::to_string(kLargestUpdateId) +
                   ", in decimal digits without leading zeros";
}

}  // namespace webresources
