#ifndef TESTS_SOURCE_SUPPORT_H_
#define TESTS_SOURCE_SUPPORT_H_

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>

/// A fresh directory, open to every user, that is removed with all it holds.
class ScopedDirectory {
 public:
  ScopedDirectory() {
    path_ = (std::filesystem::temp_directory_path() / "web-resource-XXXXXX").string();
    if (mkdtemp(path_.data()) == nullptr || chmod(path_.c_str(), 0777) != 0) {
      throw std::runtime_error("no temporary directory");
    }
    path_ = std::filesystem::canonical(path_).string();
  }
  ~ScopedDirectory() {
    namespace fs = std::filesystem;
    std::error_code ignored;
    // Each directory is opened up before the iteration enters it.
    fs::permissions(path_, fs::perms::owner_all, ignored);
    for (const auto& entry : fs::recursive_directory_iterator(path_, ignored)) {
      if (entry.is_directory(ignored) && !entry.is_symlink(ignored)) {
        fs::permissions(entry.path(), fs::perms::owner_all, ignored);
      }
    }
    fs::remove_all(path_, ignored);
  }
  ScopedDirectory(const ScopedDirectory&) = delete;
  ScopedDirectory& operator=(const ScopedDirectory&) = delete;

  /// The path of `name` in the directory; of the directory itself for an empty one.
  std::string operator/(const std::string& name) const {
    return name.empty() ? path_ : path_ + "/" + name;
  }

 private:
  std::string path_;
};

/// Works in another directory, and comes back.
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

inline void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream stream(path, std::ios::binary);
  stream << bytes;
  if (!stream.flush()) {
    throw std::runtime_error("cannot write " + path);
  }
}

inline std::string ReadFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

/// Whether anything at all, a dangling link included, stands at `path`.
inline bool Exists(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0;
}

inline mode_t Mode(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

/// What stands below a directory: a file's contents, "link" for a link, and nothing for a
/// directory, whose name ends in "/".
using Tree = std::map<std::string, std::string>;

inline Tree TreeOf(const std::string& directory) {
  Tree tree;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    const std::string name = entry.path().string().substr(directory.length() + 1);
    if (entry.is_symlink()) {
      tree[name] = "link";
    } else if (entry.is_directory()) {
      tree[name + "/"] = "";
    } else {
      tree[name] = ReadFile(entry.path().string());
    }
  }
  return tree;
}

/// How many descriptors this process has open.
inline int OpenDescriptors() {
  int count = 0;
  for (int descriptor = 0; descriptor < 1024; ++descriptor) {
    count += fcntl(descriptor, F_GETFD) != -1 ? 1 : 0;
  }
  return count;
}

/// What `act` returns in a process of its own.
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

/// What `act` returns in a process that file modes bind, even when the tests run as root.
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

#endif  // TESTS_SOURCE_SUPPORT_H_
