#include "packing/ArchiveWriter.h"

#include <fcntl.h>
#include <unistd.h>
#include <zip.h>

#include <algorithm>
#include <ctime>

#include "Descriptor.h"
#include "Uninterrupted.h"
#include "support/Error.h"
#include "support/Text.h"

namespace webresources {

namespace {

constexpr std::size_t kBufferSize = 65536;

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

}  // namespace

/// A file that is read from its beginning, once or twice, and what was read of it so far.
class ArchiveWriter::Source {
 public:
  explicit Source(const std::string& path)
      : path_(path), descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (!descriptor_) {
      throw Error::FromErrno("read", path);
    }
  }

  /// Reads the next bytes into `buffer`, as many as it holds unless the file ends. Returns their
  /// number, 0 at the end.
  std::size_t Read(std::vector<unsigned char>& buffer) {
    const ssize_t count =
        Uninterrupted([&] { return read(*descriptor_, buffer.data(), buffer.size()); });
    if (count < 0) {
      throw Error::FromErrno("read", path_);
    }
    const auto length = static_cast<unsigned int>(count);
    size_ += length;
    crc_ = crc32(crc_, buffer.data(), length);
    return length;
  }

  void Rewind() {
    lseek(*descriptor_, 0, SEEK_SET);
    size_ = 0;
    crc_ = 0;
  }

  const std::string& path() const { return path_; }
  std::uint64_t size() const { return size_; }
  std::uint32_t crc() const { return static_cast<std::uint32_t>(crc_); }

 private:
  const std::string& path_;
  const Descriptor descriptor_;
  std::uint64_t size_ = 0;
  uLong crc_ = 0;
};

struct ArchiveWriter::Measure {
  std::uint64_t size;
  std::uint64_t deflatedSize;
  std::uint32_t crc;
};

void ArchiveWriter::CloseArchive::operator()(void* archive) const {
  zipClose(archive, nullptr);
}

ArchiveWriter::ArchiveWriter(std::string path, std::int64_t seconds, std::size_t spoolLimit)
    : path_(std::move(path)),
      archive_(zipOpen64(path_.c_str(), APPEND_STATUS_CREATE)),
      dosTime_(DosTime(seconds)),
      spoolLimit_(spoolLimit),
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
  OpenEntry(name, true, false);
  CloseEntry(0, 0);
}

std::uint64_t ArchiveWriter::AddFile(const std::string& name, const std::string& path) {
  Source source(path);
  const Measure measure = MeasureAndSpool(source);
  const bool isDeflated = measure.deflatedSize < measure.size;
  OpenEntry(name, false, isDeflated);
  // Read again in any case: what was read while the file changed may be bytes that it never held.
  source.Rewind();
  if (isDeflated && spool_.size() == measure.deflatedSize) {
    WriteData(spool_.data(), spool_.size());
    while (source.Read(input_) > 0) {
    }
  } else if (isDeflated) {
    Deflate(source,
            [this](const unsigned char* bytes, std::size_t length) { WriteData(bytes, length); });
  } else {
    while (const std::size_t length = source.Read(input_)) {
      WriteData(input_.data(), length);
    }
  }
  if (source.size() != measure.size || source.crc() != measure.crc) {
    throw Error("pack", path, "it changed while it was packed: pack again");
  }
  CloseEntry(measure.size, measure.crc);
  return measure.size;
}

void ArchiveWriter::Close() {
  Require(zipClose(archive_.release(), nullptr) == ZIP_OK);
}

void ArchiveWriter::OpenEntry(const std::string& name, bool isDirectory, bool isDeflated) {
  zip_fileinfo info = {};
  info.dosDate = dosTime_;
  info.external_fa = isDirectory ? kDirectoryAttributes : kFileAttributes;
  constexpr int kIsRaw = 1;
  constexpr int kIn64Bits = 0;
  // In raw mode the library neither deflates nor encrypts: most parameters are not used.
  Require(zipOpenNewFileInZip4_64(archive_.get(), name.c_str(), &info, nullptr, 0, nullptr, 0,
                                  nullptr, isDeflated ? Z_DEFLATED : 0, Z_DEFAULT_COMPRESSION,
                                  kIsRaw, -MAX_WBITS, MAX_MEM_LEVEL - 1, Z_DEFAULT_STRATEGY,
                                  nullptr, 0, kMadeBy, IsAscii(name) ? 0 : kUtf8Flag,
                                  kIn64Bits) == ZIP_OK);
}

void ArchiveWriter::WriteData(const void* bytes, std::size_t length) {
  Require(zipWriteInFileInZip(archive_.get(), bytes, static_cast<unsigned int>(length)) == ZIP_OK);
}

void ArchiveWriter::CloseEntry(std::uint64_t size, std::uint32_t crc) {
  Require(zipCloseFileInZipRaw64(archive_.get(), size, crc) == ZIP_OK);
}

/// Deflates what is left of `source` and passes it on in portions.
template <typename Sink>
void ArchiveWriter::Deflate(Source& source, Sink sink) {
  deflateReset(&deflater_);
  int flush = Z_NO_FLUSH;
  while (flush != Z_FINISH) {
    const std::size_t length = source.Read(input_);
    flush = length == 0 ? Z_FINISH : Z_NO_FLUSH;
    deflater_.next_in = input_.data();
    deflater_.avail_in = static_cast<unsigned int>(length);
    do {
      deflater_.next_out = output_.data();
      deflater_.avail_out = static_cast<unsigned int>(output_.size());
      deflate(&deflater_, flush);
      sink(output_.data(), output_.size() - deflater_.avail_out);
    } while (deflater_.avail_out == 0);
  }
}

ArchiveWriter::Measure ArchiveWriter::MeasureAndSpool(Source& source) {
  std::uint64_t deflatedSize = 0;
  spool_.clear();
  Deflate(source, [&](const unsigned char* bytes, std::size_t length) {
    if (spool_.size() == deflatedSize && spool_.size() + length <= spoolLimit_) {
      spool_.insert(spool_.end(), bytes, bytes + length);
    }
    deflatedSize += length;
  });
  return {source.size(), deflatedSize, source.crc()};
}

void ArchiveWriter::Require(bool isDone) const {
  if (!isDone) {
    throw Error::FromErrno("write", path_);
  }
}

}  // namespace webresources
