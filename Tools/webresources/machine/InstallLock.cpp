#include "machine/InstallLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "DirectoryChain.h"
#include "machine/Installation.h"
#include "support/Error.h"
#include "support/Files.h"
#include "support/Progress.h"
#include "support/Text.h"

namespace webresources {

namespace {

constexpr std::chrono::milliseconds kPoll{20};

/// Makes the directory with its missing ancestors. OSUtils::EnsureDirectoryExists() would fail if
/// another process made one of these directories at the same time.
bool MakeDirectories(const std::string& path) {
  constexpr mode_t kMode = 0777;  // before the umask
  return MakeDirectoryChain(
      path, [](const char* one) { return access(one, R_OK) == 0; },
      [](const char* one) { return mkdir(one, kMode) == 0 || errno == EEXIST; });
}

/// Returns whether `user` or root owns a file with `status`, and nobody else can write to the file.
bool IsTrusted(const struct stat& status, uid_t user) {
  return (status.st_uid == user || status.st_uid == 0) &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// Throws Error if another user owns `file` or can write to `file`. Removes the rights of other
/// users to read: a user who can open the file could block installations forever.
void RequireOwnFile(const Descriptor& file, const std::string& path) {
  struct stat status = {};
  if (fstat(*file, &status) != 0) {
    throw Error::FromErrno("lock", path);
  }
  if (!IsTrusted(status, geteuid())) {
    throw Error("lock", path, "another user owns it or can write to it",
                "remove it with rm " + ShellQuoted(path));
  }
  if ((status.st_mode & (S_IRGRP | S_IROTH)) != 0 && fchmod(*file, 0600) != 0) {
    throw Error::FromErrno("lock", path);
  }
}

Descriptor Open(const std::string& path) {
  constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  constexpr int kAttempts = 20;  // an uninstallation can remove each directory once
  const std::string directory = ParentOf(path);
  for (int attempt = 1;; ++attempt) {
    const bool isMade = MakeDirectories(directory);
    Descriptor file(isMade ? open(path.c_str(), kFlags, 0600) : -1);
    if (file) {
      RequireOwnFile(file, path);
      return file;
    }
    if (errno != ENOENT || attempt == kAttempts) {
      throw Error::FromErrno(isMade ? "lock" : "make", isMade ? path : directory);
    }
  }
}

Descriptor Lock(const std::string& path, std::chrono::milliseconds wait) {
  for (auto left = wait;; left -= kPoll) {
    ThrowIfInterrupted("lock", path);
    Descriptor file = Open(path);
    const bool isLocked = flock(*file, LOCK_EX | LOCK_NB) == 0;
    if (!isLocked && errno != EWOULDBLOCK && errno != EINTR) {
      throw Error::FromErrno("lock", path);
    }
    if (isLocked && IsAt(*file, path)) {
      return file;
    }
    if (left < kPoll) {
      throw Error("lock", path, "another installation is running");
    }
    if (left == wait) {
      Progress::Say("waiting: another installation is running");
    }
    std::this_thread::sleep_for(kPoll);
  }
}

}  // namespace

std::string InstallLock::PathOf(const std::string& hostRoot) {
  return BesideInstallRoot(hostRoot, kFileName);
}

InstallLock::InstallLock(const std::string& hostRoot, std::chrono::milliseconds wait)
    : path_(PathOf(hostRoot)), file_(Lock(path_, wait)) {}

void InstallLock::RemoveFile() const {
  if (unlink(path_.c_str()) != 0) {
    throw Error::FromErrno("remove", path_);
  }
}

bool InstallLock::IsRefusedForRoot(const std::string& hostRoot) {
  struct stat status = {};
  return lstat(PathOf(hostRoot).c_str(), &status) == 0 && !IsTrusted(status, 0);
}

bool InstallLock::IsThere(const std::string& hostRoot) {
  return Exists(PathOf(hostRoot));
}

}  // namespace webresources
