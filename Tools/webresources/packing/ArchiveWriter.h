#ifndef TOOLS_WEBRESOURCES_PACKING_ARCHIVEWRITER_H_
#define TOOLS_WEBRESOURCES_PACKING_ARCHIVEWRITER_H_

#include <zlib.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace webresources {

/// Writes a zip archive of less than 4 GiB. Its bytes depend on the names, the data and the time
/// that the caller gives, and on the version of zlib; on nothing else. Every operation throws Error
/// when it fails; the archive is then unusable, and the caller removes the file.
///
/// This is the only code that writes with the zip library.
class ArchiveWriter {
 public:
  /// Deflated data up to this size is kept in memory until it is written; larger data is made
  /// twice.
  static constexpr std::size_t kSpoolLimit = std::size_t{64} << 20U;

  /// Writes to the file at `path`, which is made or emptied. `seconds` is the time of all entries,
  /// since 1970 in UTC; the format rounds it down to even seconds and holds 1980 to 2107 only. The
  /// archive does not depend on `spoolLimit`, in bytes.
  ArchiveWriter(std::string path, std::int64_t seconds, std::size_t spoolLimit = kSpoolLimit);
  ~ArchiveWriter();
  ArchiveWriter(const ArchiveWriter&) = delete;
  ArchiveWriter& operator=(const ArchiveWriter&) = delete;

  /// Adds a directory. Requires: `name` ends in "/".
  void AddDirectory(const std::string& name);

  /// Adds the file at `path` under `name`, deflated or stored, whichever is smaller. Returns its
  /// size in bytes. Throws Error also if the file changes while it is read.
  std::uint64_t AddFile(const std::string& name, const std::string& path);

  /// Completes the archive and closes the file. Nothing can be added afterwards.
  void Close();

 private:
  class Source;
  struct Measure;

  /// Begins an entry whose data the caller has deflated, or leaves stored.
  void OpenEntry(const std::string& name, bool isDirectory, bool isDeflated);

  /// Adds finished data to the entry that is open.
  void WriteData(const void* bytes, std::size_t length);

  /// Ends the entry. `size` and `crc` are those of the data before it was deflated.
  void CloseEntry(std::uint64_t size, std::uint32_t crc);

  /// Deflates what is left of `source` and calls `sink(bytes, length)` for each portion.
  template <typename Sink>
  void Deflate(Source& source, Sink sink);

  /// Deflates `source` into `spool_`, up to its limit, and returns the sizes and the checksum.
  Measure MeasureAndSpool(Source& source);

  /// Throws Error unless `isDone`, with the reason in errno.
  void Require(bool isDone) const;

  struct CloseArchive {
    void operator()(void* archive) const;
  };

  std::string path_;
  std::unique_ptr<void, CloseArchive> archive_;  ///< The zip library's; null once it is closed.
  unsigned long dosTime_;                        ///< The time of all entries, in the format's form.
  std::size_t spoolLimit_;
  z_stream deflater_ = {};
  std::vector<unsigned char> input_;
  std::vector<unsigned char> output_;
  std::vector<unsigned char> spool_;  ///< Deflated data, up to the limit.
};

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_PACKING_ARCHIVEWRITER_H_
