#ifndef INCLUDE_DIRECTORYCHAIN_H_
#define INCLUDE_DIRECTORYCHAIN_H_

#include <cstdio>
#include <cstring>
#include <string>

/// The longest path that the operations on directories take, in bytes with its terminating zero.
constexpr std::size_t kPathSize = 1024;

/// Makes the directory at `path` with its missing ancestors, outermost first: the steps of
/// OSUtils::EnsureDirectoryExists(), on any tree of directories. The disk and the predicted tree of
/// the companion command both use it, so both make an entry's directories in one order.
///
/// `isReadable(path)` tells whether something readable is there; `makeDirectory(path)` makes one
/// directory and returns false if it cannot. Both get a zero-terminated path. Returns true if
/// `path` was readable or was made; false after the first `makeDirectory` that failed, with the
/// ancestors made so far left in place. A path of 1,024 bytes or more is cut to 1,023.
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
  // From the second character: the leading "/" of an absolute path is no component.
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
