#ifndef TOOLS_WEBRESOURCES_SUPPORT_ATOMICFILE_H_
#define TOOLS_WEBRESOURCES_SUPPORT_ATOMICFILE_H_

#include <string>

/// A file that takes another's place once it is complete. Each operation throws Error when it
/// fails; until Commit() the old file stays as it is, and what is not committed is removed at the
/// end.
class AtomicFile {
 public:
  /// Makes an empty temporary file beside `path`.
  explicit AtomicFile(std::string path);
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  /// Where the new file is to be written.
  const std::string& temporary() const { return temporary_; }

  /// Puts the written file on the disk.
  void Synchronize() const;

  /// Puts the file in the place of the old one, which Rollback() brings back.
  void Commit();
  void Rollback();

  /// Commits both, or neither.
  static void CommitBoth(AtomicFile& first, AtomicFile& second);

 private:
  std::string path_;
  std::string temporary_;
  std::string backup_;  ///< A second name of the old file; empty when there is none.
  bool isCommitted_ = false;
};

#endif  // TOOLS_WEBRESOURCES_SUPPORT_ATOMICFILE_H_
