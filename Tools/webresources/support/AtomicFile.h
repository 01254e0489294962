#ifndef TOOLS_WEBRESOURCES_SUPPORT_ATOMICFILE_H_
#define TOOLS_WEBRESOURCES_SUPPORT_ATOMICFILE_H_

#include <optional>
#include <string>

#include "Descriptor.h"

namespace webresources {

/// Replaces a file by a new one that is complete, or leaves it as it is: nobody ever sees half a
/// file. Every operation throws Error when it fails.
///
///     AtomicFile file(path);
///     file.Write(bytes);
///     file.CommitDurably();
///
/// Without Commit(), the destructor removes the new file. If the process is killed, the temporary
/// file stays; the next AtomicFile for the same path removes it. The files of processes that still
/// run are locked and therefore left alone.
class AtomicFile {
 public:
  /// Makes an empty temporary file beside `path`, and removes those that killed processes left.
  explicit AtomicFile(std::string path);
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  /// The new file, open for reading and writing. The object closes it.
  int descriptor() const { return *file_; }

  /// The path of the new file, for messages. Do not open the path: another process may have put
  /// another file or a link there.
  const std::string& temporary() const { return temporary_; }

  /// Adds `bytes` at the end of the new file.
  void Write(const std::string& bytes);

  /// Waits until the new file is on the disk, whoever wrote it.
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
  Descriptor file_;     ///< The new file. Its lock shows other processes that it is in use.
  std::string backup_;  ///< A second name of the old file, or empty.
  std::optional<Descriptor> backupLock_;
};

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_SUPPORT_ATOMICFILE_H_
