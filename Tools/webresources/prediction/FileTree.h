#ifndef TOOLS_WEBRESOURCES_PREDICTION_FILETREE_H_
#define TOOLS_WEBRESOURCES_PREDICTION_FILETREE_H_

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Sha256.h"
#include "prediction/Prediction.h"

namespace webresources {

/// One file, directory or other entry of a tree.
struct FileItem {
  enum class Type : std::uint8_t {
    Directory,
    File,   ///< A regular file.
    Other,  ///< A link, a FIFO or a device. A run makes no such entry.
  };

  std::string path;        ///< Relative to the top, without a trailing "/"; "." is the top itself.
  std::uint64_t size = 0;  ///< The size of a file in bytes.
  std::optional<Sha256::Digest> sha256;  ///< The digest of a file; absent if unknown.
  Type type = Type::Directory;
  std::optional<std::uint16_t> mode;   ///< The permission bits and the set-ID and sticky bits.
  std::optional<std::uint32_t> crc32;  ///< The checksum of a file; absent if unknown.
  std::optional<unsigned int> owner;   ///< The user's number; absent if not on a disk.
};

/// A tree of files: the top and all entries below, sorted by the bytes of the paths. The same model
/// serves a package, a directory on the disk and a receipt, so that Compare() compares any two. A
/// deque grows without copies of the items, and fits into memory that a prediction left.
using FileTree = std::deque<FileItem>;

/// The modes that a run sets under a umask of 022.
constexpr std::uint16_t kDirectoryMode = 0755;
constexpr std::uint16_t kFileMode = 0644;

/// Computes the SHA-256 digests of the entries of a package while Predict() reads them.
class EntryDigests {
 public:
  /// Returns the sink for Predict(). Requires: the object outlives the sink.
  ChunkSink Sink();

  /// Returns the digest of the data of the entry `index`. If no data of the entry was read, returns
  /// the digest of no bytes. Requires: the whole package has been read.
  Sha256::Digest Of(std::size_t index);

 private:
  void FinishCurrent();

  Sha256 hash_;
  std::optional<std::size_t> current_;  ///< The entry whose data is in `hash_`.
  /// Sorted by the index of the entry.
  std::deque<std::pair<std::size_t, Sha256::Digest>> digests_;
};

/// Returns the tree that a run makes from a package, with CRC-32 checksums and, if given,
/// `digests`. The modes are the modes under a umask of 022. The owners are absent.
FileTree TreeOf(const Prediction& prediction, EntryDigests* digests = nullptr);

enum class Checksum { Sha256, Crc32, None };

/// Returns the tree at the directory `directory`, with the requested checksum of each file, modes
/// and owners. If a tree is `expected`, only its files of the same size are read; the other files
/// have no checksum. No link is followed, and only regular files are opened. Omits entries that
/// disappear during the call. Throws Error if an entry cannot be read, or if the user stops the
/// command; see CatchInterruptions().
FileTree ReadTree(const std::string& directory, Checksum checksum,
                  const FileTree* expected = nullptr);

/// Returns the size of all files of `tree` together, in bytes.
std::uint64_t BytesOf(const FileTree& tree);

/// Returns the number of files of `tree`.
std::size_t FilesOf(const FileTree& tree);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_PREDICTION_FILETREE_H_
