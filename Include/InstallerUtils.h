#ifndef INCLUDE_INSTALLERUTILS_H_
#define INCLUDE_INSTALLERUTILS_H_

#include <cstdio>
#include <string>

/// Opens `path` in `mode` and stores the stream, or null, through `stream`. Returns 0 when the file
/// was opened, otherwise errno.
int fopen_s(FILE** stream, const char* path, const char* mode);

/// Extraction of the package.
class InstallerUtils {
 public:
  InstallerUtils() = delete;

  /// What the extraction makes of an entry, as far as its name decides.
  enum class EntryKind { Directory, File, NameEmpty, NameTooLong, ClimbsOut };

  /// The kind of an entry whose stored name has `length` bytes. `name` is its zero-terminated text,
  /// which is not looked at when 512 bytes or more are stored: it may then be cut and lack its
  /// zero. A directory's name ends in "/"; the kinds beyond File are skipped.
  static EntryKind KindOfEntry(const char* name, unsigned long length);

  /// Extracts every entry of the zip archive at `zipPath` into the directory `destDir`, which is
  /// created with its missing parents, archive or not.
  ///
  /// Lenient on purpose: returns false only when `destDir` cannot be made, which a link in its
  /// place counts as. A missing or damaged archive, and entries that cannot be opened, read or
  /// written, are passed over without a word, and what was written of them stays. A file is written
  /// only into a directory that exists: the archive must announce each sub-directory by an entry
  /// ending in "/" before the files in it.
  ///
  /// Each file is made anew: what stands at its path, but a directory, is removed first, so that
  /// nothing is written through a link.
  ///
  /// An entry is skipped when its name is empty, is 512 bytes or longer, or climbs out of the
  /// destination through ".." (see KindOfEntry()). Modification times and modes in the archive are
  /// not applied. Neither argument is changed.
  static bool UncompressPackageFiles(std::string& zipPath, std::string& destDir);
};

#endif  // INCLUDE_INSTALLERUTILS_H_
