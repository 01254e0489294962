#include "commands/Pack.h"

#include <charconv>
#include <cstdlib>
#include <sstream>

#include "bundle/BundleFiles.h"
#include "bundle/Metadata.h"
#include "packing/ArchiveWriter.h"
#include "support/AtomicFile.h"
#include "support/Files.h"
#include "support/Progress.h"
#include "support/Text.h"

namespace webresources {

namespace {

constexpr std::int64_t kFixedTime = 315532800;  // 1980-01-01, the first that the format has

/// The time of all entries, so that it is not the machine's.
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

/// Finds the files to write. A directory that is no bundle is most likely a mistake: the two files
/// would be of no use there.
BundleFiles FindOutput(const PackOptions& options) {
  if (options.createsOutput) {
    MakeDirectories(options.output);
  }
  BundleFiles files = FindBundleFiles(options.output);
  if (!options.createsOutput && LastOf(RealPath(files.directory)) != "Resources") {
    throw Error("write to", options.output,
                "it is neither a bundle nor a Resources directory (--create writes there "
                "nevertheless)");
  }
  return files;
}

/// What is written must not become part of what is packed.
void RequireOutside(const std::string& output, const std::string& directory) {
  const std::string outer = RealPath(directory) + "/";
  if ((RealPath(output) + "/").compare(0, outer.length(), outer) == 0) {
    throw Error("write to", output, "it lies in the directory that is packed");
  }
}

struct Totals {
  std::uint64_t directories = 0;
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
};

Totals WritePackage(const SourceTree& tree, const std::string& path) {
  Totals totals;
  Progress progress("packing", tree.items.size());
  ArchiveWriter archive(path, EntryTime());
  for (const SourceTree::Item& item : tree.items) {
    ThrowIfInterrupted("pack", item.path);  // the temporary files are removed
    if (item.isDirectory) {
      archive.AddDirectory(item.name);
      ++totals.directories;
    } else {
      totals.bytes += archive.AddFile(item.name, item.path);
      ++totals.files;
    }
    progress.Step();
  }
  archive.Close();
  return totals;
}

std::string MetadataText(const PackOptions& options) {
  std::ostringstream text;
  text << std::boolalpha << "{\"clear\":" << options.clear << ",\"updateid\":" << options.updateId
       << ",\"regenerate\":" << options.regenerate << "}\n";
  return text.str();
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

void ReportTotals(const Totals& totals, const BundleFiles& resources, Report& report) {
  const auto packedBytes = static_cast<std::uint64_t>(StatusOf(resources.package).st_size);
  Json& package = report.details["package"] = Json::object();
  PutName(package, "path", resources.package);
  package["directories"] = totals.directories;
  package["files"] = totals.files;
  package["bytes"] = totals.bytes;
  package["packedBytes"] = packedBytes;
  report.summary.push_back("directories: " + std::to_string(totals.directories) +
                           ", files: " + std::to_string(totals.files) +
                           ", bytes: " + std::to_string(totals.bytes) + ", packed into " +
                           std::to_string(packedBytes) + " bytes: " + resources.package);
}

}  // namespace

Report Pack(const PackOptions& options) {
  const BundleFiles resources = FindOutput(options);
  RequireOutside(resources.directory, options.directory);
  const SourceTree tree = CollectSource(options.directory, options.selection);
  CatchInterruptions();

  Report report("pack");
  ReportLeftOut(tree, report);
  AtomicFile metadata(resources.metadata);
  metadata.Write(MetadataText(options));
  report.findings = tree.refused;
  for (const Finding& finding : ReadMetadata(metadata.temporary()).findings) {
    report.findings.push_back(finding);
  }
  report.SetStatus();
  const Findings& stopping = options.allowsWarnings ? ErrorsOf(report.findings) : report.findings;
  if (!stopping.empty()) {
    report.refusal = "nothing was written";
    return report;
  }
  report.status = kAsItShouldBe;
  AtomicFile package(resources.package);
  const Totals totals = WritePackage(tree, package.temporary());
  AtomicFile::CommitBoth(package, metadata);
  ReportTotals(totals, resources, report);
  return report;
}

std::string ProblemOfUpdateId(const std::string& text) {
  const std::string digits = text.substr(text.rfind('-', 0) == 0 ? 1 : 0);
  const bool isPlain = !digits.empty() &&
                       digits.find_first_not_of("0123456789") == std::string::npos &&
                       (digits.front() != '0' || text == "0");
  std::int32_t number = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool fits =
      failure == std::errc() && number >= kSmallestUpdateId && number <= kLargestUpdateId;
  return isPlain && fits
             ? std::string()
             : "the update number must be a whole number from " +
                   std::to_string(kSmallestUpdateId) + " to " + std::to_string(kLargestUpdateId) +
                   ", in decimal digits without leading zeros";
}

}  // namespace webresources
