#include "BundleInspection.h"

#include "PackageBounds.h"
#include "PackageFindings.h"

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
  bundle.findings.insert(bundle.findings.end(), bundle.metadata.findings.begin(),
                         bundle.metadata.findings.end());
  return bundle;
}
