#ifndef TOOLS_WEBRESOURCES_PREDICTION_H_
#define TOOLS_WEBRESOURCES_PREDICTION_H_

#include <optional>
#include <string>
#include <vector>

#include "InstallerUtils.h"
#include "Package.h"
#include "VirtualTree.h"

/// What the installer will do with one entry.
struct EntryPrediction {
  enum class Action { MakeDirectory, WriteFile, Skip };
  enum class DataEnd {
    Complete,
    Early,     ///< Before the size that the package gives.
    Damaged,   ///< By an error: what was read before it stays.
    WrongCrc,  ///< Complete, but of another checksum.
  };

  PackageEntry entry;
  Package::Position position = {};
  InstallerUtils::EntryKind kind = InstallerUtils::EntryKind::File;
  Action action = Action::Skip;
  bool isOpened = false;  ///< Of a file: false when the installer cannot open it.
  /// Why a directory or file is not made; None when it is, or when it does not come to that.
  VirtualTree::Failure failure = VirtualTree::Failure::None;
  DataEnd end = DataEnd::Complete;
  std::uint64_t size = 0;                 ///< How many bytes can be read of it.
  std::optional<std::size_t> replacedBy;  ///< The later entry that writes the same file.
  bool isRepeated = false;                ///< An announcement of a directory announced before.
};

/// What the installer will leave of a package in a fresh directory. The package's data is really
/// read for it; memory goes with the number of entries, not with their size.
///
/// The tree is that of a file system which tells names apart by their bytes.
struct Prediction {
  bool isOpened = false;         ///< False: the installer takes the package for missing.
  std::uint64_t entryCount = 0;  ///< As the package says; entries may be fewer.
  std::vector<EntryPrediction> entries;
  VirtualTree tree;
};

Prediction Predict(Package& package);

/// All directories and files of a predicted tree, without its root, by path in the order of bytes.
struct TreeItem {
  std::string path;
  const VirtualTree::Node* node;
};
std::vector<TreeItem> ItemsOf(const VirtualTree& tree);

#endif  // TOOLS_WEBRESOURCES_PREDICTION_H_
