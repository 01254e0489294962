#include "packing/ArchiveWriter.h"

#include <fcntl.h>
#include <unistd.h>
#include <zip.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "Descriptor.h"
#include "Uninterrupted.h"
#include "support/Error.h"
#include "support/Text.h"

namespace webresources {

namespace {

constexpr std::size_t kBufferSize = 65536;
constexpr off_t kLargestArchive = 0xffffffff;
constexpr std::uint64_t kSizeOfZip64 = 0xffffffff;  // the first that takes the fields of Zip64
constexpr std::uint64_t kEntriesOfZip64 = 0xffff;

constexpr unsigned long kMadeBy = (3U << 8U) | 20U;  // Unix, version 2.0
constexpr unsigned long kFileAttributes = 0100644UL << 16U;
constexpr unsigned long kDirectoryAttributes = (040755UL << 16U) | 0x10U;  // and the bit of DOS
constexpr unsigned long kUtf8Flag = 0x800;

unsigned long DosTime(std::int64_t seconds) {
  constexpr std::int64_t kFirst = 315532800;  // 1980-01-01 00:00:00
  constexpr std::int64_t kLast = 4354819198;  // 2107-12-31 23:59:58
  const std::time_t time = std::clamp(seconds, kFirst, kLast);
  std::tm utc = {};
  gmtime_r(&time, &utc);
  const auto field = [](int value, unsigned int shift) {
    return static_cast<unsigned long>(value) << shift;
  };
  return field(utc.tm_year - 80, 25) | field(utc.tm_mon + 1, 21) | field(utc.tm_mday, 16) |
         field(utc.tm_hour, 11) | field(utc.tm_min, 5) | field(utc.tm_sec / 2, 0);
}

std::string LittleEndian(std::uint64_t number, int size) {
  std::string bytes;
  for (int i = 0; i < size; ++i) {
    bytes += static_cast<char>(number >> (8 * i));
  }
  return bytes;
}

/// Begins an archive in `file`, which stays open when the archive is closed. Returns null if there
/// is no file, or not enough memory.
void* OpenArchive(std::FILE* file) {
  if (file == nullptr) {
    return nullptr;
  }
  zlib_filefunc64_def functions;
  fill_fopen64_filefunc(&functions);
  functions.opaque = file;
  functions.zopen64_file = [](void* opaque, const void*, int) { return opaque; };
  functions.zclose_file = [](void*, void*) { return 0; };
  return zipOpen2_64("", APPEND_STATUS_CREATE, nullptr, &functions);
}

}  // namespace

/// A file that is open for reading, and the size that it must have.
struct ArchiveWriter::Source {
  int file;
  const std::string& path;
  std::uint64_t size;

