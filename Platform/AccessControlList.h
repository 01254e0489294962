#ifndef PLATFORM_ACCESSCONTROLLIST_H_
#define PLATFORM_ACCESSCONTROLLIST_H_

#include <optional>
#include <string>

/// The access control lists of files and directories: rights in addition to the mode. On a file
/// system without such lists, every list is empty.
///
/// One back end is compiled in: `apple/` on macOS, `posix/` elsewhere (Linux).
class AccessControlList {
 public:
  AccessControlList() = delete;

  /// A shell command that removes a list. The reader appends the path.
  static const char* const kRemovalCommand;

  /// Returns whether the list of `path` gives a user a right to write, delete or change that the
  /// mode does not give. Follows links. Three kinds of list entries do not count: denials, rights
  /// to read, and rights that only new files and directories inherit. Returns nothing if the list
  /// cannot be read; errno then has the reason.
  static std::optional<bool> LetsWrite(const std::string& path);

  /// Removes two kinds of rights from the list of the open file or directory: rights to write,
  /// delete or change that the mode does not give, and rights that new files and directories would
  /// inherit.
  /// May remove the whole list. Returns false on failure; errno then has the reason.
  static bool Restrict(int descriptor);
};

#endif  // PLATFORM_ACCESSCONTROLLIST_H_
