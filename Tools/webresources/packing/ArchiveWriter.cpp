#include "packing/ArchiveWriter.h"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <initializer_list>
#include <new>
#include <utility>

#include "Uninterrupted.h"
#include "support/Error.h"
#include "support/Files.h"
#include "support/Text.h"

namespace webresources {

namespace {

constexpr std::size_t kChunk = 65536;
constexpr std::uint64_t kLargestArchive = 0xffffffff;
constexpr std::uint64_t kSizeOfZip64 = 0xffffffff;  // the smallest size that needs Zip64
constexpr std::uint64_t kEntriesOfZip64 = 0xffff;

constexpr unsigned int kVersion = 20;  // the format's version with directories and deflated data
constexpr unsigned int kVersionZip64 = 45;
constexpr unsigned int kSystemUnix = 3U << 8U;
constexpr unsigned int kFileAttributes = 0100644U << 16U;
constexpr unsigned int kDirectoryAttributes = (040755U << 16U) | 0x10U;  // and the bit of DOS
constexpr unsigned int kUtf8Flag = 0x800;

unsigned int DosTime(std::int64_t seconds) {
  constexpr std::int64_t kFirst = 315532800;  // 1980-01-01 00:00:00
  constexpr std::int64_t kLast = 4354819198;  // 2107-12-31 23:59:58
  const std::time_t time = std::clamp(seconds, kFirst, kLast);
  std::tm utc = {};
  gmtime_r(&time, &utc);
  const auto field = [](int value, unsigned int shift) {
    return static_cast<unsigned int>(value) << shift;
  };
  return field(utc.tm_year - 80, 25) | field(utc.tm_mon + 1, 21) | field(utc.tm_mday, 16) |
         field(utc.tm_hour, 11) | field(utc.tm_min, 5) | field(utc.tm_sec / 2, 0);
}

/// Numbers with their sizes in bytes.
using Fields = std::initializer_list<std::pair<std::uint64_t, int>>;

std::string LittleEndian(Fields fields) {
  std::string bytes;
  for (const auto& [number, size] : fields) {
    for (int i = 0; i < size; ++i) {
      bytes += static_cast<char>(number >> (8 * i));
    }
  }
  return bytes;
}

}  // namespace

/// A file that is open for reading, and the required size.
struct ArchiveWriter::Source {
  int file;
  const std::string& path;
  std::uint64_t size;

  void RequireSame(bool isSame) const {
    if (!isSame) {
      throw Error("pack", path, "it changed while it was packed", "pack again");
    }
  }
};

struct ArchiveWriter::Entry {
  const std::string& name;
  unsigned int attributes = 0;
  std::uint64_t offset = 0;  ///< The position of the local header.
  std::uint64_t size = 0;
  std::uint64_t packedSize = 0;
  std::uint32_t crc32 = 0;

  bool isZip64() const { return size >= kSizeOfZip64; }

  std::string LocalHeader(unsigned int time) const {
    // A local header has both sizes in the field, or none.
    const std::string extra =
        isZip64() ? LittleEndian({{1, 2}, {16, 2}, {size, 8}, {packedSize, 8}}) : "";
    return "PK\3\4" + Common(time, isZip64() ? kSizeOfZip64 : packedSize, extra) + name + extra;
  }

  std::string CentralHeader(unsigned int time) const {
    const std::string extra = isZip64() ? LittleEndian({{1, 2}, {8, 2}, {size, 8}}) : "";
    return "PK\1\2" + LittleEndian({{kSystemUnix | kVersion, 2}}) +
           Common(time, packedSize, extra) +
           LittleEndian({{0, 2}, {0, 2}, {0, 2}, {attributes, 4}, {offset, 4}}) + name + extra;
  }

