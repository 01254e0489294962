#ifndef TOOLS_WEBRESOURCES_BUNDLE_BUNDLEFILES_H_
#define TOOLS_WEBRESOURCES_BUNDLE_BUNDLEFILES_H_

#include <map>
#include <optional>
#include <string>

#include "report/Finding.h"

namespace webresources {

/// The paths of the two files that the installer reads in a bundle.
struct BundleFiles {
  /// Throws Error if the package or the metadata has been changed or replaced since
  /// FindBundleFiles(): several readings may then have read different files.
  void RequireUnchanged() const;

  std::string directory;  ///< The Resources directory, without a trailing "/".
  std::string package;    ///< The path of the package.
  std::string metadata;   ///< The path of the metadata.
  /// The path of the installer. Absent if the given path is a Contents or Resources directory.
  std::optional<std::string> program;
  /// The versions of both files, to be compared.
  std::map<std::string, std::optional<std::string>> versions;
};

/// Returns the files of the bundle at `path`, which may also be the Contents directory or the
/// Resources directory of a bundle. The two files need not exist. Throws Error if `path` is not a
/// directory, or if the directory cannot be read.
BundleFiles FindBundleFiles(std::string path);

/// Returns the SHA-256 of the package at `path`, in hexadecimal; nothing if there is no package.
/// Throws Error if the package cannot be read.
std::optional<std::string> DigestOfPackage(const std::string& path);

/// Throws UsageError if the directory at `path` is not a bundle: there is no Contents/Resources.
void RequireBundle(const std::string& path);

/// Returns a finding if the bundle's installer is missing, no regular file or not executable.
/// Returns none if `files.program` is absent.
Findings FindInProgram(const BundleFiles& files);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_BUNDLE_BUNDLEFILES_H_
