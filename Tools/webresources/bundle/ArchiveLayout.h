#ifndef TOOLS_WEBRESOURCES_BUNDLE_ARCHIVELAYOUT_H_
#define TOOLS_WEBRESOURCES_BUNDLE_ARCHIVELAYOUT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace webresources {

/// The positions of the parts of a zip file, and the defects that the installer's reader does not
/// show: shared bytes, and headers that contradict each other.
///
/// A damaged file has the parts that can be found. Memory grows with the number of entries. The
/// stated size of the directory never counts for more than the size of the file.
struct ArchiveLayout {
  /// One entry of the central directory.
  struct Entry {
    std::uint64_t begin = 0;       ///< Of the local header, in the file.
    std::uint64_t end = 0;         ///< Of the data; 0 without a local header.
    bool hasLocalHeader = false;   ///< Whether there is one where the directory says.
    std::uint8_t differences = 0;  ///< Of the two headers; see DifferingFields().
    std::uint8_t refusals = 0;     ///< See Refusals().

    /// The fields in which local and central header contradict each other, for people: "name,
    /// size". Nothing if there is none, or no local header.
    std::optional<std::string> DifferingFields() const;

    /// The reasons why other readers refuse the entry, for people. Nothing if there is none.
    std::optional<std::string> Refusals() const;
  };

  std::uint64_t leadingBytes = 0;    ///< Before the archive.
  std::uint64_t trailingBytes = 0;   ///< After the archive.
  std::uint64_t missingBytes = 0;    ///< Of the end record or the comment, at the end.
  std::uint64_t entryCount = 0;      ///< As stated in the end record.
  std::uint64_t directoryBegin = 0;  ///< In the file.
  bool isDirectoryWhole = false;     ///< The entries found are as many and as long as stated.
  std::vector<Entry> entries;        ///< As many as were found, at most `entryCount`.

  /// The indices of the entries whose data lies in bytes that an entry before them, or the
  /// archive's directory, occupies; in the order of their places in the file.
  std::vector<std::size_t> Overlapping() const;
};

/// Reads the layout of the file at `path`. Returns nothing if the file has no end record, or one
/// that contradicts the size of the file. Throws Error if the file cannot be read.
std::optional<ArchiveLayout> ReadArchiveLayout(const std::string& path);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_BUNDLE_ARCHIVELAYOUT_H_
