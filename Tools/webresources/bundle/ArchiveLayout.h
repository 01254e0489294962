#ifndef TOOLS_WEBRESOURCES_BUNDLE_ARCHIVELAYOUT_H_
#define TOOLS_WEBRESOURCES_BUNDLE_ARCHIVELAYOUT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// The bytes of a zip file as they lie there, for what the reader's library does not show: where
/// entries begin and end, and what stands in their local headers.
///
/// Damaged files give what can be made out of them. Memory goes with the size of the file's
/// directory, which is checked against the size of the file.
struct ArchiveLayout {
  /// What an entry's header, local or central, says of it.
  struct Header {
    std::string name;
    unsigned int flags = 0;
    unsigned int method = 0;
    std::uint32_t crc32 = 0;
    std::uint64_t compressedSize = 0;
    std::uint64_t size = 0;
  };

  struct Entry {
    Header central;
    std::optional<Header> local;  ///< Nothing when there is none where it should be.
    std::uint64_t begin = 0;      ///< Of the local header, in the file.
    std::uint64_t end = 0;        ///< Of the data.
  };

  std::uint64_t leadingBytes = 0;   ///< Before the archive.
  std::uint64_t trailingBytes = 0;  ///< After it.
  std::uint64_t missingBytes = 0;   ///< Of the end record and its comment, at the file's end.
  std::uint64_t entryCount = 0;     ///< As the end record says.
  std::uint64_t directoryBegin = 0;
  bool isDirectoryWhole = false;  ///< The entries found are as many and as long as the end says.
  std::vector<Entry> entries;
};

/// Nothing when the file at `path` has no end record, or one that cannot be right. Throws Error
/// when the file cannot be read.
std::optional<ArchiveLayout> ReadArchiveLayout(const std::string& path);

#endif  // TOOLS_WEBRESOURCES_BUNDLE_ARCHIVELAYOUT_H_
