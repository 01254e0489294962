#ifndef TESTS_TOOLS_PACKAGECOMPARISON_H_
#define TESTS_TOOLS_PACKAGECOMPARISON_H_

#include <string>

#include "PackageReader.h"
#include "TestFiles.h"
#include "prediction/TreeComparison.h"

namespace webresources {

/// How the content of `directory` differs from `expected`. On a volume that ignores case, without
/// the paths that this volume merges or refuses.
inline Differences Differing(const FileTree& expected, const std::string& directory,
                             Checksum checksum) {
  Differences differences = Compare(expected, ReadTree(directory, checksum));
  if (VolumeIgnoresCase(directory)) {
    differences = Without(PathsForSomeVolumesOnly(expected), std::move(differences));
  }
  return Topmost(OfContent(std::move(differences)));
}

/// How the contents of `directory` differ, by SHA-256, from what the package at `path` should
/// leave.
inline Differences CompareWithPackage(const std::string& path, const std::string& directory) {
  PackageReader package(path);
  EntryDigests digests;
  const Prediction prediction = Predict(package, digests.Sink());
  return Differing(TreeOf(prediction, &digests), directory, Checksum::Sha256);
}

}  // namespace webresources

#endif  // TESTS_TOOLS_PACKAGECOMPARISON_H_
