#ifndef TOOLS_WEBRESOURCES_PREDICTION_PREDICTION_H_
#define TOOLS_WEBRESOURCES_PREDICTION_PREDICTION_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "PackageReader.h"
#include "PredictedTree.h"

/// What the installer will do with one entry of a package.
struct EntryPrediction {
  enum class Action { MakeDirectory, WriteFile, Skip };

  /// How the entry's data ends.
  enum class DataEnd {
    Complete,
    Early,     ///< Before the size that the package states.
    Damaged,   ///< By an error: what was read before it stays.
    WrongCrc,  ///< Complete, but with another checksum than the package states.
  };

  // What the package's directory says.

  PackageEntry::Kind kind = PackageEntry::Kind::Unreadable;
  std::string name;              ///< Up to its first zero byte, and to 511 bytes.
  unsigned long nameLength = 0;  ///< In bytes, as stored.
  unsigned long flags = 0;
  unsigned long method = 0;
  bool isLink = false;               ///< It stands for a symbolic link, as Unix packers store it.
  std::uint64_t compressedSize = 0;  ///< In bytes.
  std::uint64_t statedSize = 0;      ///< In bytes.
  PackageReader::Position position;

  // What the installer does.

  Action action = Action::Skip;
  bool isOpened = false;  ///< Whether the data of a file can be opened.
  /// Why a directory or file cannot be made. None if it can, or if the installer does not try.
  PredictedTree::Failure failure = PredictedTree::Failure::None;
  DataEnd end = DataEnd::Complete;
  std::uint64_t size = 0;                 ///< How many bytes of the data can be read.
  std::optional<std::size_t> replacedBy;  ///< The index of a later entry that writes the same file.
  bool isRepeated = false;                ///< The directory was announced before.

  bool IsEncrypted() const { return (flags & 1U) != 0; }
  bool HasUtf8Flag() const { return (flags & 0x800U) != 0; }
};

/// What the installer will leave of a package in an empty directory, on a file system that tells
/// names apart by their bytes.
struct Prediction {
  bool isOpened = false;                 ///< If false, the installer treats the package as missing.
  std::uint64_t entryCount = 0;          ///< As the package states it.
  std::vector<EntryPrediction> entries;  ///< May be fewer than stated.
  PredictedTree tree;
};

/// Predicts what the installer will leave of `package`, which must be at its beginning. Reads the
/// data of each entry once. Memory grows with the number of entries, not with their size.
Prediction Predict(PackageReader& package);

/// One directory or file of a predicted tree.
struct TreeItem {
  std::string path;  ///< Relative to the tree's root, without a trailing "/".
  const PredictedTree::Node* node;
};

/// All directories and files of `tree` except its root, by path in the order of bytes. They point
/// into `tree`.
std::vector<TreeItem> ItemsOf(const PredictedTree& tree);

#endif  // TOOLS_WEBRESOURCES_PREDICTION_PREDICTION_H_
