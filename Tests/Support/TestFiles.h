#ifndef TESTS_SUPPORT_TESTFILES_H_
#define TESTS_SUPPORT_TESTFILES_H_

#include <sys/stat.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>

/// A new directory that every user may use. The destructor deletes the directory and its content.
class ScopedDirectory {
 public:
  ScopedDirectory()
      : path_((std::filesystem::temp_directory_path() / "web-resource-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr || chmod(path_.c_str(), 0777) != 0) {
      throw std::runtime_error("no temporary directory");
    }
    path_ = std::filesystem::canonical(path_).string();
  }
  ~ScopedDirectory() {
    namespace fs = std::filesystem;
    std::error_code ignored;
    // Each directory becomes accessible before the iteration enters the directory.
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

  /// Returns the path of `name` in the directory. An empty `name` gives the path of the directory.
  std::string operator/(const std::string& name) const {
    return name.empty() ? path_ : path_ + "/" + name;
  }

 private:
  std::string path_;
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

/// Returns whether an entry exists at `path`, a dangling symbolic link included.
inline bool IsThere(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0;
}

/// Returns whether the file system accepts `path`, which need not exist. Some file systems refuse a
/// path of 1,024 bytes, or a path that is not UTF-8.
inline bool FileSystemTakes(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0 || (errno != ENAMETOOLONG && errno != EILSEQ);
}

/// Returns whether the volume ignores case, tested with the existing entry `path`.
inline bool VolumeIgnoresCase(const std::string& path) {
  std::string capitals = path;
  for (std::size_t i = path.rfind('/') + 1; i < path.length(); ++i) {
    capitals[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(path[i])));
  }
  struct stat status = {};
  return capitals != path && lstat(capitals.c_str(), &status) == 0;
}

/// The entries below a directory. A file has its content as value. The name of a directory ends in
/// "/", and the name of a symbolic link ends in "//"; both have an empty value.
using Tree = std::map<std::string, std::string>;

inline Tree TreeOf(const std::string& directory) {
  Tree tree;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    const std::string name = entry.path().string().substr(directory.length() + 1);
    if (entry.is_symlink()) {
      tree[name + "//"] = "";
    } else if (entry.is_directory()) {
      tree[name + "/"] = "";
    } else {
      tree[name] = ReadFile(entry.path().string());
    }
  }
  return tree;
}

#endif  // TESTS_SUPPORT_TESTFILES_H_
