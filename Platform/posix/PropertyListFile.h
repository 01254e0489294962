#ifndef PLATFORM_POSIX_PROPERTYLISTFILE_H_
#define PLATFORM_POSIX_PROPERTYLISTFILE_H_

#include <optional>
#include <string>

#include "PropertyList.h"

// Property lists as files. Whatever is at an absolute path, these functions do not wait, follow a
// symbolic link there, throw (memory exhaustion apart) or print. A file is read if it is a regular
// one of at most PropertyList::kLargest bytes.

/// Returns the list in the file, an empty list if the file is absent or no property list. Returns
/// nothing if the file cannot be read.
std::optional<PropertyList> ReadPropertyList(const std::string& path);

/// Whether a file without keys stays.
enum class Emptied { Keep, Remove };

/// Reads the file and replaces it by one with `changes`. Makes missing directories. A file that is
/// no property list is renamed to the first free name of PATH.corrupt, PATH.corrupt.1, …, and
/// counts as empty. A process that is killed here leaves the old file or the new one, and possibly
/// a temporary file that the next call removes. Changes of another process at the same moment may
/// be lost.
///
/// Returns false if the file cannot be read, moved aside, replaced or removed, or if the new one
/// would exceed PropertyList::kLargest; errno then tells the reason, except for the size. The file
/// then is as it was, unless only the last fsync failed.
bool ChangePropertyList(const std::string& path, const PropertyList::Changes& changes,
                        Emptied emptied);

#endif  // PLATFORM_POSIX_PROPERTYLISTFILE_H_
