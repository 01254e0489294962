#include "bundle/BundleFiles.h"
#include "bundle/Metadata.h"
#include "commands/Commands.h"
#include "prediction/FileTree.h"
#include "support/Error.h"
#include "support/Files.h"

namespace webresources {

Report Info(const std::string& path) {
  const BundleFiles bundle = FindBundleFiles(path);
  for (const std::string& file : {bundle.package, bundle.metadata}) {
    if (!IsPresent(file)) {
      throw Error("read", file, "there is no such file", "make it with webresources pack");
    }
  }
  const Metadata metadata = ReadMetadata(bundle.metadata);
  const std::string sha256 = DigestText(DigestOfFile(bundle.package));
  PackageReader package(bundle.package);
  const FileTree tree = TreeOf(PredictOutline(package));
  bundle.RequireUnchanged();

  Report report("info");
  const Json values = ToJson(metadata);
  PutName(report.details, "resources", bundle.directory);
  report.details["metadata"] = values;
  for (const auto& [name, value] : values.items()) {
    constexpr std::size_t kWidth = 12;
    std::string label = name + ":";
    label.resize(kWidth, ' ');
    report.summary.push_back(label + ValueText(value));
  }
  report.details["package"] = {
      {"files", FilesOf(tree)}, {"bytes", BytesOf(tree)}, {"sha256", sha256}};
  report.summary.push_back("content:    " + std::to_string(FilesOf(tree)) + " files, " +
                           std::to_string(BytesOf(tree)) + " bytes");
  report.summary.push_back("SHA-256:    " + sha256);
  return report;
}

}  // namespace webresources
