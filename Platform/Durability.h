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
  /// of all entries, also those of other processes. One call serves a whole tree: a call for each
  /// file takes many times as long.
  ///
  /// A failure is not reported: the caller could do no more. An interrupted call is repeated a
  /// bounded number of times.
  static void SyncFileSystem(const std::string& path);

  /// Waits until the open file or directory `descriptor` is synced: on a Mac, out of the cache of
  /// the drive, too. Returns false, with errno set, if the call fails.
  static bool SyncFile(int descriptor);
};

#endif  // PLATFORM_DURABILITY_H_
