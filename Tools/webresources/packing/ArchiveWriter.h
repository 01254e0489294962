#ifndef TOOLS_WEBRESOURCES_PACKING_ARCHIVEWRITER_H_
#define TOOLS_WEBRESOURCES_PACKING_ARCHIVEWRITER_H_

#include <zlib.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace webresources {

/// Writes a zip archive of less than 4 GiB. The bytes depend only on the names, the data and the
/// time that the caller gives, and on the version of zlib. Every operation throws Error on failure.
/// The archive is then unusable, and the caller removes the file.
class ArchiveWriter {
 public:
  struct Options {
    /// The time of all entries, in seconds since 1970 in UTC. The format has only even seconds: a
    /// time is rounded down. A time outside the years 1980 to 2107 becomes the first or the last
    /// time of the format.
    std::int64_t seconds = 0;

    /// Called for each chunk that is read, with the path of the file and the number of bytes. Every
    /// file is read twice. An exception of `onRead` ends the packing.
    std::function<void(const std::string& path, std::size_t bytes)> onRead = [](const std::string&,
                                                                                std::size_t) {};
  };

  /// Writes to the file that is open for writing as `file`, from the current position on. The
  /// caller closes `file` after the end of this object. `path` names the file in errors.
  ArchiveWriter(int file, std::string path, Options options);
  ~ArchiveWriter();
  ArchiveWriter(const ArchiveWriter&) = delete;
  ArchiveWriter& operator=(const ArchiveWriter&) = delete;

  /// Adds a directory. Requires: `name` ends in "/".
  void AddDirectory(const std::string& name);

  /// Adds the file at `path` under `name`, deflated or stored, whichever is smaller. Throws Error
  /// also if the file has another size than `size`, or changes during the call.
  void AddFile(const std::string& name, const std::string& path, std::uint64_t size);

  /// Completes the archive. Nothing can be added afterwards. Throws Error also if the archive has
  /// 4 GiB or more.
  void Close();

 private:
  struct Source;
  struct Entry;

  /// Reads `source` from the beginning, and calls `take(bytes, length)` for each chunk. Returns the
  /// checksum of the data.
  template <typename Take>
  std::uint32_t Read(const Source& source, Take take) const;

  /// Deflates `length` bytes and appends the result. The length 0 ends the data.
  void Deflate(const char* bytes, std::size_t length);

  void AddToDirectory(const Entry& entry);
  void Append(std::string_view bytes);
  /// The next Append() writes at `position`, over the bytes there.
  void GoBackTo(std::uint64_t position);
  /// Throws Error with the reason in errno if `isDone` is false.
  void Require(bool isDone) const;

  const int file_;
  const std::string path_;
  const Options options_;
  const unsigned int time_;     ///< The time of all entries, in the form of DOS.
  std::uint64_t position_ = 0;  ///< The end of the archive so far, in the file.
  std::string directory_;       ///< The central headers of the entries.
  std::uint64_t entryCount_ = 0;
  z_stream deflater_ = {};
  std::vector<char> output_;
};

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_PACKING_ARCHIVEWRITER_H_
