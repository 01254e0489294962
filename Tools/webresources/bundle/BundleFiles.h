#ifndef TOOLS_WEBRESOURCES_BUNDLE_BUNDLEFILES_H_
#define TOOLS_WEBRESOURCES_BUNDLE_BUNDLEFILES_H_

#include <string>

/// Where the two files of a bundle are.
struct BundleFiles {
  std::string directory;  ///< Without a trailing "/".
  std::string package;
  std::string metadata;
};

/// The resources of a bundle at `path`, of the Contents directory of one, or of the BundleFiles
/// directory itself. Whether the two files exist is not examined. Throws Error when `path` is not a
/// directory that can be looked into.
BundleFiles FindBundleFiles(std::string path);

#endif  // TOOLS_WEBRESOURCES_BUNDLE_BUNDLEFILES_H_
