#ifndef TESTS_TOOLS_PACKAGECOMPARISON_H_
#define TESTS_TOOLS_PACKAGECOMPARISON_H_

#include <string>

#include "PackageReader.h"
#include "prediction/TreeComparison.h"

namespace webresources {

/// How the contents of `directory` differ, by SHA-256, from what the package at `path` should
/// leave.
inline Differences CompareWithPackage(const std::string& path, const std::string& directory) {
  PackageReader package(path);
  EntryDigests digests;
  const Prediction prediction = Predict(package, digests.Sink());
  return Topmost(OfContent(Compare(TreeOf(prediction, &digests), ReadTree(directory))));
}

}  // namespace webresources

#endif  // TESTS_TOOLS_PACKAGECOMPARISON_H_
