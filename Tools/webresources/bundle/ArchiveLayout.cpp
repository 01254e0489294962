#include "bundle/ArchiveLayout.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <initializer_list>
#include <numeric>

#include "Descriptor.h"
#include "Uninterrupted.h"
#include "support/Error.h"
#include "support/Progress.h"

namespace webresources {

namespace {

constexpr std::uint32_t kLocalSignature = 0x04034b50;
constexpr std::uint32_t kCentralSignature = 0x02014b50;
constexpr char kEndSignature[] = "PK\5\6";
constexpr std::uint32_t kEnd64Signature = 0x06064b50;
constexpr char kLocator64Signature[] = "PK\6\7";

constexpr std::size_t kLocalSize = 30;
constexpr std::size_t kCentralSize = 46;
constexpr std::size_t kEndSize = 22;
constexpr std::size_t kEnd64Size = 56;
constexpr std::size_t kLocator64Size = 20;

constexpr std::size_t kSearchedTail = 0xffff;
constexpr std::uint32_t kIn64Bits = 0xffffffff;

/// Bytes of a file, read as little-endian numbers. A number past the end of the bytes is 0.
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

/// A file that is open for reading at any offset.
class File {
 public:
  explicit File(const std::string& path)
      : path_(path), descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    struct stat status = {};
    if (!descriptor_ || fstat(*descriptor_, &status) != 0) {
      throw Error::FromErrno("read", path);
    }
    size_ = S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
  }

  const std::string& path() const { return path_; }
  std::uint64_t size() const { return size_; }

  /// Returns `length` bytes from `offset` on, or fewer bytes at the end.
  Bytes Read(std::uint64_t offset, std::uint64_t length) const {
    if (offset >= size_) {
      return Bytes({});
    }
    std::string bytes(static_cast<std::size_t>(std::min(length, size_ - offset)), '\0');
    const ssize_t count =
        ReadAt(*descriptor_, static_cast<off_t>(offset), bytes.data(), bytes.size());
    if (count < 0) {
      throw Error::FromErrno("read", path_);
    }
    // fewer if another process has truncated the file
    bytes.resize(static_cast<std::size_t>(count));
    return Bytes(std::move(bytes));
  }

 private:
  const std::string& path_;
  const Descriptor descriptor_;
  std::uint64_t size_ = 0;
};

/// A part of a file that is read in order and in chunks. The part may exceed the file.
class Stretch {
 public:
  Stretch(const File& file, std::uint64_t begin, std::uint64_t size)
      : file_(file), begin_(begin), size_(size) {}

  /// Returns `length` bytes from `offset` on, or fewer bytes at the end.
  Bytes Read(std::uint64_t offset, std::uint64_t length) {
    constexpr std::uint64_t kChunk = std::uint64_t{64} << 10U;
    length = std::min(length, size_ - std::min(offset, size_));
    if (offset < chunkBegin_ || offset + length > chunkBegin_ + chunk_.size()) {
      chunkBegin_ = offset;
      chunk_ = file_.Read(begin_ + offset, std::min(std::max(length, kChunk), size_ - offset));
    }
    return Bytes(chunk_.Text(static_cast<std::size_t>(offset - chunkBegin_),
                             static_cast<std::size_t>(length)));
  }

