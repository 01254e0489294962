#ifndef TOOLS_WEBRESOURCES_BUNDLE_BUNDLEFILES_H_
#define TOOLS_WEBRESOURCES_BUNDLE_BUNDLEFILES_H_

#include <string>

namespace webresources {

/// Where a bundle has the two files that the installer reads.
struct BundleFiles {
  std::string directory;  ///< The Resources directory, without a trailing "/".
  std::string package;    ///< The path of the package.
  std::string metadata;   ///< The path of the metadata.
};

/// Finds the files of the bundle at `path`, which may also be the bundle's Contents directory or
/// its Resources directory. The two files need not exist. Throws Error if `path` is not a
/// directory, or if its contents cannot be read.
BundleFiles FindBundleFiles(std::string path);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_BUNDLE_BUNDLEFILES_H_
