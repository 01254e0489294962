#ifndef TESTS_SUPPORT_SUPPORT_H_
#define TESTS_SUPPORT_SUPPORT_H_

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "TestFiles.h"

/// Changes the working directory. The destructor restores the old directory.
class ScopedWorkingDirectory {
 public:
  explicit ScopedWorkingDirectory(const std::string& path)
      : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(path);
  }
  ~ScopedWorkingDirectory() { std::filesystem::current_path(before_); }
  ScopedWorkingDirectory(const ScopedWorkingDirectory&) = delete;
  ScopedWorkingDirectory& operator=(const ScopedWorkingDirectory&) = delete;

 private:
  std::filesystem::path before_;
};

class ScopedUmask {
 public:
  explicit ScopedUmask(mode_t mask) : before_(umask(mask)) {}
  ~ScopedUmask() { umask(before_); }
  ScopedUmask(const ScopedUmask&) = delete;
  ScopedUmask& operator=(const ScopedUmask&) = delete;

 private:
  mode_t before_;
};

inline mode_t Mode(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

/// Skips a test if this file system refuses `path`. Tests/Doubles/test_darwin_files.py lists the
/// tests that are skipped on a Mac.
#define SKIP_UNLESS_FILE_SYSTEM_TAKES(path)                                                \
  do {                                                                                     \
    if (!FileSystemTakes(path)) {                                                          \
      GTEST_SKIP() << "this file system takes no path of " << (path).length() << " bytes"; \
    }                                                                                      \
  } while (false)

/// Returns the number of open descriptors of this process.
inline int OpenDescriptors() {
  int count = 0;
  for (int descriptor = 0; descriptor < 1024; ++descriptor) {
    count += fcntl(descriptor, F_GETFD) != -1 ? 1 : 0;
  }
  return count;
}

/// Returns the result of `act` in a child process.
template <typename Act>
bool InChild(Act act) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(act() ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) <= 1) << "status " << status;
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/// Returns the result of `act` in a child process to which file modes apply, even if the tests run
/// as root.
template <typename Act>
bool AsOrdinaryUser(Act act) {
  constexpr uid_t kNobody = 65534;
  return InChild([&act] {
    const bool dropped = geteuid() != 0 || (setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 &&
                                            setuid(kNobody) == 0);
    if (!dropped) {
      _exit(2);
    }
    return act();
  });
}

#endif  // TESTS_SUPPORT_SUPPORT_H_
