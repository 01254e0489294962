#ifndef TOOLS_WEBRESOURCES_SUPPORT_ATOMICFILE_H_
#define TOOLS_WEBRESOURCES_SUPPORT_ATOMICFILE_H_

#include <optional>
#include <string>

#include "Descriptor.h"

namespace webresources {

/// Replaces a file by a complete new file, or keeps the old file. No process sees an incomplete
/// file. Every operation except Rollback() throws Error on failure.
///
///     AtomicFile file(path);
///     file.Write(bytes);
///     file.CommitDurably();
///
/// Without Commit(), the destructor removes the new file. If the process is killed, the temporary
/// file stays until the next AtomicFile for the same path. The files of running processes are
/// locked and stay.
class AtomicFile {
 public:
  /// Makes an empty temporary file beside `path`, and removes the temporary files of killed
  /// processes.
  explicit AtomicFile(std::string path);
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  /// Returns the new file, open for reading and writing. The object closes the file.
  int descriptor() const { return *file_; }

  /// The path of the new file, for messages. Do not open the path: another process may have put
  /// another file or a link there.
  const std::string& temporary() const { return temporary_; }

  /// Adds `bytes` at the end of the new file.
  void Write(const std::string& bytes);

  /// Syncs the new file, including data that the caller wrote to the descriptor.
  void Synchronize() const;

  /// Replaces the old file by the new file. On failure, the old file stays.
  void Commit();

  /// Synchronizes, commits, and syncs the directory. On failure, the old file stays.
  void CommitDurably();

  /// Undoes Commit(): restores the old file or, if there was no old file, removes the new file.
  /// Ignores failures. Requires: Commit() succeeded.
  void Rollback();

  /// Synchronizes and commits both files, or neither, and syncs the directory. If only the sync of
  /// the directory fails, throws Error although both new files are in place. Requires: both files
  /// are in the same directory.
  static void CommitBoth(AtomicFile& first, AtomicFile& second);

 private:
  std::string path_;
  std::string temporary_;
  Descriptor file_;     ///< The new file, locked while in use.
  std::string backup_;  ///< A second name of the old file, or empty.
  std::optional<Descriptor> backupLock_;
};

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_SUPPORT_ATOMICFILE_H_
