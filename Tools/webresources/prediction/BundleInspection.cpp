#include "prediction/BundleInspection.h"

#include "support/Files.h"

namespace webresources {

BundleInspection InspectBundle(const std::string& path, const Limits& limits,
                               const PackageReading& read) {
  BundleInspection bundle;
  bundle.files = FindBundleFiles(path);
  bundle.metadata = ReadMetadata(bundle.files.metadata);
  const bool isThere = IsPresent(bundle.files.package);  // throws Error if unreadable
  const PackageExtent extent = isThere ? ExtentOf(bundle.files.package) : PackageExtent();
  bundle.findings = FindOutOfBounds(bundle.files.package, extent, limits);
  bundle.isRead = bundle.findings.empty();
  if (bundle.isRead) {
    PackageReader package(bundle.files.package, PackageReader::Unlocked());
    bundle.prediction = read(package, extent);
    bundle.findings = FindInPackage(bundle.files.package, bundle.prediction);
  }
  Append(bundle.findings, bundle.metadata.findings);
  Append(bundle.findings, FindInProgram(bundle.files));
  bundle.files.RequireUnchanged();
  return bundle;
}

BundleInspection InspectBundle(const std::string& path, const Limits& limits, FileTree* tree) {
  EntryDigests digests;
  BundleInspection bundle =
      InspectBundle(path, limits, [&digests](PackageReader& package, const PackageExtent& extent) {
        return Predict(package, extent.bytes, digests.Sink());
      });
  bundle.prediction.entries.clear();  // the tree needs their memory
  *tree = bundle.isRead ? TreeOf(bundle.prediction, &digests) : FileTree();
  bundle.prediction = {};
  return bundle;
}

}  // namespace webresources
