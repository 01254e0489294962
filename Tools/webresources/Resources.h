#ifndef TOOLS_WEBRESOURCES_RESOURCES_H_
#define TOOLS_WEBRESOURCES_RESOURCES_H_

#include <string>

/// Where the two files of a bundle are.
struct Resources {
  std::string directory;  ///< Without a trailing "/".
  std::string package;
  std::string metadata;
};

/// The resources of a bundle at `path`, of the Contents directory of one, or of the Resources
/// directory itself. Whether the two files exist is not examined. Throws Error when `path` is not a
/// directory that can be looked into.
Resources FindResources(std::string path);

enum class FileState { Missing, Present };

/// Whether there is a file at `path`. Throws Error when that cannot be told, when it cannot be
/// read, and when it is neither a file nor a directory: to open it could wait for ever.
FileState StateOf(const std::string& path);

bool IsDirectory(const std::string& path);

#endif  // TOOLS_WEBRESOURCES_RESOURCES_H_