 private:
  const File& file_;
  const std::uint64_t begin_;
  const std::uint64_t size_;
  std::uint64_t chunkBegin_ = 0;
  Bytes chunk_{{}};
};

/// The position of the central directory, from the end of central directory record.
struct End {
  std::uint64_t position = 0;  ///< The position of the record, with Zip64 of the Zip64 record.
  std::uint64_t end = 0;       ///< The end of the archive.
  std::uint64_t entryCount = 0;
  std::uint64_t directorySize = 0;
  std::uint64_t directoryOffset = 0;
};

/// Returns the last position of the record `signature` in the tail of the file. The bytes after the
/// signature are not examined, as in the installer's reader.
std::optional<std::uint64_t> FindLast(const File& file, const char* signature) {
  const std::uint64_t start = file.size() - std::min<std::uint64_t>(file.size(), kSearchedTail);
  const std::size_t found = file.Read(start, kSearchedTail).Text(0, kSearchedTail).rfind(signature);
  return found == std::string::npos ? std::nullopt : std::optional(start + found);
}

/// Replaces the values of `end` by the values of the Zip64 record, if the file has this record.
void ReadEnd64(const File& file, End& end) {
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
  ReadEnd64(file, end);
  const bool fits =
      end.directorySize <= end.position && end.directoryOffset <= end.position - end.directorySize;
  return fits ? std::optional(end) : std::nullopt;
}

/// The fields of a local or central header.
struct Header {
  std::string name;
  unsigned int version = 0;  ///< The format's version that the entry needs.
  unsigned int flags = 0;
  unsigned int method = 0;
  std::uint32_t crc32 = 0;
  std::uint64_t compressedSize = 0;
  std::uint64_t size = 0;
  bool isExtraCut = false;    ///< An extra field ends early.
  bool isZip64Short = false;  ///< The Zip64 field lacks a required number.
};

/// Replaces the fields with the largest 32-bit value by the numbers of the Zip64 field in `extra`.
/// This field has the replaced numbers only, in this order. `offset` is null for a local header.
// NOLINTNEXTLINE(readability-non-const-parameter): `offset` is written to, through `value`
void ReadExtra64(const Bytes& extra, Header& header, std::uint64_t* offset) {
  for (std::size_t field = 0; field + 4 <= extra.size();) {
    std::size_t next = field + 4;
    const std::size_t end = next + extra.At16(field + 2);
    header.isExtraCut = end > extra.size();
    if (extra.At16(field) == 1) {
      for (std::uint64_t* value : {&header.size, &header.compressedSize, offset}) {
        if (value != nullptr && *value == kIn64Bits) {
          *value = extra.At64(next);
          next += 8;
        }
      }
      header.isZip64Short = next > end;
    }
    field = end;
  }
}

/// Returns the fields that a local and a central header share. They begin at `start`.
Header ReadHeader(const Bytes& bytes, std::size_t start) {
  Header header;
  header.version = bytes.At16(start) & 0xffU;  // the other byte is the operating system
  header.flags = bytes.At16(start + 2);
  header.method = bytes.At16(start + 4);
  header.crc32 = bytes.At32(start + 10);
  header.compressedSize = bytes.At32(start + 14);
  header.size = bytes.At32(start + 18);
  return header;
}

std::uint8_t BitsOf(std::initializer_list<bool> values) {
  unsigned int bits = 0;
  unsigned int bit = 1;
  for (const bool value : values) {
    bits |= value ? bit : 0;
    bit <<= 1U;
  }
  return static_cast<std::uint8_t>(bits);
}

/// Returns the names of the set bits. Returns nothing if no bit is set.
std::optional<std::string> NamesOf(unsigned int bits, std::initializer_list<const char*> names) {
  std::optional<std::string> found;
  for (const char* name : names) {
    if ((bits & 1U) != 0) {
      found = (found ? *found + ", " : "") + name;
    }
    bits >>= 1U;
  }
  return found;
}

/// Returns one bit for each field in which the two headers of an entry contradict each other.
std::uint8_t DifferencesOf(const Header& local, const Header& central) {
  // the sizes follow the data, and the local header may have 0
  constexpr unsigned int kSizesFollow = 8;
  constexpr unsigned int kMeaningful = 0x809;  // encrypted, sizes follow, UTF-8
  const bool follow = (local.flags & kSizesFollow) != 0;
  const auto differ = [follow](std::uint64_t inLocal, std::uint64_t inCentral) {
    return inLocal != inCentral && !(follow && inLocal == 0);
  };
  return BitsOf(
      {local.name != central.name, (local.flags & kMeaningful) != (central.flags & kMeaningful),
       local.method != central.method, differ(local.crc32, central.crc32),
       differ(local.compressedSize, central.compressedSize), differ(local.size, central.size)});
}

/// Returns one bit for each reason why other readers refuse an entry with `header`.
std::uint8_t RefusalsOf(const Header& header) {
  constexpr unsigned int kRefusedFlags = 0x60;  // patch data, strong encryption
  constexpr unsigned int kNewestVersion = 45;   // Zip64
  return BitsOf({header.isExtraCut, header.isZip64Short, (header.flags & kRefusedFlags) != 0,
                 header.version > kNewestVersion});
}

/// Reads the local header of `entry` at the known position, and computes the end of the data.
void ReadLocal(const File& file, const Header& central, ArchiveLayout::Entry& entry) {
  // Most names and extra fields fit. Longer names and fields need a second read.
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
  Header local = ReadHeader(bytes, 4);
  local.name = bytes.Text(kLocalSize, nameLength);
  ReadExtra64(Bytes(bytes.Text(kLocalSize + nameLength, extraLength)), local, nullptr);
  entry.hasLocalHeader = true;
  entry.differences = DifferencesOf(local, central);
  entry.refusals |= RefusalsOf(local);
  entry.end = entry.begin + length;
  // a sum beyond 64 bits becomes the largest number
  entry.end += std::min(central.compressedSize, ~entry.end);
}

/// Reads the entries of the central directory, up to the stated number or up to a damaged entry.
void ReadDirectory(const File& file, const End& end, ArchiveLayout& layout) {
  Stretch directory(file, layout.directoryBegin, end.directorySize);
  std::uint64_t next = 0;
  while (layout.entries.size() < end.entryCount) {
    ThrowIfInterrupted("read", file.path());
    const Bytes fixed = directory.Read(next, kCentralSize);
    if (fixed.size() < kCentralSize || fixed.At32(0) != kCentralSignature) {
      break;
    }
    const std::size_t nameLength = fixed.At16(28);
    const std::size_t extraLength = fixed.At16(30);
    const Bytes rest = directory.Read(next + kCentralSize, nameLength + extraLength);
    Header central = ReadHeader(fixed, 6);
    central.name = rest.Text(0, nameLength);
    std::uint64_t offset = fixed.At32(42);
    ReadExtra64(Bytes(rest.Text(nameLength, extraLength)), central, &offset);
    ArchiveLayout::Entry& entry = layout.entries.emplace_back();
    entry.begin = offset + layout.leadingBytes;
    entry.refusals = RefusalsOf(central);
    ReadLocal(file, central, entry);
    next += kCentralSize + nameLength + extraLength + fixed.At16(32);
  }
  layout.isDirectoryWhole = layout.entries.size() == end.entryCount && next == end.directorySize;
}

}  // namespace

std::optional<std::string> ArchiveLayout::Entry::DifferingFields() const {
  return NamesOf(differences, {"name", "flags", "method", "checksum", "compressed size", "size"});
}

std::optional<std::string> ArchiveLayout::Entry::Refusals() const {
  return NamesOf(refusals,
                 {"an extra field ends early", "the Zip64 field is too short",
                  "flag bit 5 or 6 is set", "the format's version that it needs is above 4.5"});
}

std::vector<std::size_t> ArchiveLayout::Overlapping() const {
  std::vector<std::size_t> inOrder(entries.size());
  std::iota(inOrder.begin(), inOrder.end(), 0U);
  std::stable_sort(inOrder.begin(), inOrder.end(), [this](std::size_t a, std::size_t b) {
    return entries[a].begin < entries[b].begin;
  });
  std::vector<std::size_t> overlapping;
  std::uint64_t free = 0;
  for (const std::size_t index : inOrder) {
    const Entry& entry = entries[index];
    if (entry.hasLocalHeader && (entry.begin < free || entry.end > directoryBegin)) {
      overlapping.push_back(index);
    }
    free = std::max(free, entry.end);
  }
  return overlapping;
}

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

}  // namespace webresources
