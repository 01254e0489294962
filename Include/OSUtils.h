#ifndef INCLUDE_OSUTILS_H_
#define INCLUDE_OSUTILS_H_

#include <cstdint>
#include <string>

/// The four values of the install record, carried by their owner across a wipe of the domain.
struct WebRegInfo {
  std::int32_t random = -1;    ///< Random identifier, 1 to 10000; -1 when absent.
  std::int32_t updateId = -1;  ///< Number of the installed update; -1 when absent.
  std::string installPath;     ///< Bare name of the installed directory; empty when absent.
  std::string fullVersion;     ///< Full version text; empty when absent.
};

/// Static operations on the machine: fixed locations, resource directories, and the install record.
///
/// None of them prints, and none throws except when memory is exhausted. Failures are reported by
/// the result only; the caller may ignore most of them, on purpose. Paths are byte strings in
/// UTF-8.
class OSUtils {
 public:
  OSUtils() = delete;

  // Locations -----------------------------------------------------------------------------------

  /// The install root, ending in "/". The directory need not exist.
  static std::string GetPellamResourceDirectory();

  /// `a` followed by `b`. No separator is added, removed or normalised: callers pass a directory
  /// that already ends in "/".
  static std::string CombinePath(const std::string& a, const std::string& b);

  /// Full path of the package in the bundle's Resources directory. Returns an empty string if that
  /// directory is unknown or its path has 1024 bytes or more.
  static std::string GetZipResourcePath();

  /// Full path of the metadata file; empty as for GetZipResourcePath().
  static std::string GetMetadataResourcePath();

  // Resource directories ------------------------------------------------------------------------

  /// The first of "Resource0", "Resource1", … that is not readable under `root`, which must end in
  /// "/". It tests for readable, not for existing, on purpose: an unreadable entry counts as free.
  static std::string GetUniqueDirectoryName(const std::string& root);

  /// Creates `path` (relative or absolute, with or without a trailing "/", cut to 1023 bytes) with
  /// its missing ancestors, mode 0777 under the umask. Returns true when it is readable already or
  /// was created; false on the first failed creation, leaving the ancestors made so far. A path
  /// that exists but is not readable therefore yields false.
  static bool EnsureDirectoryExists(const std::string& path);

  /// Removes the directory tree at `path` (no trailing "/") as far as it can be removed; links in
  /// it are removed, never followed. Always true: a missing directory counts as deleted.
  static bool DeleteDir(const std::string& path);

  /// Removes every entry under `root` (which must end in "/") except the one named `keep`:
  /// directories with their contents, plain files and links alike. The root itself stays. Always
  /// true. The root's directory stream stays open until the process ends, on purpose.
  static bool DeleteAllDirectoryExceptOne(const std::string& root, const std::string& keep);

  /// Waits until the file system that holds the directory `path` is synced: what was written there
  /// survives a power failure. A failure is not reported.
  static void MakeDurable(const std::string& path);

  // Install record ------------------------------------------------------------------------------
  //
  // Each writing operation ends with a flush of the preferences domain PLIST_SECTION_KEY and
  // returns whether that flush succeeded.

  /// Records where the resources are installed: the run passes the directory's bare name.
  static bool RegisterWebResourcePath(const std::string& path);

  /// Records the number of the installed update.
  static bool RegisterUpdateID(int id);

  /// The full version text: the installer's release "17.011.30138", ".", and `build` in decimal,
  /// cut at 9 characters.
  static std::string CompleteVersion(int build);

  /// Records CompleteVersion(build).
  static bool RegisterCompleteVersion(int build);

  /// The largest random identifier; the smallest is 1.
  static constexpr int kLargestRandom = 10000;

  /// Draws and records a random identifier from 1 to kLargestRandom, over any recorded one. The
  /// generator is seeded with the time in seconds, so two calls within a second record the same
  /// value.
  static bool RegisterRandom();

  /// Whether a random identifier is recorded, whatever the type of its value.
  static bool isRandomPresent();

  /// Fills `info` from the record. A text of more than 127 bytes, and a value of another type than
  /// its key's, count as absent.
  static void OldInfo(WebRegInfo* info);

  /// Removes every key of the domain, not only those of the record. Returns false, without a flush,
  /// when the domain has no keys.
  static bool ClearRegistry();

  /// Writes back what OldInfo() found and skips what it found absent. Returns the result of the
  /// final flush.
  static bool MakeFreshRegistry(WebRegInfo* info);
};

#endif  // INCLUDE_OSUTILS_H_
