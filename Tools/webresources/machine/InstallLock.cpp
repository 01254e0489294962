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

std::string LockPath(const std::string& hostRoot) {
  return BesideInstallRoot(hostRoot, ".WebResources.lock");
}

/// Makes the directory with its missing ancestors. Not OSUtils::EnsureDirectoryExists(), which
/// fails if another first installation makes one of them at the same time.
bool MakeDirectories(const std::string& path) {
  constexpr mode_t kMode = 0777;  // before the umask
  return MakeDirectoryChain(
      path, [](const char* one) { return access(one, R_OK) == 0; },
      [](const char* one) { return mkdir(one, kMode) == 0 || errno == EEXIST; });
}

Descriptor Open(const std::string& path) {
  const std::string directory = ParentOf(path);
  if (!MakeDirectories(directory)) {
    throw Error::FromErrno("make", directory);
  }
  Descriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
  if (!file) {
    throw Error::FromErrno("lock", path);
  }
  return file;
}

Descriptor Lock(const std::string& path, std::chrono::milliseconds wait) {
  for (auto left = wait;; left -= kPoll) {
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

InstallLock::InstallLock(const std::string& hostRoot, std::chrono::milliseconds wait)
    : file_(Lock(LockPath(hostRoot), wait)) {}

bool InstallLock::IsThere(const std::string& hostRoot) {
  return Exists(LockPath(hostRoot));
}

}  // namespace webresources
