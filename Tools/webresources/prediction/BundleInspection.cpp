#include "prediction/BundleInspection.h"

#include "prediction/PackageFindings.h"

namespace webresources {

namespace {

void InspectPackage(const std::string& path, std::uint64_t maxSize, BundleInspection& bundle) {
  bundle.findings = FindOutOfBounds(path, maxSize);
  bundle.isRead = bundle.findings.empty();
  if (!bundle.isRead) {
    return;
  }
  PackageReader package(path);
  EntryDigests digests;
  const Prediction prediction = Predict(package, digests.Sink());
  bundle.tree = TreeOf(prediction, &digests);
  bundle.findings = FindInPackage(path, prediction);
}

}  // namespace

BundleInspection InspectBundle(const std::string& path, std::uint64_t maxSize) {
  BundleInspection bundle;
  bundle.files = FindBundleFiles(path);
  bundle.metadata = ReadMetadata(bundle.files.metadata);
  InspectPackage(bundle.files.package, maxSize, bundle);
  Append(bundle.findings, bundle.metadata.findings);
  return bundle;
}

}  // namespace webresources