 private:
  /// Returns the part that the two headers share.
  std::string Common(unsigned int time, std::uint64_t packed, const std::string& extra) const {
    return LittleEndian({{isZip64() ? kVersionZip64 : kVersion, 2},
                         {IsAscii(name) ? 0 : kUtf8Flag, 2},
                         {packedSize < size ? Z_DEFLATED : 0, 2},
                         {time, 4},
                         {crc32, 4},
                         {packed, 4},
                         {std::min(size, kSizeOfZip64), 4},
                         {name.length(), 2},
                         {extra.length(), 2}});
  }
};

ArchiveWriter::ArchiveWriter(int file, std::string path, Options options)
    : file_(file),
      path_(std::move(path)),
      options_(std::move(options)),
      time_(DosTime(options_.seconds)),
      output_(kChunk) {
  const off_t begin = lseek(file_, 0, SEEK_CUR);
  Require(begin >= 0);
  position_ = static_cast<std::uint64_t>(begin);
  if (deflateInit2(&deflater_, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, MAX_MEM_LEVEL - 1,
                   Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::bad_alloc();
  }
}

ArchiveWriter::~ArchiveWriter() {
  deflateEnd(&deflater_);
}

void ArchiveWriter::AddDirectory(const std::string& name) {
  const Entry entry = {name, kDirectoryAttributes, position_};
  Append(entry.LocalHeader(time_));
  AddToDirectory(entry);
}

void ArchiveWriter::AddFile(const std::string& name, const std::string& path, std::uint64_t size) {
  const InputFile file(path, Links::Follow);
  const Source source = {file.descriptor(), path, size};
  Entry entry = {name, kFileAttributes, position_, size};
  Append(entry.LocalHeader(time_));  // checksum and sizes are not known yet
  const std::uint64_t begin = position_;
  deflateReset(&deflater_);
  entry.crc32 =
      Read(source, [this](const char* bytes, std::size_t length) { Deflate(bytes, length); });
  Deflate(nullptr, 0);
  entry.packedSize = std::min(position_ - begin, size);
  const bool isStored = entry.packedSize == size;
  if (isStored) {
    GoBackTo(begin);
  }
  // Also for deflated data: a change during the first reading can give bytes that the file never
  // had.
  const std::uint32_t again = Read(source, [this, isStored](const char* bytes, std::size_t length) {
    Append({bytes, isStored ? length : 0});
  });
  source.RequireSame(again == entry.crc32);
  const std::string header = entry.LocalHeader(time_);
  Require(Uninterrupted([&] {
            return pwrite(file_, header.data(), header.size(), static_cast<off_t>(entry.offset));
          }) == static_cast<ssize_t>(header.size()));
  AddToDirectory(entry);
}

void ArchiveWriter::Close() {
  const std::uint64_t offset = position_;
  const std::uint64_t size = directory_.size();
  std::string end = std::move(directory_);
  if (entryCount_ >= kEntriesOfZip64) {
    end += "PK\6\6" +
           LittleEndian({{44, 8},
                         {kVersionZip64, 2},
                         {kVersionZip64, 2},
                         {0, 4},
                         {0, 4},
                         {entryCount_, 8},
                         {entryCount_, 8},
                         {size, 8},
                         {offset, 8}}) +
           "PK\6\7" + LittleEndian({{0, 4}, {offset + size, 8}, {1, 4}});
  }
  const std::uint64_t count = std::min(entryCount_, kEntriesOfZip64);
  end += "PK\5\6" +
         LittleEndian({{0, 2}, {0, 2}, {count, 2}, {count, 2}, {size, 4}, {offset, 4}, {0, 2}});
  Append(end);
  // Deflated data that stored data has replaced can reach beyond the end.
  Require(Uninterrupted([&] { return ftruncate(file_, static_cast<off_t>(position_)); }) == 0);
}

template <typename Take>
std::uint32_t ArchiveWriter::Read(const Source& source, Take take) const {
  std::uint64_t size = 0;
  uLong crc = 0;
  ForEachChunk(source.file, source.path, [&](const char* bytes, std::size_t length) {
    options_.onRead(source.path, length);
    size += length;
    source.RequireSame(size <= source.size);
    crc = crc32_z(crc, reinterpret_cast<const Bytef*>(bytes), length);
    take(bytes, length);
  });
  source.RequireSame(size == source.size);
  return static_cast<std::uint32_t>(crc);
}

void ArchiveWriter::Deflate(const char* bytes, std::size_t length) {
  // zlib does not write to the input.
  deflater_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes));
  deflater_.avail_in = static_cast<unsigned int>(length);
  do {
    deflater_.next_out = reinterpret_cast<Bytef*>(output_.data());
    deflater_.avail_out = static_cast<unsigned int>(output_.size());
    deflate(&deflater_, length == 0 ? Z_FINISH : Z_NO_FLUSH);
    Append({output_.data(), output_.size() - deflater_.avail_out});
  } while (deflater_.avail_out == 0);
}

void ArchiveWriter::AddToDirectory(const Entry& entry) {
  directory_ += entry.CentralHeader(time_);
  ++entryCount_;
}

void ArchiveWriter::Append(std::string_view bytes) {
  position_ += bytes.size();
  if (position_ > kLargestArchive) {
    throw Error("write", path_, "the package would have 4 GiB or more");
  }
  Require(WriteAll(file_, bytes.data(), bytes.size()));
}

void ArchiveWriter::GoBackTo(std::uint64_t position) {
  Require(lseek(file_, static_cast<off_t>(position), SEEK_SET) >= 0);
  position_ = position;
}

void ArchiveWriter::Require(bool isDone) const {
  if (!isDone) {
    throw Error::FromErrno("write", path_);
  }
}

}  // namespace webresources
