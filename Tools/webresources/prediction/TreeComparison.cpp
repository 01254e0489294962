#include "TreeComparison.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "Error.h"
#include "Files.h"

namespace {

constexpr std::size_t kStreamBuffer = 65536;

using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

class Comparison {
 public:
  Comparison(const Prediction& prediction, PackageReader& package, std::string directory)
      : prediction_(prediction), package_(package), directory_(std::move(directory)) {}

  std::vector<Difference> Run() {
    CompareDirectory(prediction_.tree.root(), "");
    return std::move(differences_);
  }

 private:
  using Kind = Difference::Kind;

  void CompareDirectory(const PredictedTree::Node& expected, const std::string& prefix) {
    for (const std::string& name : NamesIn(directory_ + "/" + prefix)) {
      if (expected.children.count(name) == 0) {
        AddDifference(Kind::Extra, prefix + name, "it is not in the package");
      }
    }
    for (const auto& [name, node] : expected.children) {
      CompareNode(*node, prefix + name);
    }
  }

  void CompareNode(const PredictedTree::Node& expected, const std::string& path) {
    struct stat status = {};
    if (lstat((directory_ + "/" + path).c_str(), &status) != 0) {
      if (errno != ENOENT) {
        throw Error::FromErrno("read", directory_ + "/" + path);
      }
      AddDifference(Kind::Missing, path, "it is in the package");
    } else if (expected.isDirectory ? !S_ISDIR(status.st_mode) : !S_ISREG(status.st_mode)) {
      AddDifference(Kind::Type, path,
                    expected.isDirectory ? "it is not a directory" : "it is not a regular file");
    } else if (expected.isDirectory) {
      CompareDirectory(expected, path + "/");
    } else {
      CompareFile(expected, path, static_cast<std::uint64_t>(status.st_size));
    }
  }

  void CompareFile(const PredictedTree::Node& expected, const std::string& path,
                   std::uint64_t size) {
    if (size != expected.size) {
      AddDifference(
          Kind::Content, path,
          "it has " + std::to_string(size) + " bytes instead of " + std::to_string(expected.size));
    } else if (size != 0 && !HasContentOf(expected, directory_ + "/" + path)) {
      AddDifference(Kind::Content, path, "its content is not that of the package");
    }
  }

  /// Whether the file at `path`, of the same size, holds what the package gives.
  bool HasContentOf(const PredictedTree::Node& expected, const std::string& path) {
    const Stream file(std::fopen(path.c_str(), "rb"), std::fclose);
    if (!file) {
      throw Error::FromErrno("read", path);
    }
    std::setvbuf(file.get(), buffer_, _IOFBF, sizeof buffer_);
    if (!package_.Seek(prediction_.entries[expected.writer].position) || !package_.Open()) {
      return false;
    }
    const bool isSame = IsSameData(file.get(), path);
    package_.Close();
    return isSame;
  }

  bool IsSameData(std::FILE* file, const std::string& path) {
    int count = 0;
    while ((count = package_.Read()) > 0) {
      const auto length = static_cast<std::size_t>(count);
      if (std::fread(real_, 1, length, file) != length) {
        if (std::ferror(file) != 0) {
          throw Error::FromErrno("read", path);
        }
        return false;
      }
      if (std::memcmp(package_.portion(), real_, length) != 0) {
        return false;
      }
    }
    return true;
  }

  void AddDifference(Kind kind, const std::string& path, const std::string& reason) {
    differences_.push_back({kind, path, reason});
  }

  const Prediction& prediction_;
  PackageReader& package_;
  const std::string directory_;
  std::vector<Difference> differences_;
  char real_[PackageReader::kPortionSize] = {};
  char buffer_[kStreamBuffer] = {};
};

}  // namespace

std::vector<Difference> Compare(const Prediction& prediction, PackageReader& package,
                                const std::string& directory) {
  return Comparison(prediction, package, directory).Run();
}
