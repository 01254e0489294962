#include "TreeComparison.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>

#include "Descriptor.h"
#include "Error.h"
#include "Files.h"
#include "Uninterrupted.h"

namespace {

constexpr std::size_t kStreamBuffer = 65536;

using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

/// Opens the file at `path` for reading through `buffer`.
Stream OpenStream(const std::string& path, char* buffer) {
  Stream file(std::fopen(path.c_str(), "rb"), std::fclose);
  if (!file) {
    throw Error::FromErrno("read", path);
  }
  std::setvbuf(file.get(), buffer, _IOFBF, kStreamBuffer);
  return file;
}

/// Whether the file at a path, which has the expected size, has the expected content.
using IsSameContent =
    std::function<bool(const PredictedTree::Node& expected, const std::string& path)>;

class Comparison {
 public:
  Comparison(const PredictedTree& tree, std::string directory, IsSameContent isSameContent)
      : tree_(tree), directory_(std::move(directory)), isSameContent_(std::move(isSameContent)) {}

  std::vector<Difference> Run() {
    CompareDirectory(tree_.root(), "");
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
    } else if (size != 0 && !isSameContent_(expected, directory_ + "/" + path)) {
      AddDifference(Kind::Content, path, "its content is not that of the package");
    }
  }

  void AddDifference(Kind kind, const std::string& path, const std::string& reason) {
    differences_.push_back({kind, path, reason});
  }

  const PredictedTree& tree_;
  const std::string directory_;
  const IsSameContent isSameContent_;
  std::vector<Difference> differences_;
};

/// Compares files with the data of the package, byte by byte.
class ContentOfPackage {
 public:
  ContentOfPackage(const Prediction& prediction, PackageReader& package)
      : prediction_(prediction), package_(package) {}

  bool IsIn(const PredictedTree::Node& expected, const std::string& path) {
    const Stream file = OpenStream(path, buffer_);
    if (!package_.Seek(prediction_.entries[*expected.writer].position) || !package_.Open()) {
      return false;
    }
    const bool isSame = IsSameData(file.get(), path);
    package_.Close();
    return isSame;
  }

 private:
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

  const Prediction& prediction_;
  PackageReader& package_;
  char real_[PackageReader::kPortionSize] = {};
  char buffer_[kStreamBuffer] = {};
};

/// The CRC-32 of the file at `path`.
std::uint32_t ChecksumOf(const std::string& path, std::vector<char>& buffer) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  uLong crc = crc32(0, nullptr, 0);
  ssize_t count = 0;
  while ((count = Uninterrupted([&] { return read(*file, buffer.data(), buffer.size()); })) > 0) {
    crc = crc32_z(crc, reinterpret_cast<const Bytef*>(buffer.data()),
                  static_cast<std::size_t>(count));
  }
  if (!file || count < 0) {
    throw Error::FromErrno("read", path);
  }
  return static_cast<std::uint32_t>(crc);
}

}  // namespace

std::vector<Difference> Compare(const Prediction& prediction, PackageReader& package,
                                const std::string& directory) {
  ContentOfPackage content(prediction, package);
  return Comparison(prediction.tree, directory,
                    [&content](const PredictedTree::Node& expected, const std::string& path) {
                      return content.IsIn(expected, path);
                    })
      .Run();
}

std::vector<Difference> CompareChecksums(const PredictedTree& tree, const std::string& directory) {
  std::vector<char> buffer(kStreamBuffer);
  return Comparison(tree, directory,
                    [&buffer](const PredictedTree::Node& expected, const std::string& path) {
                      return ChecksumOf(path, buffer) == expected.crc32;
                    })
      .Run();
}
