#ifndef INCLUDE_OSUTILS_H_
#define INCLUDE_OSUTILS_H_

#include <cstdint>
#include <string>

/// The four values of the install record. A run keeps the values in this structure while the domain
/// is cleared.
struct WebRegInfo {
  std::int32_t random = -1;    ///< Random identifier, 1 to 10000; -1 when absent.
  std::int32_t updateId = -1;  ///< Number of the installed update; -1 when absent.
  std::string installPath;     ///< Name of the installed directory, no path; empty when absent.
  std::string fullVersion;     ///< Full version string; empty when absent.
};

/// Static operations on the machine: fixed locations, resource directories, and the install record.
///
/// No operation prints. No operation throws, unless memory is exhausted. An operation reports a
/// failure only by its result, and the installer ignores most results on purpose. Paths are byte
/// strings in UTF-8. Not thread-safe.
class OSUtils {
 public:
  OSUtils() = delete;

  // Locations -----------------------------------------------------------------------------------

  /// Returns the install root, which ends in "/". The directory need not exist. The name of this
  /// operation is fixed, and "Pellam" has no meaning here.
  static std::string GetPellamResourceDirectory();

  /// Returns `a` followed by `b`. Adds, removes and normalises no separator: a directory in `a`
  /// must end in "/".
  static std::string CombinePath(const std::string& a, const std::string& b);

  /// Returns the full path of the package. Returns an empty string if the path of the bundle's
  /// Resources directory is unknown or has 1,024 bytes or more.
  static std::string GetZipResourcePath();

  /// Returns the full path of the metadata file. Fails as GetZipResourcePath() does.
  static std::string GetMetadataResourcePath();

  // Resource directories ------------------------------------------------------------------------

  /// Returns the first of "Resource0", "Resource1", … that is not readable under `root`. On
  /// purpose, the function tests whether an entry is readable, and not whether an entry exists: an
  /// unreadable entry counts as free.
  /// Requires: `root` ends in "/".
  static std::string GetUniqueDirectoryName(const std::string& root);

  /// Makes the directory `path` and its missing ancestors, with mode 0777 under the umask. `path`
  /// may be relative or absolute, may end in "/", and is truncated to 1,023 bytes.
  ///
  /// Returns true if `path` was readable or was made. Returns false after the first directory that
  /// cannot be made. Ancestors that were made before stay. Also returns false for an existing path
  /// that is not readable, because a directory cannot be made there.
  static bool EnsureDirectoryExists(const std::string& path);

  /// Deletes the directory tree at `path`, except the entries that cannot be deleted. Symbolic
  /// links are deleted, never followed. Always returns true: a missing directory counts as deleted.
  /// Requires: `path` does not end in "/".
  static bool DeleteDir(const std::string& path);

  /// Deletes every entry of the directory `root` except the entry named `keep`: files, symbolic
  /// links, and directories with their contents. `root` itself stays. Always returns true. The
  /// directory stream of `root` stays open until the process ends, on purpose: the process is
  /// short, and the rename that follows does not need a closed stream.
  /// Requires: `root` ends in "/".
  static bool DeleteAllDirectoryExceptOne(const std::string& root, const std::string& keep);

  /// Waits until the file system that holds the directory `path` is synced. Data written before the
  /// call then survives a power failure. A failure is not reported.
  static void MakeDurable(const std::string& path);

  // Install record ------------------------------------------------------------------------------
  //
  // Each Register operation sets one value in the preferences domain PLIST_SECTION_KEY, flushes the
  // domain, and returns whether the flush succeeded. After a failure, the next flush writes the
  // value.

  /// Records the name of the installed directory, without the install root.
  static bool RegisterWebResourcePath(const std::string& path);

  static bool RegisterUpdateID(int id);

  /// Returns the full version string: "17.011.30138.", the installer's release, followed by `build`
  /// in decimal, truncated to 9 characters. For example, 7 gives "17.011.30138.7".
  static std::string CompleteVersion(int build);

  /// Records CompleteVersion(build).
  static bool RegisterCompleteVersion(int build);

  /// The largest random identifier; the smallest is 1.
  static constexpr int kLargestRandom = 10000;

  /// Draws a random identifier from 1 to kLargestRandom and records the identifier. Replaces a
  /// recorded identifier. The seed is the time in seconds: two calls within one second record the
  /// same identifier.
  static bool RegisterRandom();

  /// Returns whether a random identifier is recorded. A value of any type counts.
  static bool isRandomPresent();

  /// Fills `*info` from the record. A string of more than 127 bytes and a value of the wrong type
  /// count as absent.
  static void OldInfo(WebRegInfo* info);

  /// Removes every key of the domain, the keys of other programs included, and flushes the domain.
  /// Returns whether the flush succeeded. Also returns false if the domain has no keys: then there
  /// is nothing to flush.
  static bool ClearRegistry();

  /// Records the values in `*info` that are not absent, with up to three flushes. The last flush
  /// writes every pending value. Returns whether the last flush succeeded.
  static bool MakeFreshRegistry(WebRegInfo* info);
};

#endif  // INCLUDE_OSUTILS_H_