  [[noreturn]] void ThrowChanged() const {
    throw Error("pack", path, "it changed while it was packed: pack again");
  }
};

void ArchiveWriter::CloseArchive::operator()(void* archive) const {
  zipClose(archive, nullptr);
}

ArchiveWriter::ArchiveWriter(int file, std::string path, Options options)
    : path_(std::move(path)),
      options_(std::move(options)),
      dosTime_(DosTime(options_.seconds)),
      file_(fdopen(fcntl(file, F_DUPFD_CLOEXEC, 0), "r+b")),
      archive_(OpenArchive(file_.get())),
      input_(kBufferSize),
      output_(kBufferSize) {
  Require(archive_ != nullptr);
  if (deflateInit2(&deflater_, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, MAX_MEM_LEVEL - 1,
                   Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::bad_alloc();
  }
}

ArchiveWriter::~ArchiveWriter() {
  deflateEnd(&deflater_);
}

void ArchiveWriter::AddDirectory(const std::string& name) {
  OpenEntry(name, kDirectoryAttributes, false, 0);
  CloseEntry(0, 0);
}

void ArchiveWriter::AddFile(const std::string& name, const std::string& path, std::uint64_t size) {
  // Not blocking: a FIFO may have taken the place of the file.
  const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!file) {
    throw Error::FromErrno("read", path);
  }
  const Source source = {*file, path, size};
  std::uint64_t deflatedSize = 0;
  const uLong crc = Measure(source, deflatedSize);
  const bool isDeflated = deflatedSize < size;
  OpenEntry(name, kFileAttributes, isDeflated, size);
  // In any case: bytes that were read while the file changed may be bytes that it never held.
  const bool isSpooled = spool_.size() == deflatedSize;
  if (ReadAgain(source, isDeflated, isSpooled) != crc) {
    source.ThrowChanged();
  }
  CloseEntry(size, crc);
}

void ArchiveWriter::Close() {
  Require(zipClose(archive_.release(), nullptr) == ZIP_OK);
  if (entryCount_ >= kEntriesOfZip64) {
    AddZip64Records();
  }
  Require(std::fflush(file_.get()) == 0);
  if (ftello(file_.get()) > kLargestArchive) {
    throw Error("write", path_, "the package would have 4 GiB or more");
  }
}

uLong ArchiveWriter::Measure(const Source& source, std::uint64_t& deflatedSize) {
  spool_.clear();
  deflateReset(&deflater_);
  const auto spool = [&](const unsigned char* bytes, std::size_t length) {
    if (spool_.size() == deflatedSize && spool_.size() + length <= options_.spoolLimit) {
      spool_.insert(spool_.end(), bytes, bytes + length);
    }
    deflatedSize += length;
  };
  return Read(source, [&](const unsigned char* bytes, std::size_t length) {
    Deflate(bytes, length, spool);
  });
}

uLong ArchiveWriter::ReadAgain(const Source& source, bool isDeflated, bool isSpooled) {
  const auto write = [this](const unsigned char* bytes, std::size_t length) {
    WriteData(bytes, length);
  };
  if (isDeflated && isSpooled) {
    write(spool_.data(), spool_.size());
  }
  deflateReset(&deflater_);
  return Read(source, [&](const unsigned char* bytes, std::size_t length) {
    if (!isDeflated) {
      write(bytes, length);
    } else if (!isSpooled) {
      Deflate(bytes, length, write);
    }
  });
}

template <typename Take>
uLong ArchiveWriter::Read(const Source& source, Take take) {
  lseek(source.file, 0, SEEK_SET);
  std::uint64_t size = 0;
  uLong crc = 0;
  for (std::size_t length = 1; length > 0;) {
    const ssize_t count =
        Uninterrupted([&] { return read(source.file, input_.data(), input_.size()); });
    if (count < 0) {
      throw Error::FromErrno("read", source.path);
    }
    length = static_cast<std::size_t>(count);
    options_.onRead(source.path, length);
    size += length;
    if (size > source.size || (length == 0 && size < source.size)) {
      source.ThrowChanged();
    }
    crc = crc32(crc, input_.data(), static_cast<unsigned int>(length));
    take(input_.data(), length);
  }
  return crc;
}

template <typename Take>
void ArchiveWriter::Deflate(const unsigned char* bytes, std::size_t length, Take take) {
  deflater_.next_in = const_cast<unsigned char*>(bytes);  // zlib does not write there
  deflater_.avail_in = static_cast<unsigned int>(length);
  do {
    deflater_.next_out = output_.data();
    deflater_.avail_out = static_cast<unsigned int>(output_.size());
    deflate(&deflater_, length == 0 ? Z_FINISH : Z_NO_FLUSH);
    take(output_.data(), output_.size() - deflater_.avail_out);
  } while (deflater_.avail_out == 0);
}

void ArchiveWriter::OpenEntry(const std::string& name, unsigned long attributes, bool isDeflated,
                              std::uint64_t size) {
  zip_fileinfo info = {};
  info.dosDate = dosTime_;
  info.external_fa = attributes;
  constexpr int kIsRaw = 1;
  const int needsZip64 = size >= kSizeOfZip64 ? 1 : 0;
  // In raw mode the library neither deflates nor encrypts: most parameters are not used.
  Require(zipOpenNewFileInZip4_64(archive_.get(), name.c_str(), &info, nullptr, 0, nullptr, 0,
                                  nullptr, isDeflated ? Z_DEFLATED : 0, Z_DEFAULT_COMPRESSION,
                                  kIsRaw, -MAX_WBITS, MAX_MEM_LEVEL - 1, Z_DEFAULT_STRATEGY,
                                  nullptr, 0, kMadeBy, IsAscii(name) ? 0 : kUtf8Flag,
                                  needsZip64) == ZIP_OK);
  ++entryCount_;
}

void ArchiveWriter::WriteData(const unsigned char* bytes, std::size_t length) {
  Require(zipWriteInFileInZip(archive_.get(), bytes, static_cast<unsigned int>(length)) == ZIP_OK);
}

void ArchiveWriter::CloseEntry(std::uint64_t size, uLong crc) {
  Require(zipCloseFileInZipRaw64(archive_.get(), size, crc) == ZIP_OK);
}

void ArchiveWriter::AddZip64Records() {
  constexpr int kLocatorSize = 20;
  constexpr int kEndSize = 22;
  char tail[kLocatorSize + kEndSize];
  Require(fseeko(file_.get(), -off_t{sizeof tail}, SEEK_END) == 0 &&
          std::fread(tail, sizeof tail, 1, file_.get()) == 1);
  if (std::memcmp(tail, "PK\6\7", 4) == 0) {
    return;  // a newer zip library has written the records
  }
  const std::string end(tail + kLocatorSize, kEndSize);
  const std::string zeros(4, '\0');
  const std::string count = LittleEndian(entryCount_, 8);
  const auto position = static_cast<std::uint64_t>(ftello(file_.get())) - kEndSize;
  const std::string record = "PK\6\6" + LittleEndian(44, 8) + LittleEndian(45, 2) +
                             LittleEndian(45, 2) + zeros + zeros + count + count +
                             end.substr(12, 4) + zeros + end.substr(16, 4) + zeros;
  const std::string locator = "PK\6\7" + zeros + LittleEndian(position, 8) + LittleEndian(1, 4);
  const std::string records = record + locator + end;
  Require(fseeko(file_.get(), -off_t{kEndSize}, SEEK_END) == 0 &&
          std::fwrite(records.data(), records.size(), 1, file_.get()) == 1);
}

void ArchiveWriter::Require(bool isDone) const {
  if (!isDone) {
    throw Error::FromErrno("write", path_);
  }
}

}  // namespace webresources
