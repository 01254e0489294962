#ifndef TOOLS_WEBRESOURCES_PACKING_ARCHIVEWRITER_H_
#define TOOLS_WEBRESOURCES_PACKING_ARCHIVEWRITER_H_

#include <zlib.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// Writes a zip archive that depends on nothing but the names, the data and the time it is given
/// (and on the version of zlib), of less than 4 GiB. Each operation throws Error when it fails.
class ArchiveWriter {
 public:
  /// Writes to `path`, which is made or emptied. `seconds`: the time of all entries, since 1970 in
  /// UTC; taken to the even seconds from 1980 to 2107 that the format has.
  ArchiveWriter(std::string path, std::int64_t seconds);
  ~ArchiveWriter();
  ArchiveWriter(const ArchiveWriter&) = delete;
  ArchiveWriter& operator=(const ArchiveWriter&) = delete;

  /// `name` ends in "/".
  void AddDirectory(const std::string& name);

  /// Adds the file at `path`, deflated or stored, whichever is smaller. Returns its size.
  std::uint64_t AddFile(const std::string& name, const std::string& path);

  /// Completes the archive.
  void Close();

 private:
  class Source;
  struct Measure;

  void OpenEntry(const std::string& name, bool isDirectory, bool isDeflated);
  void WriteData(const void* bytes, std::size_t length);
  void CloseEntry(std::uint64_t size, std::uint32_t crc);
  template <typename Sink>
  void Deflate(Source& source, Sink sink);
  Measure MeasureAndSpool(Source& source);
  void Require(bool isDone) const;

  std::string path_;
  void* archive_;
  unsigned long dosTime_;
  z_stream deflater_ = {};
  std::vector<unsigned char> input_;
  std::vector<unsigned char> output_;
  std::vector<unsigned char> spool_;  ///< Deflated data that did not exceed the limit.
};

#endif  // TOOLS_WEBRESOURCES_PACKING_ARCHIVEWRITER_H_
