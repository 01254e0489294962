#ifndef INCLUDE_PACKAGEREADER_H_
#define INCLUDE_PACKAGEREADER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

/// One entry of a package, as described by the central directory.
struct PackageEntry {
  /// The treatment of an entry by the extraction. Only the name of the entry decides.
  enum class Kind {
    Directory,    ///< The extraction makes a directory: the name ends in "/".
    File,         ///< The extraction writes a file.
    Unreadable,   ///< Skipped: the entry's record in the central directory cannot be read.
    NameEmpty,    ///< Skipped.
    NameTooLong,  ///< Skipped: the name has 512 bytes or more.
    ClimbsOut,    ///< Skipped: path traversal, a name that leads above the destination by "..".
  };

  Kind kind = Kind::Unreadable;
  const char* name = "";         ///< Up to the first zero byte. The reader owns the bytes.
  unsigned long nameLength = 0;  ///< The stored length in bytes.
  unsigned long flags = 0;
  unsigned long method = 0;
  unsigned long madeBy = 0;
  unsigned long externalAttributes = 0;
  std::uint32_t crc32 = 0;           ///< The stated checksum of the data.
  std::uint64_t compressedSize = 0;  ///< The stated size in bytes.
  std::uint64_t size = 0;            ///< The stated size in bytes, before compression.
};

/// The result of reading the data of an entry.
struct EntryData {
  enum class End {
    Unread,    ///< The data was not opened, or the caller closed the data early.
    Complete,  ///< The data has the stated size and checksum.
    Early,     ///< The data ended before the stated size.
    Damaged,   ///< A read failed.
    WrongCrc,  ///< The data has the stated size and another checksum.
  };

  bool isOpened = false;   ///< Whether Open() succeeded.
  std::uint64_t size = 0;  ///< The number of bytes that Read() has returned.
  End end = End::Unread;   ///< Final after Close().
};

/// Reads a package (a zip archive) entry by entry, in the order of its central directory.
///
///     PackageReader package(path);
///     while (package.Next()) {
///       if (package.entry().kind == PackageEntry::Kind::File && package.Open()) {
///         while (package.Read() > 0) { ... package.chunk() ... }
///         package.Close();
///       }
///     }
///
/// No other code reads with the zip library. Extraction, prediction and comparison read through
/// this class, so all three stop at the same errors. Reading ends after the entry count that the
/// archive states, or at the first entry that cannot be found. All entries share one buffer for
/// names and one buffer for data. No operation throws. Not thread-safe.
class PackageReader {
 public:
  static constexpr std::size_t kNameSize = 512;    ///< In bytes, with the terminating zero.
  static constexpr std::size_t kChunkSize = 8192;  ///< In bytes.

  /// Opens the archive at `path`. An interrupted open counts as a failure and is not repeated.
  explicit PackageReader(const std::string& path);

  /// Chooses the constructor below.
  struct Unlocked {};

  /// Opens the archive at `path`. Reads single bytes without a lock of the stream, as only the
  /// command does: the zip library reads each header in single bytes.
  PackageReader(const std::string& path, Unlocked unlocked);

  /// Returns whether the archive could be opened. If not, the package has no entries.
  bool IsOpen() const { return archive_ != nullptr; }

  /// Returns the number of entries that the archive states, or 0 if the number cannot be read. The
  /// first call of EntryCount() or Next() reads the number. The extraction makes its destination
  /// directory before the first call of Next().
  std::uint64_t EntryCount();

  /// Moves to the first entry at the first call, and to the next entry at each later call. Returns
  /// false after the last entry.
  bool Next();

  /// Returns the current entry. Valid until the next call of Next().
  const PackageEntry& entry() const { return entry_; }

  /// Opens the data of the current entry. Returns false on failure, for example if the compression
  /// method is not supported. After a success, the caller calls Close().
  bool Open();

  /// Reads the next bytes of the opened data, at most kChunkSize. Returns the number of bytes, 0
  /// at the end of the data, or a negative number on failure.
  int Read();

  /// Returns the bytes of the last Read(). Valid until the next Read().
  const char* chunk() const { return chunk_; }

  /// Makes each Read() fail while `isStopped` returns true. Each Read() calls `isStopped` once: a
  /// caller can count the calls. With this function, `webresources` stops in the middle of a large
  /// entry. Default: reading never stops, as in the installer.
  void StopWhen(std::function<bool()> isStopped) { isStopped_ = std::move(isStopped); }

  /// Closes the opened data.
  void Close();

  /// Returns the result of reading the current entry's data so far. Valid until the next call of
  /// Next() or Open().
  const EntryData& data() const { return data_; }

  /// Returns the kind of an entry with the zero-terminated `name` and the stored name length
  /// `length`. Never returns Unreadable. If `length` is kNameSize or more, the function does not
  /// read `name`, which may then lack a terminating zero.
  static PackageEntry::Kind KindOf(const char* name, unsigned long length);

 private:
  struct Closer {
    void operator()(void* archive) const;
  };

  void ReadEntry();

  std::unique_ptr<void, Closer> archive_;
  std::optional<std::uint64_t> count_;
  std::uint64_t visited_ = 0;
  std::function<bool()> isStopped_;
  PackageEntry entry_;
  EntryData data_;
  char name_[kNameSize] = {};
  char chunk_[kChunkSize] = {};
};

#endif  // INCLUDE_PACKAGEREADER_H_
