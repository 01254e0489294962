#ifndef TOOLS_WEBRESOURCES_SUPPORT_FILES_H_
#define TOOLS_WEBRESOURCES_SUPPORT_FILES_H_

#include <string>
#include <vector>

/// Questions about files that end in an answer or in an Error.

enum class FileState { Missing, Present };

/// Whether there is a file or directory at `path` that can be opened. Throws Error if that cannot
/// be found out, if it cannot be read, or if it is neither a regular file nor a directory: to open
/// anything else could wait for ever.
FileState StateOf(const std::string& path);

/// Whether `path`, with links followed, is a directory. Returns false if that cannot be found out.
bool IsDirectory(const std::string& path);

/// The names in the directory at `path` without "." and "..", in the order of their bytes. Throws
/// Error if it cannot be read.
std::vector<std::string> NamesIn(const std::string& path);

/// `path` as an absolute path without links. Throws Error if there is nothing at `path`.
std::string RealPath(const std::string& path);

/// Makes the directory at `path` with its missing parents. Throws Error if it is not there
/// afterwards.
void MakeDirectories(const std::string& path);

#endif  // TOOLS_WEBRESOURCES_SUPPORT_FILES_H_
