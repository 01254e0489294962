#include "ArchiveLayout.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "Error.h"

namespace {

constexpr std::uint32_t kLocalSignature = 0x04034b50;
constexpr std::uint32_t kCentralSignature = 0x02014b50;
constexpr std::uint32_t kEndSignature = 0x06054b50;
constexpr std::uint32_t kEnd64Signature = 0x06064b50;
constexpr std::uint32_t kLocator64Signature = 0x07064b50;

constexpr std::size_t kLocalSize = 30;
constexpr std::size_t kCentralSize = 46;
constexpr std::size_t kEndSize = 22;
constexpr std::size_t kEnd64Size = 56;
constexpr std::size_t kLocator64Size = 20;

constexpr std::size_t kSearchedTail = 0xffff;
constexpr std::uint32_t kIn64Bits = 0xffffffff;

/// Bytes of a file, taken as little-endian numbers. Past their end everything is 0.
class Bytes {
 public:
  explicit Bytes(std::string bytes) : bytes_(std::move(bytes)) {}

  std::size_t size() const { return bytes_.size(); }

  std::uint64_t Number(std::size_t offset, std::size_t length) const {
    std::uint64_t number = 0;
    for (std::size_t i = length; i-- > 0;) {
      number = number << 8U | Byte(offset + i);
    }
    return number;
  }
  unsigned int At16(std::size_t offset) const {
    return static_cast<unsigned int>(Number(offset, 2));
  }
  std::uint32_t At32(std::size_t offset) const {
    return static_cast<std::uint32_t>(Number(offset, 4));
  }
  std::uint64_t At64(std::size_t offset) const { return Number(offset, 8); }

  std::string Text(std::size_t offset, std::size_t length) const {
    return offset < size() ? bytes_.substr(offset, length) : std::string();
  }

 private:
  std::uint64_t Byte(std::size_t offset) const {
    return offset < size() ? static_cast<unsigned char>(bytes_[offset]) : 0U;
  }

