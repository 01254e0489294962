#ifndef TOOLS_WEBRESOURCES_PREDICTION_PREDICTEDTREE_H_
#define TOOLS_WEBRESOURCES_PREDICTION_PREDICTEDTREE_H_

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

/// A tree of directories and files in memory that takes paths as a POSIX file system does: "." and
/// "..", empty components, and a trailing "/" mean what they mean there, case and bytes are kept.
/// There are no links in it. Paths are relative to its root; a leading "/" is an empty component.
class PredictedTree {
 public:
  /// Why an operation cannot be done.
  enum class Failure { None, Missing, NotADirectory, IsADirectory, Exists, ComponentTooLong };

  struct Node {
    bool isDirectory = true;
    Node* parent = nullptr;                                 ///< The root is its own.
    std::map<std::string, std::unique_ptr<Node>> children;  ///< Of a directory, by name.

    // Of a file.
    std::optional<std::size_t> writer;  ///< The index of the entry whose data it holds.
    std::uint64_t size = 0;             ///< In bytes.
    std::uint32_t crc32 = 0;            ///< Of the data it holds.
  };

  PredictedTree() { root_->parent = root_.get(); }

  const Node& root() const { return *root_; }

  /// Whether `path` leads to anything.
  bool Exists(const std::string& path) const;

  /// What keeps `path` from leading to anything; None when it does. `found` is what it leads to.
  Failure Find(const std::string& path, Node** found) const;

  /// mkdir(): the last component of `path`, in a directory that is there.
  Failure MakeDirectory(const std::string& path);

  /// fopen() for writing: makes the file at `path`, or takes the one that is there.
  Failure OpenFile(const std::string& path, Node** file);

 private:
  /// Adds a node to the directory that `path` names it in.
  Failure Add(const std::string& path, bool isDirectory, Node** added);

  std::unique_ptr<Node> root_ = std::make_unique<Node>();
};

#endif  // TOOLS_WEBRESOURCES_PREDICTION_PREDICTEDTREE_H_
