#ifndef INCLUDE_PACKAGEREADER_H_
#define INCLUDE_PACKAGEREADER_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

/// One entry of a package, as the package's directory describes it.
struct PackageEntry {
  /// What the extraction does with an entry, judged by the name alone.
  enum class Kind {
    Directory,    ///< The name ends in "/": the extraction makes a directory.
    File,         ///< The extraction writes a file.
    Unreadable,   ///< Skipped: the directory record cannot be read; nothing else is known.
    NameEmpty,    ///< Skipped.
    NameTooLong,  ///< Skipped: 512 bytes or more.
    ClimbsOut,    ///< Skipped: ".." in the name leads above the destination.
  };

  Kind kind = Kind::Unreadable;
  const char* name = "";         ///< Up to its first zero byte; owned by the reader.
  unsigned long nameLength = 0;  ///< In bytes, as stored.
  unsigned long flags = 0;
  unsigned long method = 0;
  unsigned long madeBy = 0;
  unsigned long externalAttributes = 0;
  std::uint32_t crc32 = 0;           ///< Of the data, as the directory states it.
  std::uint64_t compressedSize = 0;  ///< In bytes.
  std::uint64_t size = 0;            ///< In bytes, before compression.
};

/// What came of reading an entry's data.
struct EntryData {
  enum class End {
    Unread,    ///< The data was not opened, or not read to its end.
    Complete,  ///< It has the size and the checksum that the directory states.
    Early,     ///< It ended before the size that the directory states.
    Damaged,   ///< Reading failed: what was read before that stays.
    WrongCrc,  ///< It has the stated size and another checksum.
  };

  bool isOpened = false;   ///< Whether Open() succeeded.
  std::uint64_t size = 0;  ///< How many bytes Read() returned.
  End end = End::Unread;   ///< Settled by Close().
};

/// Reads a package (a zip archive) entry by entry, in the order of its central directory.
///
///     PackageReader package(path);
///     while (package.Next()) {
///       if (package.entry().kind == PackageEntry::Kind::File && package.Open()) {
///         while (package.Read() > 0) { ... package.portion() ... }
///         package.Close();
///       }
///     }
///
/// This is the only code that reads with the zip library: all that extracts, predicts or compares a
/// package reads it through this class, and so fails at the same places. Reading stops at the
/// entry count that the archive states, or at the first entry that cannot be reached. Names are
/// read into a fixed buffer of 512 bytes, data in portions of 8,192 bytes; nothing else is
/// allocated per entry. No operation throws.
class PackageReader {
 public:
  static constexpr std::size_t kNameSize = 512;      ///< Bytes, with the terminating zero.
  static constexpr std::size_t kPortionSize = 8192;  ///< Bytes.

  /// Opens the archive at `path`, once: an open that is interrupted fails like every other one.
  explicit PackageReader(const std::string& path);

  /// Whether the archive could be opened. If not, it has no entries.
  bool IsOpen() const { return archive_ != nullptr; }

  /// The number of entries that the archive states; 0 if that cannot be read. The archive is asked
  /// at the first call of EntryCount() or Next(): the extraction makes its destination before.
  std::uint64_t EntryCount();

  /// Moves to the first entry, then to the next one at each call. Returns false after the last.
  bool Next();

  /// The current entry. Valid until the next call of Next().
  const PackageEntry& entry() const { return entry_; }

  /// Opens the current entry's data, which Close() must close. Returns false if it cannot be read,
  /// for example because its method is not supported.
  bool Open();

  /// Reads the next portion of the opened data. Returns its size in bytes, 0 at the end of the
  /// data, a negative number on an error.
  int Read();

  /// The bytes that the last Read() returned. Valid until the next Read().
  const char* portion() const { return portion_; }

  /// Makes each Read() fail from the moment that `isStopped` returns true. The installer never
  /// stops; the companion command does, also in the middle of a large entry.
  void StopWhen(bool (*isStopped)()) { isStopped_ = isStopped; }

  /// Closes the opened data.
  void Close();

  /// What came of reading the current entry's data so far. Valid until the next call of Next()
  /// or Open().
  const EntryData& data() const { return data_; }

  /// The kind of an entry whose stored name has `length` bytes. `name` is its zero-terminated text;
  /// it is not read if `length` does not fit the name buffer, because it then may be cut and lack
  /// its zero. Never returns Unreadable.
  static PackageEntry::Kind KindOf(const char* name, unsigned long length);

 private:
  struct Closer {
    void operator()(void* archive) const;
  };

  void ReadEntry();

  std::unique_ptr<void, Closer> archive_;
  std::optional<std::uint64_t> count_;
  std::uint64_t visited_ = 0;
  bool (*isStopped_)() = nullptr;
  PackageEntry entry_;
  EntryData data_;
  char name_[kNameSize] = {};
  char portion_[kPortionSize] = {};
};

#endif  // INCLUDE_PACKAGEREADER_H_
