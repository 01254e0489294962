#ifndef TOOLS_WEBRESOURCES_SUPPORT_ATOMICFILE_H_
#define TOOLS_WEBRESOURCES_SUPPORT_ATOMICFILE_H_

#include <optional>
#include <string>

#include "Descriptor.h"

namespace webresources {

/// Replaces a file by a complete new file, or leaves the old file: nobody ever sees half a file.
/// Every operation throws Error on failure.
///
///     AtomicFile file(path);
///     file.Write(bytes);
///     file.CommitDurably();
///
/// Without Commit(), the destructor removes the new file. If the process is killed, the temporary
/// file stays until the next AtomicFile for the same path. The files of running processes are
/// locked, and therefore stay.
class AtomicFile {
 public:
  /// Makes an empty temporary file beside `path`, and removes those that killed processes left.
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

  /// Syncs the new file.
  void Synchronize() const;

  /// Puts the new file in the place of the old one.
  void Commit();

  /// Synchronizes and commits. Waits until all is on the disk.
  void CommitDurably();

  /// Undoes Commit(): brings the old file back or, if there was none, removes the new one.
  void Rollback();

  /// Commits both files, or neither. Waits until all is on the disk.
  static void CommitBoth(AtomicFile& first, AtomicFile& second);

 private:
  std::string path_;
  std::string temporary_;
  Descriptor file_;     ///< The new file. A lock tells other processes that the file is in use.
  std::string backup_;  ///< A second name of the old file, or empty.
  std::optional<Descriptor> backupLock_;
};

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_SUPPORT_ATOMICFILE_H_
