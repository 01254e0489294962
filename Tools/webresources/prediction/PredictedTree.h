#ifndef TOOLS_WEBRESOURCES_PREDICTION_PREDICTEDTREE_H_
#define TOOLS_WEBRESOURCES_PREDICTION_PREDICTEDTREE_H_

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

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

#endif  // TOOLS_WEBRESOURCES_PREDICTION_PREDICTEDTREE_H_
