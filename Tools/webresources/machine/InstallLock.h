#ifndef TOOLS_WEBRESOURCES_MACHINE_INSTALLLOCK_H_
#define TOOLS_WEBRESOURCES_MACHINE_INSTALLLOCK_H_

#include <chrono>
#include <string>

#include "Descriptor.h"

namespace webresources {

/// The right to change a host's installation. Only one `install` or `uninstall` has the right at a
/// time.
///
/// The file of the lock is beside the install root, because a run empties the root. Other users
/// cannot open the file, so other users cannot block an installation. The kernel releases the lock
/// when the last process with the descriptor ends. The installer inherits the descriptor: if
/// `install` is killed, no second run begins before the end of the installer.
class InstallLock {
 public:
  /// The name of the file, beside the install root.
  static constexpr char kFileName[] = ".WebResources.lock";

  /// Takes the lock of the host mounted at `hostRoot`. Waits at most `wait`, and prints a line
  /// about the wait on a terminal. Makes missing directories above the install root. Throws Error
  /// if the lock cannot be taken, and after an interruption.
  InstallLock(const std::string& hostRoot, std::chrono::milliseconds wait);

  /// Returns the path of the lock's file.
  static std::string PathOf(const std::string& hostRoot);

  /// Returns whether the lock's file exists.
  static bool IsThere(const std::string& hostRoot);

  /// Returns whether an installation by root is refused, because another user owns the lock's file
  /// or can write to the file.
  static bool IsRefusedForRoot(const std::string& hostRoot);

  /// Removes the lock's file. From then on, another process can make and lock a new file, although
  /// this object still holds the lock of the old file. Throws Error if the removal fails.
  void RemoveFile() const;

  /// Returns the descriptor with the lock. The object closes the descriptor.
  int descriptor() const { return *file_; }

 private:
  const std::string path_;
  Descriptor file_;
};

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_MACHINE_INSTALLLOCK_H_
