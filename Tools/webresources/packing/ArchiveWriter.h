#ifndef TOOLS_WEBRESOURCES_PACKING_ARCHIVEWRITER_H_
#define TOOLS_WEBRESOURCES_PACKING_ARCHIVEWRITER_H_

#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace webresources {

/// Writes a zip archive of less than 4 GiB. Its bytes depend on the names, the data and the time
/// that the caller gives, and on the version of zlib; on nothing else. Every operation throws Error
/// if it fails; the archive is then unusable, and the caller removes the file.
///
/// This is the only code that writes with the zip library.
class ArchiveWriter {
 public:
  struct Options {
    /// The time of all entries, since 1970 in UTC. The format rounds the time down to even seconds
    /// and holds 1980 to 2107 only.
    std::int64_t seconds = 0;

    /// Deflated data up to this size is kept in memory until it is written; larger data is deflated
    /// twice. The bytes of the archive do not depend on it.
    std::size_t spoolLimit = std::size_t{64} << 20U;

    /// Called after each chunk that is read, with the path of the file and the number of bytes.
    /// Every file is read twice. An exception ends the packing.
    std::function<void(const std::string& path, std::size_t bytes)> onRead = [](const std::string&,
                                                                                std::size_t) {};
  };

  /// Writes to the empty file that is open for reading and writing as `file`. The caller closes
  /// `file`, after the end of this object. `path` names the file in errors.
  ArchiveWriter(int file, std::string path, Options options);
  ~ArchiveWriter();
  ArchiveWriter(const ArchiveWriter&) = delete;
  ArchiveWriter& operator=(const ArchiveWriter&) = delete;

  /// Adds a directory. Requires: `name` ends in "/".
  void AddDirectory(const std::string& name);

  /// Adds the file at `path` under `name`, deflated or stored, whichever is smaller. Throws Error
  /// also if the file has not `size` bytes, or changes while it is read.
  void AddFile(const std::string& name, const std::string& path, std::uint64_t size);

  /// Completes the archive. Nothing can be added afterwards. Throws Error also if the archive has
  /// 4 GiB or more.
  void Close();

 private:
  struct Source;

  /// Deflates `source` into `spool_`, up to its limit. Returns the checksum of the data, and sets
  /// `deflatedSize`.
  uLong Measure(const Source& source, std::uint64_t& deflatedSize);

  /// Writes the data of the entry that is open while `source` is read again. Returns the checksum
  /// of the data.
  uLong ReadAgain(const Source& source, bool isDeflated, bool isSpooled);

  /// Reads `source` from its beginning and calls `take(bytes, length)` for each chunk, and with the
  /// length 0 at the end. Returns the checksum of the data.
  template <typename Take>
  uLong Read(const Source& source, Take take);

  /// Deflates `length` bytes, none at the end of the data, and calls `take(bytes, length)` for each
  /// chunk of the result.
  template <typename Take>
  void Deflate(const unsigned char* bytes, std::size_t length, Take take);

  /// Begins an entry whose data the caller has deflated, or leaves stored. `size` is that of the
  /// data before it is deflated.
  void OpenEntry(const std::string& name, unsigned long attributes, bool isDeflated,
                 std::uint64_t size);

  /// Adds finished data to the entry that is open.
  void WriteData(const unsigned char* bytes, std::size_t length);

  /// Ends the entry. `size` and `crc` are those of the data before it was deflated.
  void CloseEntry(std::uint64_t size, uLong crc);

  /// Puts the Zip64 records before the end of central directory record, whose number of entries
  /// has 16 bits. The zip library of Debian 12 does not.
  void AddZip64Records();

  /// Throws Error unless `isDone`, with the reason in errno.
  void Require(bool isDone) const;

  struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  struct CloseArchive {
    void operator()(void* archive) const;
  };

  const std::string path_;
  const Options options_;
  const unsigned long dosTime_;  ///< The time of all entries, in the format's form.
  const std::unique_ptr<std::FILE, CloseFile> file_;
  std::unique_ptr<void, CloseArchive> archive_;  ///< The zip library's; null once it is closed.
  std::uint64_t entryCount_ = 0;
  z_stream deflater_ = {};
  std::vector<unsigned char> input_;
  std::vector<unsigned char> output_;
  std::vector<unsigned char> spool_;  ///< Deflated data, up to the limit.
};

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_PACKING_ARCHIVEWRITER_H_
