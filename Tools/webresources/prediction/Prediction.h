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

/// A tree of directories and files in memory that resolves paths as a POSIX file system does: ".",
/// "..", empty components and a trailing "/" mean the same, and names are compared by their bytes.
/// It has no links. Paths are relative to its root; a leading "/" is an empty component. The nodes
/// belong to the tree and live as long as it does.
class PredictedTree {
 public:
  /// Why an operation cannot be done.
  enum class Failure { None, Missing, NotADirectory, IsADirectory, Exists, ComponentTooLong };

  /// One directory or file.
  struct Node {
    bool isDirectory = true;
    bool hasEntry = false;   ///< Of a directory: an entry makes it, not only a longer path.
    Node* parent = nullptr;  ///< The directory; the root's is itself.
    std::map<std::string, std::unique_ptr<Node>> children;  ///< Of a directory, by name.

    // Of a file.
    std::optional<std::size_t> writer;  ///< The index of the entry whose data it holds.
    std::uint64_t size = 0;             ///< In bytes.
    std::uint32_t crc32 = 0;            ///< Of the data it holds.
  };

  PredictedTree() { root_->parent = root_.get(); }

  const Node& root() const { return *root_; }

  /// Whether there is anything at `path`.
  bool Exists(const std::string& path) const;

  /// Stores the node at `path` through `found`. Returns None, or why there is none; `found` is then
  /// not meaningful.
  Failure Find(const std::string& path, Node** found) const;

  /// Does what mkdir() does: makes the last component of `path` in an existing directory.
  Failure MakeDirectory(const std::string& path);

  /// Does what fopen() for writing does: stores the file at `path`, which is made if it does not
  /// exist, through `file`.
  Failure OpenFile(const std::string& path, Node** file);

 private:
  /// Adds a node for the last component of `path` to the directory before it.
  Failure Add(const std::string& path, bool isDirectory, Node** added);

  std::unique_ptr<Node> root_ = std::make_unique<Node>();
};

/// What the installer will do with one entry of a package.
struct EntryPrediction {
  enum class Action { MakeDirectory, WriteFile, Skip };

  using DataEnd = EntryData::End;

  // What the package's directory says.

  PackageEntry::Kind kind = PackageEntry::Kind::Unreadable;
  bool isLink = false;               ///< A symbolic link, as Unix packers store it.
  std::uint16_t flags = 0;           ///< Of the format: see IsEncrypted() and HasUtf8Flag().
  std::uint16_t method = 0;          ///< Of compression.
  std::uint32_t nameLength = 0;      ///< In bytes, as stored.
  std::string name;                  ///< Up to its first zero byte, and to 511 bytes.
  std::uint64_t compressedSize = 0;  ///< In bytes.
  std::uint64_t statedSize = 0;      ///< In bytes.

  // What the installer does.

  Action action = Action::Skip;
  /// Why a directory or file cannot be made. None if it can, or if the installer does not try.
  PredictedTree::Failure failure = PredictedTree::Failure::None;
  DataEnd end = DataEnd::Unread;          ///< How the data of a file ends.
  bool isOpened = false;                  ///< Whether the data of a file can be opened.
  bool isRepeated = false;                ///< The directory was announced before.
  std::uint64_t size = 0;                 ///< How many bytes of the data can be read.
  std::optional<std::size_t> replacedBy;  ///< The index of a later entry that writes the same file.

  bool IsEncrypted() const { return (flags & 1U) != 0; }
  bool HasUtf8Flag() const { return (flags & 0x800U) != 0; }
};

/// What the installer will leave of a package in an empty directory, on a file system that tells
/// names apart by their bytes.
struct Prediction {
  bool isOpened = false;                ///< If false, the installer treats the package as missing.
  std::uint64_t entryCount = 0;         ///< As the package states it.
  std::deque<EntryPrediction> entries;  ///< May be fewer than stated. Grows without being copied.
  PredictedTree tree;
};

/// Is given each portion of data that is read, in order, with the index of its entry.
using PortionSink = std::function<void(std::size_t entry, const char* bytes, std::size_t length)>;

/// Predicts what the installer will leave of `package`, which must be at its beginning. Reads the
/// data of each entry once and passes it to `sink`, if there is one; an entry whose data is damaged
/// is read a second time, for its checksum. The progress is shown as a part of `bytes`, which the
/// entries hold together. Memory grows with the number of entries, not with their size. Throws
/// Error if the user stops the command; see CatchInterruptions().
Prediction Predict(PackageReader& package, std::uint64_t bytes, const PortionSink& sink = {});

/// Predicts the tree from the directory of `package` alone: reads no data and takes each file for
/// complete, with the size that the directory states.
Prediction PredictOutline(PackageReader& package);

/// Does the same while the installer extracts `package` to `directory`. Data that the extraction
/// reads is not read again: the prediction takes its size and checksum from there and decides
/// everything else for itself. Throws Error if the directory cannot be made, or as Predict() does.
Prediction PredictAndExtract(PackageReader& package, std::uint64_t bytes,
                             const std::string& directory);

/// One directory or file of a predicted tree.
struct TreeItem {
  std::string path;  ///< Relative to the tree's root, without a trailing "/".
  const PredictedTree::Node* node;
};

/// All directories and files of `tree` except its root, by path in the order of bytes. They point
/// into `tree`.
std::vector<TreeItem> ItemsOf(const PredictedTree& tree);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_PREDICTION_PREDICTION_H_
