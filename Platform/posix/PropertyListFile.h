#ifndef PLATFORM_POSIX_PROPERTYLISTFILE_H_
#define PLATFORM_POSIX_PROPERTYLISTFILE_H_

#include <optional>
#include <string>

#include "PropertyList.h"

// Property lists as files. Paths are absolute. These functions never wait, never print, and never
// follow a symbolic link at the path. They throw only if memory is exhausted. Only regular files of
// at most PropertyList::kLargest bytes are read.

/// Returns the list in the file. Returns an empty list if the file is absent or no property list.
/// Returns nothing if the file cannot be read; errno then has the reason.
std::optional<PropertyList> ReadPropertyList(const std::string& path);

/// The treatment of a file that has no keys after a change.
enum class Emptied { Keep, Remove };

/// Reads the file, and replaces the file by a file with `changes`. With Emptied::Remove, removes a
/// file without keys. Makes missing directories. A file that is no property list is renamed to the
/// first free name of PATH.corrupt, PATH.corrupt.1, …, and counts as empty. If the process is
/// killed, the old file or the new file is complete. The next call removes a temporary file of a
/// killed process. Concurrent changes of another process can be lost.
///
/// Returns false if the file cannot be read, renamed, replaced or removed, or if the new file would
/// exceed PropertyList::kLargest. The old file then stays, with two exceptions: a damaged file can
/// already have the name with ".corrupt", and after a failed last fsync the new file is in place.
bool ChangePropertyList(const std::string& path, const PropertyList::Changes& changes,
                        Emptied emptied);

#endif  // PLATFORM_POSIX_PROPERTYLISTFILE_H_
