#ifndef INCLUDE_INSTALLERUTILS_H_
#define INCLUDE_INSTALLERUTILS_H_

#include <cstdio>
#include <functional>
#include <string>

class PackageReader;

/// Opens `path` in `mode` and stores the stream, or null, through `stream`. Returns 0 if the file
/// was opened, otherwise errno. The caller closes the stream.
int fopen_s(FILE** stream, const char* path, const char* mode);

/// Extraction of the package.
class InstallerUtils {
 public:
  InstallerUtils() = delete;

  /// Extracts every entry of the zip archive at `zipPath` into the directory `destDir`. The
  /// directory is created with its missing parents, even if there is no archive. Neither argument
  /// is changed.
  ///
  /// Lenient on purpose: returns false only if `destDir` cannot be made, or if a link is in its
  /// place. Every other problem is passed over without a message: a missing or damaged archive, an
  /// entry that cannot be opened, read or written. What was written of such an entry stays.
  ///
  /// A file is written only into a directory that exists: the archive must announce each
  /// sub-directory by an entry ending in "/" before the files in it. An entry is skipped if its
  /// name is empty, has 512 bytes or more, or leads above `destDir` through ".." (see
  /// PackageEntry). Modification times and modes in the archive are not applied.
  ///
  /// If the output path is taken: a regular file with one name is truncated and rewritten in place,
  /// so it keeps its mode and owner; if the user may not write it, the entry is skipped. A link, a
  /// file with several names, a FIFO, a socket or a device is removed first: nothing is ever
  /// written through it.
  static bool UncompressPackageFiles(std::string& zipPath, std::string& destDir);

  /// Does the work of UncompressPackageFiles() for `package`, which must be at its beginning, and
  /// calls `afterEntry` when an entry is dealt with; package.data() then tells what was read of it.
  /// The companion command predicts from that, so that it reads no data a second time.
  static bool UncompressPackage(PackageReader& package, const std::string& destDir,
                                const std::function<void()>& afterEntry);
};

#endif  // INCLUDE_INSTALLERUTILS_H_
