#include "Package.h"

#include <sys/stat.h>

#include "Resources.h"

bool PackageEntry::IsLink() const {
  constexpr unsigned long kUnix = 3;
  return madeBy >> 8U == kUnix && S_ISLNK(static_cast<mode_t>(externalAttributes >> 16U));
}

Package::Package(const std::string& path) {
  if (StateOf(path) == FileState::Missing) {
    return;
  }
  archive_.reset(unzOpen(path.c_str()));
  unz_global_info info = {};
  if (IsOpen() && unzGetGlobalInfo(archive_.get(), &info) == UNZ_OK) {
    count_ = info.number_entry;
  }
}

PackageEntry Package::Entry() const {
  char name[512] = {};
  unz_file_info info = {};
  PackageEntry entry;
  entry.isReadable = unzGetCurrentFileInfo(archive_.get(), &info, name, sizeof name, nullptr, 0,
                                           nullptr, 0) == UNZ_OK;
  if (entry.isReadable) {
    name[sizeof name - 1] = '\0';  // a longer name has none
    entry.name = name;
    entry.nameLength = info.size_filename;
    entry.flags = info.flag;
    entry.method = info.compression_method;
    entry.madeBy = info.version;
    entry.externalAttributes = info.external_fa;
    entry.compressedSize = info.compressed_size;
    entry.size = info.uncompressed_size;
  }
  return entry;
}

Package::Position Package::Tell() const {
  Position position = {};
  unzGetFilePos64(archive_.get(), &position);
  return position;
}

bool Package::Seek(const Position& position) {
  return unzGoToFilePos64(archive_.get(), &position) == UNZ_OK;
}
