#include "ExpectedBundle.h"

#include "BundleInspection.h"
#include "Digest.h"
#include "Files.h"

namespace {

std::string DigestOfPackage(const std::string& path) {
  return StateOf(path) == FileState::Missing ? ""
                                             : digests::ToText(digests::OfFile(RealPath(path)));
}

}  // namespace

ExpectedBundle ReadBundle(const std::string& path, const std::optional<Receipt>& receipt,
                          std::uint64_t maxSize) {
  ExpectedBundle bundle;
  bundle.files = FindBundleFiles(path);
  bundle.packageSha256 = DigestOfPackage(bundle.files.package);
  if (receipt && receipt->packageSha256 == bundle.packageSha256 &&
      receipt->version == WEBRESOURCES_VERSION) {
    bundle.metadata = ReadMetadata(bundle.files.metadata);
    bundle.tree = receipt->tree;
    bundle.errors = ErrorsOf(bundle.metadata.findings);
  } else {
    BundleInspection inspection = InspectBundle(path, maxSize);
    bundle.metadata = std::move(inspection.metadata);
    bundle.tree = std::move(inspection.tree);
    bundle.isRead = inspection.isRead;
    bundle.errors = ErrorsOf(inspection.findings);
  }
  return bundle;
}
