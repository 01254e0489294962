#include "Resources.h"

#include <sys/stat.h>
#include <unistd.h>

#include "Error.h"
#include "InstallerConstants.h"

Resources FindResources(std::string path) {
  while (path.length() > 1 && path.back() == '/') {
    path.pop_back();
  }
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) {
    throw Error::FromErrno("read", path);
  }
  if (!S_ISDIR(status.st_mode)) {
    throw Error("read", path, "it is not a directory");
  }
  for (const char* inside : {"/Contents/Resources", "/Resources"}) {
    if (IsDirectory(path + inside)) {
      path += inside;
      break;
    }
  }
  if (access(path.c_str(), R_OK | X_OK) != 0) {
    throw Error::FromErrno("read", path);
  }
  return {path, path + "/" + kPackageFileName, path + "/" + kMetadataFileName};
}

FileState StateOf(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) {
      return FileState::Missing;
    }
    throw Error::FromErrno("read", path);
  }
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
    throw Error("read", path, "it is not a regular file");
  }
  if (access(path.c_str(), R_OK) != 0) {
    throw Error::FromErrno("read", path);
  }
  return FileState::Present;
}

bool IsDirectory(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}
