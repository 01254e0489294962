#include "InstallerUtils.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "InstallerConstants.h"
#include "OSUtils.h"
#include "PackageReader.h"

namespace {

/// Larger than the standard stream's own, to write most files in one call.
constexpr std::size_t kStreamBufferSize = 65536;

/// Whether a link lies at `path`, planted there after the name was found to be free.
bool IsLink(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

/// Opens a new file at `path`; null if that is not possible. Anything there but a directory gives
/// way: to open it could wait for ever, or write to what has another name.
FILE* OpenOutput(const std::string& path) {
  FILE* stream = nullptr;
  if (fopen_s(&stream, path.c_str(), "wbx") == EEXIST && unlink(path.c_str()) == 0) {
    fopen_s(&stream, path.c_str(), "wbx");
  }
  return stream;
}

/// Extracts one archive into one directory, entry by entry, through fixed buffers.
class Extraction {
 public:
  Extraction(PackageReader& package, const std::string& destination)
      : package_(package), destination_(destination) {}

  /// Extracts the package's current entry. Every problem is passed over.
  void ExtractEntry() {
    const PackageEntry& entry = package_.entry();
    if (entry.kind == PackageEntry::Kind::Directory) {
      OSUtils::EnsureDirectoryExists(OutputPath(entry));
    } else if (entry.kind == PackageEntry::Kind::File && package_.Open()) {
      WriteFile(OutputPath(entry));
      package_.Close();  // a checksum mismatch reported here is not acted on
    }
  }

 private:
  const std::string& OutputPath(const PackageEntry& entry) {
    return path_.assign(destination_).append("/").append(entry.name);
  }

  /// Copies the opened entry's data. If the file cannot be created, nothing is read; if the data
  /// cannot be read to its end, what was read is kept.
  void WriteFile(const std::string& path) {
    FILE* stream = OpenOutput(path);
    if (stream == nullptr) {
      return;  // typically: its directory was not announced
    }
    std::setvbuf(stream, stream_buffer_, _IOFBF, sizeof stream_buffer_);
    int count = 0;
    while ((count = package_.Read()) > 0) {
      std::fwrite(package_.portion(), static_cast<std::size_t>(count), 1, stream);
    }
    std::fclose(stream);
  }

  PackageReader& package_;
  const std::string& destination_;
  std::string path_;
  char stream_buffer_[kStreamBufferSize] = {};
};

}  // namespace

int fopen_s(FILE** stream, const char* path, const char* mode) {
  *stream = std::fopen(path, mode);
  return *stream != nullptr ? 0 : errno;
}

bool InstallerUtils::UncompressPackageFiles(std::string& zipPath, std::string& destDir) {
  // The archive first, then the destination: it is made even when the archive is missing.
  PackageReader package(zipPath);
  if (!OSUtils::EnsureDirectoryExists(destDir) || IsLink(destDir)) {
    return false;
  }
  Extraction extraction(package, destDir);
  while (package.Next()) {
    extraction.ExtractEntry();
  }
  return true;
}
