#ifndef TOOLS_WEBRESOURCES_MACHINE_INSTALLLOCK_H_
#define TOOLS_WEBRESOURCES_MACHINE_INSTALLLOCK_H_

#include <chrono>
#include <string>

#include "Descriptor.h"

namespace webresources {

/// The right to change a host's installation: one holder at a time.
///
/// The file of the lock is beside the install root, because a run empties the root. Only the user
/// who installs can open the file: nobody else can keep an installation waiting. The kernel
/// releases the lock when the last process with the descriptor ends. The installer inherits the
/// descriptor: if `install` is killed, no second run begins before the end of the installer.
class InstallLock {
 public:
  /// The name of the file, beside the install root.
  static constexpr char kFileName[] = ".WebResources.lock";

  /// Waits at most `wait` for the lock of the host mounted at `hostRoot`, and says so on a
  /// terminal. Makes the directory above the install root if the directory is missing. Throws Error
  /// if the lock cannot be taken.
  InstallLock(const std::string& hostRoot, std::chrono::milliseconds wait);

  /// Returns the path of the lock's file.
  static std::string PathOf(const std::string& hostRoot);

  /// Returns whether the lock's file exists: an `install` changed the host before.
  static bool IsThere(const std::string& hostRoot);

  /// Removes the lock's file. The lock is held until the end of this object. A process that waits
  /// then takes the lock of a new file. Throws Error if the removal fails.
  void RemoveFile() const;

  /// Returns the descriptor with the lock. The object closes the descriptor.
  int descriptor() const { return *file_; }

 private:
  const std::string path_;
  Descriptor file_;
};

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_INSTALLLOCK_H_
