#ifndef PLATFORM_DURABILITY_H_
#define PLATFORM_DURABILITY_H_

#include <string>

/// Synchronization with the disk, for files that survive a power failure.
///
/// One back end is compiled in: `apple/` on macOS, `posix/` elsewhere (Linux).
class Durability {
 public:
  Durability() = delete;

  /// Syncs the file system that holds the directory `path`: the contents of all files and the names
  /// of all entries, also the data of other processes. One call syncs a whole tree: a call for each
  /// file takes many times as long.
  ///
  /// A failure is not reported, because the caller could do nothing more. An interrupted call is
  /// repeated a bounded number of times.
  static void SyncFileSystem(const std::string& path);

  /// Syncs the open file or directory `descriptor`: on a Mac, also the cache of the drive. Returns
  /// false, with errno set, if the call fails.
  static bool SyncFile(int descriptor);
};

#endif  // PLATFORM_DURABILITY_H_
