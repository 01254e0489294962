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
/// The tree has no links. Paths are relative to the root; a leading "/" is an empty component. The
/// nodes belong to the tree and live as long.
class PredictedTree {
 public:
  /// Why an operation cannot be done.
  enum class Failure { None, Missing, NotADirectory, IsADirectory, Exists, ComponentTooLong };

  /// One directory or file.
  struct Node {
    bool isDirectory = true;
    bool hasEntry = false;   ///< Of a directory: an entry names exactly this path.
    Node* parent = nullptr;  ///< The directory; the root's is itself.
    std::map<std::string, std::unique_ptr<Node>> children;  ///< Of a directory, by name.

    // Of a file.
    std::optional<std::size_t> writer;  ///< The index of the entry with the data.
    std::uint64_t size = 0;             ///< In bytes.
    std::uint32_t crc32 = 0;            ///< Of the data.
  };

  PredictedTree() { root_->parent = root_.get(); }

  const Node& root() const { return *root_; }

  /// Whether there is anything at `path`.
  bool Exists(const std::string& path) const;

  /// Stores the node at `path` through `found`. Returns None, or why there is none; `found` is then
  /// not meaningful.
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
  enum class Action { MakeDirectory, WriteFile, Skip };

  using DataEnd = EntryData::End;

  // From the central directory of the package.

  PackageEntry::Kind kind = PackageEntry::Kind::Unreadable;
  bool isLink = false;               ///< A symbolic link, as Unix packers store it.
  std::uint16_t flags = 0;           ///< Of the format: see IsEncrypted() and HasUtf8Flag().
  std::uint16_t method = 0;          ///< Of compression.
  std::uint32_t nameLength = 0;      ///< In bytes, as stored.
  std::string name;                  ///< Up to the first zero byte, at most 511 bytes.
  std::uint64_t compressedSize = 0;  ///< In bytes.
  std::uint64_t statedSize = 0;      ///< In bytes.

  // The result of the installer.

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

/// The result of the extraction of a package into an empty directory, on a file system that
/// distinguishes names by their bytes.
struct Prediction {
  bool isOpened = false;                ///< If false, the installer treats the package as missing.
  std::uint64_t entryCount = 0;         ///< As stated in the package.
  std::deque<EntryPrediction> entries;  ///< May be fewer than stated. Grows without being copied.
  PredictedTree tree;
};

/// Receives each chunk of data in order, with the index of the entry.
using PortionSink = std::function<void(std::size_t entry, const char* bytes, std::size_t length)>;

/// Predicts the result of the extraction of `package`. Reads the data of each entry once, and
/// passes the data to `sink`, if there is one. Damaged data is read a second time, for the
/// checksum. Shows the progress as a part of `bytes`, the size of all entries. Memory grows with
/// the number of entries, not with their size. Throws Error if the user stops the command; see
/// CatchInterruptions(). Requires: no entry of `package` has been read.
Prediction Predict(PackageReader& package, std::uint64_t bytes, const PortionSink& sink = {});

/// Predicts the tree from the directory of `package` alone: reads no data and takes each file for
/// complete, with the size that the directory states.
Prediction PredictOutline(PackageReader& package);

/// Does the same while the installer extracts `package` to `directory`. Data that the extraction
/// reads is not read again: the prediction takes size and checksum from there and decides the rest
/// independently. Throws Error if the directory cannot be made, or as Predict() does.
Prediction PredictAndExtract(PackageReader& package, std::uint64_t bytes,
                             const std::string& directory);

/// One directory or file of a predicted tree.
struct TreeItem {
  std::string path;  ///< Relative to the tree's root, without a trailing "/".
  const PredictedTree::Node* node;
};

/// Returns all directories and files of `tree` except the root, sorted by the bytes of the paths.
/// The items point into `tree`.
std::vector<TreeItem> ItemsOf(const PredictedTree& tree);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_PREDICTION_PREDICTION_H_
