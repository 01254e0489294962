#ifndef TOOLS_WEBRESOURCES_MACHINE_PRIVATECOPY_H_
#define TOOLS_WEBRESOURCES_MACHINE_PRIVATECOPY_H_

#include <string>

#include "bundle/BundleFiles.h"
#include "prediction/PackageFindings.h"

namespace webresources {

/// A private copy of a bundle, beside the install root. No other user can open the copy, so nobody
/// else can change the checked bytes before the run. The destructor removes the copy. If the
/// process is killed, the next RemoveLeftovers() removes the copy.
class PrivateCopy {
 public:
  /// Copies the installer, Info.plist if there is one, the package and the metadata of the bundle
  /// at `bundle`, in the layout of a bundle. Each file is opened once; holes are kept. Requires:
  /// the caller holds the lock of the host mounted at `hostRoot`. Throws Error if a file cannot be
  /// copied, if the package exceeds `limits`, and after an interruption.
  PrivateCopy(const std::string& hostRoot, const std::string& bundle, const Limits& limits);
  ~PrivateCopy();

  PrivateCopy(const PrivateCopy&) = delete;
  PrivateCopy& operator=(const PrivateCopy&) = delete;

  /// Returns the path of the copy. The copy is a bundle.
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// Removes the private copies and temporary files of killed processes from the directory that holds
/// the install root. Entries that cannot be removed stay. Requires: the caller holds the lock.
void RemoveLeftovers(const std::string& hostRoot);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_PRIVATECOPY_H_
