#ifndef INCLUDE_INSTALLERUTILS_H_
#define INCLUDE_INSTALLERUTILS_H_

#include <cstdio>
#include <functional>
#include <string>

class PackageReader;

/// Opens the file `path` in `mode` and stores the stream in `*stream`. Returns 0 on success.
/// Returns errno and stores null on failure. The caller closes the stream.
int fopen_s(FILE** stream, const char* path, const char* mode);

/// Extracts the package. The operations keep no state. Concurrent calls on the same directory
/// corrupt the installation. No operation throws, unless memory is exhausted.
class InstallerUtils {
 public:
  InstallerUtils() = delete;

  /// Extracts every entry of the zip archive at `zipPath` into the directory `destDir`. Makes
  /// `destDir` and its missing ancestors, even if the archive is missing. Changes neither argument:
  /// the signature with non-const references is fixed.
  ///
  /// Returns false only if `destDir` cannot be made or is a symbolic link. The extraction is
  /// lenient on purpose: it ignores a missing or damaged archive, and an entry that cannot be
  /// opened, read or written. Bytes that were written before such a failure stay.
  ///
  /// Each subdirectory must have a directory entry (a name that ends in "/") before the entries of
  /// the files in the subdirectory. A file whose directory does not exist is skipped. An entry is
  /// also skipped if its name is empty, has 512 bytes or more, or is a path traversal (see
  /// PackageEntry). Modification times and modes in the archive are not applied.
  ///
  /// If the output path exists:
  ///  - a regular file with one link is truncated and rewritten, and keeps its mode and owner; a
  ///    file that the user cannot write is skipped;
  ///  - a symbolic link, a file with several hard links, a FIFO, a socket or a device is removed
  ///    first, because a write could change a file elsewhere or wait without end;
  ///  - a directory stays, and the entry is skipped.
  static bool UncompressPackageFiles(std::string& zipPath, std::string& destDir);

  /// Extracts `package` as UncompressPackageFiles() does. Calls `afterEntry` after each entry,
  /// skipped entries included. During the call, package.entry() and package.data() describe the
  /// entry. So `webresources` can predict the entry without a second read of the data.
  /// Requires: package.Next() was never called.
  static bool UncompressPackage(PackageReader& package, const std::string& destDir,
                                const std::function<void()>& afterEntry);
};

#endif  // INCLUDE_INSTALLERUTILS_H_
