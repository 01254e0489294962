#ifndef INCLUDE_DIRECTORYCHAIN_H_
#define INCLUDE_DIRECTORYCHAIN_H_

#include <cstdio>
#include <cstring>
#include <string>

/// The size of every path buffer in bytes, with the terminating zero.
constexpr std::size_t kPathSize = 1024;

/// Makes the directory `path` and its missing ancestors, outermost first.
///
/// OSUtils::EnsureDirectoryExists() calls this function for the disk. `webresources` calls the
/// function for a predicted tree, so both trees get their directories in the same order.
///
/// `isReadable(path)` returns whether `path` exists and is readable. `makeDirectory(path)` makes
/// one directory and returns whether that succeeded. Both get a zero-terminated path.
///
/// Returns true if `path` was readable or was made. Returns false after the first failed
/// `makeDirectory`. Ancestors that were made before stay. A path of 1,024 bytes or more is
/// truncated to 1,023 bytes.
template <typename IsReadable, typename MakeDirectory>
bool MakeDirectoryChain(const std::string& path, IsReadable isReadable,
                        MakeDirectory makeDirectory) {
  if (isReadable(path.c_str())) {
    return true;
  }
  char buffer[kPathSize];
  std::snprintf(buffer, sizeof buffer, "%s", path.c_str());
  const std::size_t length = std::strlen(buffer);
  if (length > 0 && buffer[length - 1] == '/') {
    buffer[length - 1] = '\0';
  }
  // The search starts at the second character, because the leading "/" ends no name.
  for (char* end = buffer; *end != '\0' && (end = std::strchr(end + 1, '/')) != nullptr;) {
    *end = '\0';
    if (!isReadable(buffer) && !makeDirectory(buffer)) {
      return false;
    }
    *end = '/';
  }
  return makeDirectory(buffer);
}

#endif  // INCLUDE_DIRECTORYCHAIN_H_
