#include "PackageReader.h"

#include <unzip.h>

#include <cstdio>
#include <cstring>

namespace {

using Kind = PackageEntry::Kind;

/// Returns whether `name` is a path traversal: joined to a directory, the name leads above that
/// directory through "..". For example, "a/../../b" does, and "a/../b" does not.
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

uLong ReadUnlocked(void* /*opaque*/, void* stream, void* bytes, uLong length) {
  auto* file = static_cast<std::FILE*>(stream);
  if (length != 1) {
    return std::fread(bytes, 1, length, file);
  }
  const int byte = getc_unlocked(file);
  *static_cast<unsigned char*>(bytes) = static_cast<unsigned char>(byte);
  return byte == EOF ? 0 : 1;
}

unzFile OpenUnlocked(const char* path) {
  zlib_filefunc64_def functions = {};
  fill_fopen64_filefunc(&functions);
  functions.zread_file = ReadUnlocked;
  return unzOpen2_64(path, &functions);
}

}  // namespace

void PackageReader::Closer::operator()(void* archive) const {
  unzClose(archive);
}

PackageReader::PackageReader(const std::string& path) : archive_(unzOpen(path.c_str())) {}

PackageReader::PackageReader(const std::string& path, Unlocked /*unlocked*/)
    : archive_(OpenUnlocked(path.c_str())) {}

std::uint64_t PackageReader::EntryCount() {
  unz_global_info info = {};
  if (!count_) {
    const bool isKnown = IsOpen() && unzGetGlobalInfo(archive_.get(), &info) == UNZ_OK;
    count_ = isKnown ? info.number_entry : 0;
  }
  return *count_;
}

bool PackageReader::Next() {
  if (visited_ >= EntryCount() || (visited_ > 0 && unzGoToNextFile(archive_.get()) != UNZ_OK)) {
    visited_ = EntryCount();
    return false;
  }
  ++visited_;
  ReadEntry();
  return true;
}

bool PackageReader::Open() {
  data_ = {};
  data_.isOpened = unzOpenCurrentFile(archive_.get()) == UNZ_OK;
  return data_.isOpened;
}

int PackageReader::Read() {
  const bool isStopped = isStopped_ && isStopped_();
  const int count =
      isStopped ? UNZ_ERRNO : unzReadCurrentFile(archive_.get(), chunk_, sizeof chunk_);
  if (count > 0) {
    data_.size += static_cast<unsigned int>(count);
  } else if (count < 0) {
    data_.end = EntryData::End::Damaged;
  } else {
    data_.end = data_.size == entry_.size ? EntryData::End::Complete : EntryData::End::Early;
  }
  return count;
}

void PackageReader::Close() {
  // The library compares the checksum only after all data was read.
  const bool isChecksumRight = unzCloseCurrentFile(archive_.get()) == UNZ_OK;
  if (data_.end == EntryData::End::Complete && !isChecksumRight) {
    data_.end = EntryData::End::WrongCrc;
  }
}

void PackageReader::ReadEntry() {
  unz_file_info info = {};
  entry_ = {};
  data_ = {};
  if (unzGetCurrentFileInfo(archive_.get(), &info, name_, sizeof name_, nullptr, 0, nullptr, 0) !=
      UNZ_OK) {
    return;
  }
  name_[sizeof name_ - 1] = '\0';  // the library does not terminate a name that fills the buffer
  entry_.kind = KindOf(name_, info.size_filename);
  entry_.name = name_;
  entry_.nameLength = info.size_filename;
  entry_.flags = info.flag;
  entry_.method = info.compression_method;
  entry_.madeBy = info.version;
  entry_.externalAttributes = info.external_fa;
  entry_.crc32 = static_cast<std::uint32_t>(info.crc);
  entry_.compressedSize = info.compressed_size;
  entry_.size = info.uncompressed_size;
}

Kind PackageReader::KindOf(const char* name, unsigned long length) {
  if (length >= kNameSize) {
    return Kind::NameTooLong;
  }
  if (*name == '\0') {
    return Kind::NameEmpty;
  }
  if (ClimbsOut(name)) {
    return Kind::ClimbsOut;
  }
  return name[std::strlen(name) - 1] == '/' ? Kind::Directory : Kind::File;
}
