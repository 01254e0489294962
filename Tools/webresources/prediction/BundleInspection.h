#ifndef TOOLS_WEBRESOURCES_PREDICTION_BUNDLEINSPECTION_H_
#define TOOLS_WEBRESOURCES_PREDICTION_BUNDLEINSPECTION_H_

#include <cstdint>
#include <string>

#include "bundle/BundleFiles.h"
#include "bundle/Metadata.h"
#include "prediction/FileTree.h"
#include "report/Finding.h"

namespace webresources {

/// All that a bundle's two files say: what a run will leave, and what is wrong with them.
struct BundleInspection {
  BundleFiles files;
  Metadata metadata;
  FileTree tree;       ///< What a run leaves, with SHA-256 digests; empty if `isRead` is false.
  bool isRead = true;  ///< False if the package can hold more than is allowed.
  Findings findings;   ///< Of the package, then of the metadata.
};

/// Inspects the bundle at `path`: a bundle, its Contents or its Resources directory. Reads the data
/// of each entry once, unless the package can hold more than `maxSize` bytes. Throws Error if
/// something cannot be read; that the package or the metadata is missing is a finding.
BundleInspection InspectBundle(const std::string& path, std::uint64_t maxSize);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_PREDICTION_BUNDLEINSPECTION_H_
