#include "Prediction.h"

#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <set>

#include "DirectoryChain.h"

using Failure = PredictedTree::Failure;

namespace {

/// Makes the directory that an entry called `name` announces. Returns what stopped it, if anything.
Failure EnsureDirectoryExists(PredictedTree& tree, const std::string& name) {
  Failure failure = Failure::None;
  MakeDirectoryChain(
      name, [&](const char* path) { return tree.Exists(path); },
      [&](const char* path) {
        failure = tree.MakeDirectory(path);
        return failure == Failure::None;
      });
  return failure;
}

bool IsLink(const PackageEntry& entry) {
  constexpr unsigned long kUnix = 3;
  return entry.madeBy >> 8U == kUnix &&
         S_ISLNK(static_cast<mode_t>(entry.externalAttributes >> 16U));
}

/// What the package's directory says of its current entry.
EntryPrediction Describe(const PackageReader& package) {
  const PackageEntry& entry = package.entry();
  EntryPrediction prediction;
  prediction.kind = entry.kind;
  prediction.name = entry.name;
  prediction.nameLength = entry.nameLength;
  prediction.flags = entry.flags;
  prediction.method = entry.method;
  prediction.isLink = IsLink(entry);
  prediction.compressedSize = entry.compressedSize;
  prediction.statedSize = entry.size;
  prediction.position = package.Tell();
  return prediction;
}

class Predictor {
 public:
  Predictor(PackageReader& package, Prediction& prediction)
      : package_(package), prediction_(prediction) {}

  void PredictEntry() {
    EntryPrediction& entry = prediction_.entries.emplace_back(Describe(package_));
    if (entry.kind == PackageEntry::Kind::Directory) {
      PredictDirectory(entry);
    } else if (entry.kind == PackageEntry::Kind::File) {
      PredictFile(entry);
    }
  }

 private:
  void PredictDirectory(EntryPrediction& entry) {
    const Failure failure = EnsureDirectoryExists(prediction_.tree, entry.name);
    // "a//" and "a/./" are made on the way to a failure.
    if (prediction_.tree.Exists(entry.name)) {
      entry.action = EntryPrediction::Action::MakeDirectory;
      entry.isRepeated = !announced_.insert(entry.name).second;
    } else {
      entry.failure = failure;
    }
  }

  void PredictFile(EntryPrediction& entry) {
    entry.isOpened = package_.Open();
    if (!entry.isOpened) {
      return;
    }
    PredictedTree::Node* file = nullptr;
    entry.failure = prediction_.tree.OpenFile(entry.name, &file);
    const std::uint32_t crc = ReadData(entry);
    if (entry.failure == Failure::None) {
      entry.action = EntryPrediction::Action::WriteFile;
      Write(entry, crc, *file);
    }
  }

  /// Reads the data to its end, written or not, and returns its checksum.
  std::uint32_t ReadData(EntryPrediction& entry) {
    uLong crc = crc32(0, nullptr, 0);
    int count = 0;
    while ((count = package_.Read()) > 0) {
      const auto length = static_cast<unsigned int>(count);
      crc = crc32(crc, reinterpret_cast<const Bytef*>(package_.portion()), length);
      entry.size += length;
    }
    const bool isChecksumRight = package_.Close();
    if (count < 0) {
      entry.end = EntryPrediction::DataEnd::Damaged;
    } else if (entry.size != entry.statedSize) {
      entry.end = EntryPrediction::DataEnd::Early;
    } else if (!isChecksumRight) {
      entry.end = EntryPrediction::DataEnd::WrongCrc;
    }
    return static_cast<std::uint32_t>(crc);
  }

  void Write(const EntryPrediction& entry, std::uint32_t crc, PredictedTree::Node& file) {
    const std::size_t index = prediction_.entries.size() - 1;
    if (!written_.insert(&file).second) {
      prediction_.entries[file.writer].replacedBy = index;
    }
    file.writer = index;
    file.size = entry.size;
    file.crc32 = crc;
  }

  PackageReader& package_;
  Prediction& prediction_;
  std::set<const PredictedTree::Node*> written_;
  std::set<std::string> announced_;
};

void AddItems(const PredictedTree::Node& directory, const std::string& prefix,
              std::vector<TreeItem>& items) {
  for (const auto& [name, node] : directory.children) {
    items.push_back({prefix + name, node.get()});
    if (node->isDirectory) {
      AddItems(*node, prefix + name + "/", items);
    }
  }
}

}  // namespace

Prediction Predict(PackageReader& package) {
  Prediction prediction;
  prediction.isOpened = package.IsOpen();
  prediction.entryCount = package.EntryCount();
  Predictor predictor(package, prediction);
  while (package.Next()) {
    predictor.PredictEntry();
  }
  return prediction;
}

std::vector<TreeItem> ItemsOf(const PredictedTree& tree) {
  std::vector<TreeItem> items;
  AddItems(tree.root(), "", items);
  std::sort(items.begin(), items.end(),
            [](const TreeItem& a, const TreeItem& b) { return a.path < b.path; });
  return items;
}
