#include "support/Files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <memory>
#include <stdexcept>

#include "MallocPointer.h"
#include "Uninterrupted.h"
#include "support/Error.h"
#include "support/Progress.h"
#include "support/Text.h"

namespace webresources {

bool IsPresent(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) {
      return false;
    }
    throw Error::FromErrno("read", path);
  }
  if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
    throw Error("read", path, "it is not a regular file");
  }
  if (access(path.c_str(), R_OK) == 0) {
    return true;
  }
  if (errno == ENOENT) {
    return false;  // removed after stat()
  }
  throw Error::FromErrno("read", path);
}

bool Exists(const std::string& path) {
  struct stat status = {};
  if (lstat(path.c_str(), &status) == 0) {
    return true;
  }
  if (errno != ENOENT && errno != ENOTDIR) {
    throw Error::FromErrno("read", path);
  }
  return false;
}

FreeSpace FreeSpaceAt(const std::string& path) {
  struct statvfs status = {};
  if (statvfs(path.c_str(), &status) != 0) {
    throw Error::FromErrno("read", path);
  }
  const bool isUnlimited = status.f_files == 0;  // for example Btrfs, which has no table of inodes
  return {std::uint64_t{status.f_bavail} * status.f_frsize,
          isUnlimited ? std::numeric_limits<std::uint64_t>::max() : status.f_favail};
}

struct stat StatusOf(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) {
    throw Error::FromErrno("read", path);
  }
  return status;
}

bool IsDirectory(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) == 0) {
    return S_ISDIR(status.st_mode);
  }
  if (errno != ENOENT && errno != ENOTDIR && errno != ELOOP) {
    throw Error::FromErrno("read", path);
  }
  return false;
}

std::vector<std::string> NamesIn(const std::string& path) {
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(path.c_str()), closedir);
  if (!stream) {
    throw Error::FromErrno("read", path);
  }
  std::vector<std::string> entries;
  errno = 0;  // only errno distinguishes a failure from the end
  while (const dirent* entry = readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") {
      entries.push_back(name);
    }
    errno = 0;
  }
  if (errno != 0) {
    throw Error::FromErrno("read", path);
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

InputFile::InputFile(const std::string& path, Links links)
    : InputFile(AT_FDCWD, path, path, links) {}

// O_NONBLOCK, because the opening of a FIFO could wait forever.
InputFile::InputFile(int directory, const std::string& name, std::string path, Links links)
    : path_(std::move(path)),
      descriptor_(
          openat(directory, name.c_str(),
                 O_RDONLY | O_NONBLOCK | O_CLOEXEC | (links == Links::Refuse ? O_NOFOLLOW : 0))) {
  if (!descriptor_ || fstat(*descriptor_, &status_) != 0) {
    throw Error::FromErrno("read", path_);
  }
  if (!S_ISREG(status_.st_mode)) {
    throw Error("read", path_, "it is not a regular file");
  }
}

std::unique_ptr<std::FILE, int (*)(std::FILE*)> InputFile::TakeStream() {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(fdopen(*descriptor_, "rb"), std::fclose);
  if (!stream) {
    throw Error::FromErrno("read", path_);
  }
  descriptor_.Release();
  return stream;
}

void ForEachChunk(int file, const std::string& path,
                  const std::function<void(const char* bytes, std::size_t length)>& take) {
  lseek(file, 0, SEEK_SET);
  char chunk[1U << 16U];
  ssize_t count = 0;
  while ((count = Uninterrupted([&] { return read(file, chunk, sizeof chunk); })) > 0) {
    ThrowIfInterrupted("read", path);
    take(chunk, static_cast<std::size_t>(count));
  }
  if (count < 0) {
    throw Error::FromErrno("read", path);
  }
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
  if (!IsDirectory(path)) {
    errno = failure.value();
    throw Error::FromErrno("make the directory", path);
  }
}

bool IsAt(int descriptor, const std::string& path) {
  struct stat held = {};
  struct stat there = {};
  return fstat(descriptor, &held) == 0 && lstat(path.c_str(), &there) == 0 &&
         held.st_dev == there.st_dev && held.st_ino == there.st_ino;
}

Sha256::Digest DigestOfFile(const std::string& path) {
  const InputFile file(path, Links::Follow);
  Progress progress("reading " + LastOf(path), static_cast<std::uint64_t>(file.status().st_size));
  Sha256 hash;
  ForEachChunk(file.descriptor(), path, [&](const char* bytes, std::size_t length) {
    hash.Update(bytes, length);
    progress.Step(length);
  });
  return hash.Finish();
}

std::string DigestText(const Sha256::Digest& digest) {
  return Hexadecimal(std::string(digest.begin(), digest.end()));
}

Sha256::Digest DigestFrom(const std::string& text) {
  const auto bytes = FromHexadecimal(text);
  Sha256::Digest digest = {};
  if (!bytes || bytes->size() != digest.size()) {
    throw std::invalid_argument("it is not a SHA-256 digest: " + text);
  }
  std::copy(bytes->begin(), bytes->end(), digest.begin());
  return digest;
}

}  // namespace webresources
