#ifndef TOOLS_WEBRESOURCES_PREDICTION_BUNDLEINSPECTION_H_
#define TOOLS_WEBRESOURCES_PREDICTION_BUNDLEINSPECTION_H_

#include <functional>
#include <string>

#include "bundle/BundleFiles.h"
#include "bundle/Metadata.h"
#include "prediction/FileTree.h"
#include "prediction/PackageFindings.h"
#include "prediction/Prediction.h"
#include "report/Finding.h"

namespace webresources {

/// The result of a run for a bundle, and the defects of the two files.
struct BundleInspection {
  BundleFiles files;
  Metadata metadata;
  bool isRead = true;     ///< False if the package exceeds the limits.
  Prediction prediction;  ///< The result of a run; empty if `isRead` is false.
  Findings findings;      ///< The defects of the package, then of the metadata.
};

/// Predicts the result of a run for `package`, which has the extent `extent`. The function may also
/// extract the package.
using PackageReading =
    std::function<Prediction(PackageReader& package, const PackageExtent& extent)>;

/// Inspects the bundle at `path`, which may also be a Contents or Resources directory. `read` reads
/// the package, unless the package exceeds `limits`. Throws Error if a file cannot be read. A
/// missing package, or missing metadata, is a finding.
BundleInspection InspectBundle(const std::string& path, const Limits& limits,
                               const PackageReading& read);

/// Inspects the bundle at `path` in the same way. Stores the tree that a run makes, with SHA-256
/// digests, through `tree`. Reads the data of each entry once. `prediction` stays empty.
BundleInspection InspectBundle(const std::string& path, const Limits& limits, FileTree* tree);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_PREDICTION_BUNDLEINSPECTION_H_
