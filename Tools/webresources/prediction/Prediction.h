#ifndef TOOLS_WEBRESOURCES_PREDICTION_PREDICTION_H_
#define TOOLS_WEBRESOURCES_PREDICTION_PREDICTION_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "PackageReader.h"

namespace webresources {

/// A tree of directories and files in memory. Resolves ".", "..", empty components and a trailing
/// "/" in paths as a POSIX file system does, and compares names by their bytes. The tree has no
/// links. Paths are relative to the root; a leading "/" is an empty component. The tree owns the
/// nodes.
class PredictedTree {
 public:
  /// The reason of a failed operation.
  enum class Failure : std::uint8_t {
    None,
    Missing,
    NotADirectory,
    IsADirectory,
    Exists,
    ComponentTooLong
  };

  struct Node;
  using Children = std::map<std::string, std::unique_ptr<Node>>;  // by name

  /// One directory or file.
  struct Node {
    bool isDirectory = true;
    bool hasEntry = false;               ///< A directory only: an entry has exactly this path.
    Node* parent = nullptr;              ///< The directory above; the root for the root.
    std::unique_ptr<Children> children;  ///< The entries of a directory. Null for a file.

    // The members of a file.
    std::optional<std::size_t> writer;  ///< The index of the entry with the data.
    std::uint64_t size = 0;             ///< In bytes.
    std::uint32_t crc32 = 0;            ///< The checksum of the data.
  };

  PredictedTree();

  const Node& root() const { return *root_; }

  /// Returns whether the tree has an entry at `path`.
  bool Exists(const std::string& path) const;

  /// Stores the node at `path` through `found`. Returns Failure::None, or the reason of the
  /// failure; `*found` is then unspecified.
  Failure Find(const std::string& path, Node** found) const;

  /// Makes the last component of `path` in an existing directory, as mkdir() does.
  Failure MakeDirectory(const std::string& path);

  /// Stores the file at `path` through `file`, and makes a missing file, as fopen() for writing
  /// does.
  Failure OpenFile(const std::string& path, Node** file);

 private:
  /// Adds a node for the last component of `path` to the directory before it.
  Failure Add(const std::string& path, bool isDirectory, Node** added);

  std::unique_ptr<Node> root_ = std::make_unique<Node>();
};

/// The treatment of one entry of a package by the installer.
struct EntryPrediction {
  enum class Action : std::uint8_t { MakeDirectory, WriteFile, Skip };

  using DataEnd = EntryData::End;

  // From the central directory of the package.

  PackageEntry::Kind kind = PackageEntry::Kind::Unreadable;
  bool isLink = false;               ///< A symbolic link, as Unix packers store it.
  std::uint16_t flags = 0;           ///< See IsEncrypted() and HasUtf8Flag().
  std::uint16_t method = 0;          ///< The method of compression.
  std::uint32_t nameLength = 0;      ///< The stored length in bytes.
  std::string name;                  ///< Up to the first zero byte, at most 511 bytes.
  std::uint64_t compressedSize = 0;  ///< In bytes.
  std::uint64_t statedSize = 0;      ///< In bytes.

  // The result of the installer.

  Action action = Action::Skip;
  /// The reason why the directory or file cannot be made. None after a success, or if the installer
  /// does not try.
  PredictedTree::Failure failure = PredictedTree::Failure::None;
  bool isOpened = false;                  ///< Whether the data of a file can be opened.
  bool isRepeated = false;                ///< An earlier entry makes the directory.
  DataEnd end = DataEnd::Unread;          ///< The end of the data of a file.
  std::uint64_t size = 0;                 ///< The number of bytes that can be read.
  std::optional<std::size_t> replacedBy;  ///< The index of a later entry that writes the same file.

  bool IsEncrypted() const { return (flags & 1U) != 0; }
  bool HasUtf8Flag() const { return (flags & 0x800U) != 0; }
};

/// The result of the extraction of a package into an empty directory, on a file system that
/// distinguishes names by their bytes.
struct Prediction {
  bool isOpened = false;         ///< If false, the installer treats the package as missing.
  std::uint64_t entryCount = 0;  ///< The number that the package states.
  /// Can have fewer than `entryCount` elements. A deque grows without copies of the elements.
  std::deque<EntryPrediction> entries;
  PredictedTree tree;
};

/// Receives each chunk of data in order, with the index of the entry.
using ChunkSink = std::function<void(std::size_t entry, const char* bytes, std::size_t length)>;

/// Predicts the result of the extraction of `package`. Reads the data of each entry once, and
/// passes the data to `sink`, if there is one. Damaged data is read again for the checksum, because
/// the package has no correct checksum for the readable bytes. Shows the progress as a part of
/// `bytes`, the size of all entries. Memory grows with the number of entries, not with their size.
/// Throws Error if the user stops the command; see CatchInterruptions(). Requires: no entry of
/// `package` has been read.
Prediction Predict(PackageReader& package, std::uint64_t bytes, const ChunkSink& sink = {});

/// Predicts the tree from the central directory of `package` alone. Reads no data: each file counts
/// as complete, and has the size in the central directory.
Prediction PredictOutline(PackageReader& package);

/// Predicts as Predict() does, while the installer's code extracts `package` to `directory`. The
/// sizes come from the extraction, and only damaged data is read again. The prediction decides
/// everything else itself. Throws Error if the directory cannot be made, or if the user stops the
/// command.
Prediction PredictAndExtract(PackageReader& package, std::uint64_t bytes,
                             const std::string& directory);

/// One directory or file of a predicted tree.
struct TreeItem {
  std::string path;  ///< Relative to the tree's root, without a trailing "/".
  const PredictedTree::Node* node;
};

using TreeVisitor = std::function<void(TreeItem&& item)>;

/// Passes all directories and files of `tree` except the root to `visitor`: a directory comes
/// before its entries. Throws Error if the user stops the command; see CatchInterruptions().
void ForEachItem(const PredictedTree& tree, const TreeVisitor& visitor);

/// Returns the items of ForEachItem(), sorted by the bytes of the paths. They point into `tree`.
std::vector<TreeItem> ItemsOf(const PredictedTree& tree);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_PREDICTION_PREDICTION_H_
