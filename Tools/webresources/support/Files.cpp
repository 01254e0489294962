#include "Files.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "Error.h"
#include "MallocPointer.h"

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

std::vector<std::string> NamesIn(const std::string& path) {
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(path.c_str()), closedir);
  if (!stream) {
    throw Error::FromErrno("read", path);
  }
  std::vector<std::string> entries;
  while (const dirent* entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") {
      entries.push_back(name);
    }
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

std::string RealPath(const std::string& path) {
  const MallocPointer<char> real(realpath(path.c_str(), nullptr));
  if (!real) {
    throw Error::FromErrno("read", path);
  }
  return real.get();
}

void MakeDirectories(const std::string& path) {
  std::error_code failure;
  std::filesystem::create_directories(path, failure);
  if (failure || !IsDirectory(path)) {
    throw Error("make the directory", path, failure.message());
  }
}
