#ifndef PLATFORM_POSIX_PROPERTYLISTFILE_H_
#define PLATFORM_POSIX_PROPERTYLISTFILE_H_

#include <chrono>
#include <string>

#include "PropertyList.h"

/// One property-list file whose root is a dictionary.
///
/// Whatever is at the path, neither operation hangs, follows a symbolic link there, throws
/// (memory exhaustion apart) or prints. Only a regular file of bounded size is read.
class PropertyListFile {
 public:
  static constexpr std::chrono::milliseconds kLockWait{2000};

  /// `lockWait` bounds how long Apply() waits for another writer.
  explicit PropertyListFile(const std::string& path,
                            std::chrono::milliseconds lockWait = kLockWait);

  /// Returns what the file holds; nothing when it is absent, unreadable or no property list.
  PropertyList::Contents Read() const;

  /// Makes `changes` in the file and keeps every other key that is in it by then. Missing
  /// directories are created. A file that is no property list, or that could not be read again with
  /// the changes, is renamed to the first free name of PATH.corrupt, PATH.corrupt.1, …, and counts
  /// as empty. The file is replaced as a whole: a process killed here leaves the old file or the
  /// new one, and possibly a temporary file that the next Apply() removes.
  ///
  /// Returns false when the file cannot be read, moved aside or replaced. The file then is as it
  /// was, unless only the last fsync failed. Without changes nothing is written, and the result is
  /// whether the file is absent or readable.
  bool Apply(const PropertyList::Changes& changes) const;

 private:
  std::string directory_;
  std::string name_;
  std::chrono::milliseconds lockWait_;
};

#endif  // PLATFORM_POSIX_PROPERTYLISTFILE_H_
