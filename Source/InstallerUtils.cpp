#include "InstallerUtils.h"

#include <sys/stat.h>
#include <unistd.h>
#include <unzip.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "InstallerConstants.h"
#include "OSUtils.h"

namespace {

constexpr std::size_t kNameSize = 512;
constexpr std::size_t kCopySize = 8192;
/// Larger than the standard stream's own, to write most files in one call.
constexpr std::size_t kStreamBufferSize = 65536;

struct ArchiveCloser {
  void operator()(void* archive) const { unzClose(archive); }
};
using Archive = std::unique_ptr<void, ArchiveCloser>;

/// Whether `name`, taken below a directory, leads above it through "..".
bool ClimbsOut(const char* name) {
  int depth = 0;
  while (*name != '\0') {
    const std::size_t length = std::strcspn(name, "/");
    if (length == 2 && name[0] == '.' && name[1] == '.') {
      --depth;
    } else if (length > 1 || (length == 1 && name[0] != '.')) {
      ++depth;
    }
    if (depth < 0) {
      return true;
    }
    name += length;
    name += *name == '/' ? 1 : 0;
  }
  return false;
}

/// Whether a link stands at `path`, planted there since the name was found to be free.
bool IsLink(const std::string& path) {
  struct stat status = {};
  return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

/// Extracts one archive into one directory, entry by entry, through fixed buffers.
class Extraction {
 public:
  Extraction(unzFile archive, const std::string& destination)
      : archive_(archive), destination_(destination) {}

  /// Extracts the archive's current entry; whatever goes wrong, goes on.
  void ExtractEntry() {
    using EntryKind = InstallerUtils::EntryKind;
    unz_file_info info = {};
    if (unzGetCurrentFileInfo(archive_, &info, name_, sizeof name_, nullptr, 0, nullptr, 0) !=
        UNZ_OK) {
      return;
    }
    const EntryKind kind = InstallerUtils::KindOfEntry(name_, info.size_filename);
    if (kind != EntryKind::Directory && kind != EntryKind::File) {
      return;
    }
    path_.assign(destination_).append("/").append(name_);
    if (kind == EntryKind::Directory) {
      OSUtils::EnsureDirectoryExists(path_);
    } else if (unzOpenCurrentFile(archive_) == UNZ_OK) {
      WriteFile();
      unzCloseCurrentFile(archive_);  // a checksum mismatch reported here is not acted on
    }
  }

 private:
  /// Opens a new file at the output path. A file, link or FIFO that stands there gives way: to open
  /// it could wait for ever, or write to what it leads to.
  FILE* CreateFile() const {
    FILE* stream = nullptr;
    if (fopen_s(&stream, path_.c_str(), "wbx") == EEXIST && unlink(path_.c_str()) == 0) {
      fopen_s(&stream, path_.c_str(), "wbx");
    }
    return stream;
  }

  /// Copies the opened entry's data. A file that cannot be created is passed over; of one that
  /// cannot be read to its end, what was read is kept.
  void WriteFile() {
    FILE* stream = CreateFile();
    if (stream == nullptr) {
      return;  // typically: its directory was not announced
    }
    std::setvbuf(stream, stream_buffer_, _IOFBF, sizeof stream_buffer_);
    int count = 0;
    while ((count = unzReadCurrentFile(archive_, copy_, sizeof copy_)) > 0) {
      std::fwrite(copy_, static_cast<std::size_t>(count), 1, stream);
    }
    std::fclose(stream);
  }

  unzFile archive_;
  const std::string& destination_;
  std::string path_;
  char name_[kNameSize] = {};
  char copy_[kCopySize] = {};
  char stream_buffer_[kStreamBufferSize] = {};
};

}  // namespace

int fopen_s(FILE** stream, const char* path, const char* mode) {
  *stream = std::fopen(path, mode);
  return *stream != nullptr ? 0 : errno;
}

InstallerUtils::EntryKind InstallerUtils::KindOfEntry(const char* name, unsigned long length) {
  if (length >= kNameSize) {
    return EntryKind::NameTooLong;
  }
  if (*name == '\0') {
    return EntryKind::NameEmpty;
  }
  if (ClimbsOut(name)) {
    return EntryKind::ClimbsOut;
  }
  return name[std::strlen(name) - 1] == '/' ? EntryKind::Directory : EntryKind::File;
}

bool InstallerUtils::UncompressPackageFiles(std::string& zipPath, std::string& destDir) {
  // The archive first, then the destination: it is made even when the archive is missing.
  const Archive archive(unzOpen(zipPath.c_str()));
  if (!OSUtils::EnsureDirectoryExists(destDir) || IsLink(destDir)) {
    return false;
  }
  unz_global_info info = {};
  if (unzGetGlobalInfo(archive.get(), &info) != UNZ_OK) {
    return true;  // typically: there is no archive
  }
  Extraction extraction(archive.get(), destDir);
  for (uLong entry = 0; entry < info.number_entry; ++entry) {
    if (entry > 0 && unzGoToNextFile(archive.get()) != UNZ_OK) {
      break;
    }
    extraction.ExtractEntry();
  }
  return true;
}
