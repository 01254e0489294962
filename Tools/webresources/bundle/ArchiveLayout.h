#ifndef TOOLS_WEBRESOURCES_BUNDLE_ARCHIVELAYOUT_H_
#define TOOLS_WEBRESOURCES_BUNDLE_ARCHIVELAYOUT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace webresources {

/// The positions of the parts of a zip file, and two kinds of defects that the installer's reader
/// does not show: shared bytes, and headers that contradict each other.
///
/// For a damaged file, the layout has the parts that can be found. Memory grows with the number of
/// found entries, not with the stated number.
struct ArchiveLayout {
  /// One entry of the central directory.
  struct Entry {
    std::uint64_t begin = 0;       ///< The position of the local header.
    std::uint64_t end = 0;         ///< The position after the data; 0 without a local header.
    bool hasLocalHeader = false;   ///< The header is at the stated position.
    std::uint8_t differences = 0;  ///< Bits; see DifferingFields().
    std::uint8_t refusals = 0;     ///< Bits; see Refusals().

    /// Returns the fields in which local and central header contradict each other, for people:
    /// "name, size". Returns nothing if no field differs or the local header is missing.
    std::optional<std::string> DifferingFields() const;

    /// Returns the reasons why other readers refuse the entry, for people. Returns nothing if there
    /// is no reason.
    std::optional<std::string> Refusals() const;
  };

  std::uint64_t leadingBytes = 0;    ///< The number of bytes before the archive.
  std::uint64_t trailingBytes = 0;   ///< The number of bytes after the archive.
  std::uint64_t missingBytes = 0;    ///< The number of bytes that the end of the archive lacks.
  std::uint64_t entryCount = 0;      ///< The stated number of entries.
  std::uint64_t directoryBegin = 0;  ///< The position of the central directory.
  bool isDirectoryWhole = false;     ///< Number and size of the entries are as stated.
  std::vector<Entry> entries;        ///< The found entries, at most `entryCount`.

  /// Returns the indices of the entries that share bytes with an earlier entry or with the central
  /// directory, in the order of their positions in the file.
  std::vector<std::size_t> Overlapping() const;
};

/// Reads the layout of the file at `path`. Returns nothing if the file has no end of central
/// directory record, or if the record contradicts the size of the file. Throws Error if the file
/// cannot be read.
std::optional<ArchiveLayout> ReadArchiveLayout(const std::string& path);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_BUNDLE_ARCHIVELAYOUT_H_
