#ifndef PLATFORM_ACCESSCONTROLLIST_H_
#define PLATFORM_ACCESSCONTROLLIST_H_

#include <optional>
#include <string>

/// The access control lists of files and directories: the rights that a mode does not tell. A file
/// system without such lists has empty ones.
///
/// One back end is compiled in: `apple/` on macOS, `posix/` elsewhere (Linux).
class AccessControlList {
 public:
  AccessControlList() = delete;

  /// The command for people that removes a list, without the path.
  static const char* const kRemovalCommand;

  /// Returns whether the list of `path`, links followed, lets a user write, delete or change beyond
  /// the mode's bits. Entries that deny, that let read, or that only new entries of a directory
  /// inherit, do not count. Returns nothing if the list cannot be read; errno then tells the
  /// reason.
  static std::optional<bool> LetsWrite(const std::string& path);

  /// Takes from the list of the open file or directory the rights to write, delete or change beyond
  /// the mode's bits, and the rights that new entries would inherit. Returns false if that fails;
  /// errno then tells the reason.
  static bool Restrict(int descriptor);
};

#endif  // PLATFORM_ACCESSCONTROLLIST_H_
