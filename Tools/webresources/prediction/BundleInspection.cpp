#include "prediction/BundleInspection.h"

namespace webresources {

BundleInspection InspectBundle(const std::string& path, const Limits& limits,
                               const PackageReading& read) {
  BundleInspection bundle;
  bundle.files = FindBundleFiles(path);
  bundle.metadata = ReadMetadata(bundle.files.metadata);
  bundle.findings = FindOutOfBounds(bundle.files.package, limits);
  bundle.isRead = bundle.findings.empty();
  if (bundle.isRead) {
    PackageReader package(bundle.files.package);
    bundle.prediction = read(package, bundle.files.package);
    bundle.findings = FindInPackage(bundle.files.package, bundle.prediction);
  }
  Append(bundle.findings, bundle.metadata.findings);
  Append(bundle.findings, FindInProgram(bundle.files));
  return bundle;
}

BundleInspection InspectBundle(const std::string& path, const Limits& limits, FileTree* tree) {
  EntryDigests digests;
  BundleInspection bundle =
      InspectBundle(path, limits, [&digests](PackageReader& package, const std::string&) {
        return Predict(package, digests.Sink());
      });
  *tree = bundle.isRead ? TreeOf(bundle.prediction, &digests) : FileTree();
  bundle.prediction = {};
  return bundle;
}

}  // namespace webresources