  std::string bytes_;
};

class File {
 public:
  explicit File(const std::string& path)
      : path_(path), descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    struct stat status = {};
    if (descriptor_ < 0 || fstat(descriptor_, &status) != 0) {
      const int reason = errno;
      Close();
      errno = reason;
      throw Error::FromErrno("read", path);
    }
    size_ = S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
  }
  ~File() { Close(); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  std::uint64_t size() const { return size_; }

  /// The bytes from `offset` on: `length`, or as many as there are.
  Bytes Read(std::uint64_t offset, std::uint64_t length) const {
    if (offset >= size_) {
      return Bytes({});
    }
    std::string bytes(static_cast<std::size_t>(std::min(length, size_ - offset)), '\0');
    std::size_t done = 0;
    while (done < bytes.size()) {
      const ssize_t count =
          pread(descriptor_, &bytes[done], bytes.size() - done, static_cast<off_t>(offset + done));
      if (count < 0) {
        throw Error::FromErrno("read", path_);
      }
      if (count == 0) {
        break;  // cut meanwhile
      }
      done += static_cast<std::size_t>(count);
    }
    bytes.resize(done);
    return Bytes(std::move(bytes));
  }

 private:
  void Close() const {
    if (descriptor_ >= 0) {
      close(descriptor_);
    }
  }

  std::string path_;
  int descriptor_;
  std::uint64_t size_ = 0;
};

/// Where the directory lies, by the end record.
struct End {
  std::uint64_t position = 0;  ///< Of the record that counts.
  std::uint64_t end = 0;       ///< Of the archive.
  std::uint64_t entryCount = 0;
  std::uint64_t directorySize = 0;
  std::uint64_t directoryOffset = 0;
};

/// The last place in the file's tail with the record `signature`, as the installer's reader
/// searches it: whatever follows.
std::optional<std::uint64_t> FindLast(const File& file, std::uint32_t signature) {
  const std::uint64_t start = file.size() - std::min<std::uint64_t>(file.size(), kSearchedTail);
  const Bytes tail = file.Read(start, kSearchedTail);
  for (std::size_t i = tail.size(); i-- > 0;) {
    if (tail.At32(i) == signature) {
      return start + i;
    }
  }
  return std::nullopt;
}

/// Puts in `end` what its 64-bit form says, where there is one.
void TakeEnd64(const File& file, End& end) {
  const auto locator = FindLast(file, kLocator64Signature);
  if (!locator) {
    return;
  }
  const std::uint64_t position = file.Read(*locator, kLocator64Size).At64(8);
  const Bytes record = file.Read(position, kEnd64Size);
  if (record.size() == kEnd64Size && record.At32(0) == kEnd64Signature) {
    end.position = position;
    end.entryCount = record.At64(32);
    end.directorySize = record.At64(40);
    end.directoryOffset = record.At64(48);
  }
}

std::optional<End> FindEnd(const File& file) {
  const auto position = FindLast(file, kEndSignature);
  if (!position) {
    return std::nullopt;
  }
  const Bytes record = file.Read(*position, kEndSize);
  End end;
  end.position = *position;
  end.end = *position + kEndSize + record.At16(20);
  end.entryCount = record.At16(10);
  end.directorySize = record.At32(12);
  end.directoryOffset = record.At32(16);
  TakeEnd64(file, end);
  const bool fits =
      end.directorySize <= end.position && end.directoryOffset <= end.position - end.directorySize;
  return fits ? std::optional(end) : std::nullopt;
}

/// Takes from the 64-bit extra field what `header` and `offset` say is there, in their order.
// NOLINTNEXTLINE(readability-non-const-parameter): `offset` is written to, through `value`
void TakeExtra64(const Bytes& extra, ArchiveLayout::Header& header, std::uint64_t* offset) {
  for (std::size_t field = 0; field + 4 <= extra.size();) {
    std::size_t next = field + 4;
    if (extra.At16(field) == 1) {
      for (std::uint64_t* value : {&header.size, &header.compressedSize, offset}) {
        if (value != nullptr && *value == kIn64Bits) {
          *value = extra.At64(next);
          next += 8;
        }
      }
      return;
    }
    field = next + extra.At16(field + 2);
  }
}

/// The five fields that a local and a central header share, from `start` on.
ArchiveLayout::Header TakeHeader(const Bytes& bytes, std::size_t start) {
  ArchiveLayout::Header header;
  header.flags = bytes.At16(start);
  header.method = bytes.At16(start + 2);
  header.crc32 = bytes.At32(start + 8);
  header.compressedSize = bytes.At32(start + 12);
  header.size = bytes.At32(start + 16);
  return header;
}

/// Reads the local header of `entry` and with it where its data ends.
void ReadLocal(const File& file, ArchiveLayout::Entry& entry) {
  entry.end = entry.begin;
  // Most names and extra fields fit; a second read is for those that do not.
  constexpr std::size_t kUsual = kLocalSize + 160;
  Bytes bytes = file.Read(entry.begin, kUsual);
  if (bytes.size() < kLocalSize || bytes.At32(0) != kLocalSignature) {
    return;
  }
  const std::size_t nameLength = bytes.At16(26);
  const std::size_t extraLength = bytes.At16(28);
  const std::size_t length = kLocalSize + nameLength + extraLength;
  if (length > kUsual) {
    bytes = file.Read(entry.begin, length);
  }
  ArchiveLayout::Header local = TakeHeader(bytes, 6);
  local.name = bytes.Text(kLocalSize, nameLength);
  TakeExtra64(Bytes(bytes.Text(kLocalSize + nameLength, extraLength)), local, nullptr);
  entry.local = std::move(local);
  entry.end = entry.begin + length;
  entry.end += std::min(entry.central.compressedSize, ~entry.end);
}

/// Reads the directory's entries until their number is reached or there is none.
void ReadDirectory(const File& file, const End& end, ArchiveLayout& layout) {
  const Bytes bytes = file.Read(layout.directoryBegin, end.directorySize);
  std::size_t next = 0;
  while (layout.entries.size() < end.entryCount && next + kCentralSize <= bytes.size() &&
         bytes.At32(next) == kCentralSignature) {
    const std::size_t nameLength = bytes.At16(next + 28);
    const std::size_t extraLength = bytes.At16(next + 30);
    const std::size_t extra = next + kCentralSize + nameLength;
    ArchiveLayout::Entry& entry = layout.entries.emplace_back();
    entry.central = TakeHeader(bytes, next + 8);
    entry.central.name = bytes.Text(next + kCentralSize, nameLength);
    std::uint64_t offset = bytes.At32(next + 42);
    TakeExtra64(Bytes(bytes.Text(extra, extraLength)), entry.central, &offset);
    entry.begin = offset + layout.leadingBytes;
    ReadLocal(file, entry);
    next = extra + extraLength + bytes.At16(next + 32);
  }
  layout.isDirectoryWhole = layout.entries.size() == end.entryCount && next == end.directorySize;
}

}  // namespace

std::optional<ArchiveLayout> ReadArchiveLayout(const std::string& path) {
  const File file(path);
  const auto end = FindEnd(file);
  if (!end) {
    return std::nullopt;
  }
  ArchiveLayout layout;
  layout.entryCount = end->entryCount;
  layout.leadingBytes = end->position - end->directorySize - end->directoryOffset;
  layout.trailingBytes = file.size() > end->end ? file.size() - end->end : 0;
  layout.missingBytes = file.size() < end->end ? end->end - file.size() : 0;
  layout.directoryBegin = end->directoryOffset + layout.leadingBytes;
  ReadDirectory(file, *end, layout);
  return layout;
}
