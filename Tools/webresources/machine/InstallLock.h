#ifndef TOOLS_WEBRESOURCES_MACHINE_INSTALLLOCK_H_
#define TOOLS_WEBRESOURCES_MACHINE_INSTALLLOCK_H_

#include <chrono>
#include <string>

#include "Descriptor.h"

namespace webresources {

/// The right to change a host's installation: one holder at a time.
///
/// The lock is on a file beside the install root, which the run empties; only the user who
/// installs can open it, so that nobody else can keep an installation waiting. The kernel gives it
/// free when the last process that has the descriptor ends. The step inherits the descriptor: if
/// its parent is killed, no second run begins before the step has ended.
class InstallLock {
 public:
  /// The name of the file, beside the install root.
  static constexpr char kFileName[] = ".WebResources.lock";

  /// Waits for the lock of the host whose file system lies at `hostRoot`, at most `wait`, and says
  /// so on a terminal. Makes the directory that holds the install root if it is missing. Throws
  /// Error if the lock cannot be had.
  InstallLock(const std::string& hostRoot, std::chrono::milliseconds wait);

  /// The path of the lock's file.
  static std::string PathOf(const std::string& hostRoot);

  /// Whether the lock's file is there: an `install` has been run there before.
  static bool IsThere(const std::string& hostRoot);

  /// Removes the lock's file. The lock is held until the end of this object; a process that waits
  /// for it then takes the lock of a new file. Throws Error if the removal fails.
  void RemoveFile() const;

  /// The descriptor that holds the lock.
  int descriptor() const { return *file_; }

 private:
  const std::string path_;
  Descriptor file_;
};

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_INSTALLLOCK_H_
