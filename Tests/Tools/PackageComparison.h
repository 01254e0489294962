#ifndef TESTS_TOOLS_PACKAGECOMPARISON_H_
#define TESTS_TOOLS_PACKAGECOMPARISON_H_

#include <string>

#include "PackageReader.h"
#include "TestFiles.h"
#include "prediction/TreeComparison.h"

namespace webresources {

/// Returns the differences of the content of `directory` from `expected`. On a volume that ignores
/// case, omits the paths that the volume merges or refuses.
inline Differences Differing(const FileTree& expected, const std::string& directory,
                             Checksum checksum) {
  Differences differences = Compare(expected, ReadTree(directory, checksum));
  if (VolumeIgnoresCase(directory)) {
    differences = Without(PathsForSomeVolumesOnly(expected), std::move(differences));
  }
  return Topmost(OfContent(std::move(differences)));
}

/// Returns the differences of `directory`, by SHA-256, from the tree that the package at `path`
/// gives.
inline Differences CompareWithPackage(const std::string& path, const std::string& directory) {
  PackageReader package(path);
  EntryDigests digests;
  const Prediction prediction = Predict(package, 0, digests.Sink());
  return Differing(TreeOf(prediction, &digests), directory, Checksum::Sha256);
}

}  // namespace webresources

#endif  // TESTS_TOOLS_PACKAGECOMPARISON_H_
