#include "Prediction.h"

#include <zlib.h>

#include <algorithm>
#include <set>

using EntryKind = InstallerUtils::EntryKind;
using Failure = VirtualTree::Failure;

namespace {

/// The steps of OSUtils::EnsureDirectoryExists(), taken in `tree`. Its limit of 1,023 bytes is out
/// of reach: names have at most 511, and the directory extracted into is far shorter than that.
Failure EnsureDirectoryExists(VirtualTree& tree, std::string path) {
  if (tree.Exists(path)) {
    return Failure::None;
  }
  path.pop_back();  // the "/"
  for (std::size_t end = path.find('/'); end != std::string::npos; end = path.find('/', end + 1)) {
    const std::string ancestor = path.substr(0, end);
    if (!tree.Exists(ancestor)) {
      const Failure failure = tree.MakeDirectory(ancestor);
      if (failure != Failure::None) {
        return failure;
      }
    }
  }
  return tree.MakeDirectory(path);
}

class Predictor {
 public:
  Predictor(Package& package, Prediction& prediction)
      : package_(package), prediction_(prediction) {}

  void PredictEntry() {
    EntryPrediction& entry = prediction_.entries.emplace_back();
    entry.entry = package_.Entry();
    entry.position = package_.Tell();
    if (!entry.entry.isReadable) {
      return;
    }
    entry.kind = InstallerUtils::KindOfEntry(entry.entry.name.c_str(), entry.entry.nameLength);
    if (entry.kind == EntryKind::Directory) {
      PredictDirectory(entry);
    } else if (entry.kind == EntryKind::File) {
      PredictFile(entry);
    }
  }

 private:
  void PredictDirectory(EntryPrediction& entry) {
    const Failure failure = EnsureDirectoryExists(prediction_.tree, entry.entry.name);
    // "a//" and "a/./" are made on the way to a failure.
    if (prediction_.tree.Exists(entry.entry.name)) {
      entry.action = EntryPrediction::Action::MakeDirectory;
      entry.isRepeated = !announced_.insert(entry.entry.name).second;
    } else {
      entry.failure = failure;
    }
  }

  void PredictFile(EntryPrediction& entry) {
    entry.isOpened = package_.Open();
    if (!entry.isOpened) {
      return;
    }
    VirtualTree::Node* file = nullptr;
    entry.failure = prediction_.tree.OpenFile(entry.entry.name, &file);
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
    while ((count = package_.Read(portion_)) > 0) {
      const auto length = static_cast<unsigned int>(count);
      crc = crc32(crc, reinterpret_cast<const Bytef*>(portion_), length);
      entry.size += length;
    }
    const bool isChecksumRight = package_.Close();
    if (count < 0) {
      entry.end = EntryPrediction::DataEnd::Damaged;
    } else if (entry.size != entry.entry.size) {
      entry.end = EntryPrediction::DataEnd::Early;
    } else if (!isChecksumRight) {
      entry.end = EntryPrediction::DataEnd::WrongCrc;
    }
    return static_cast<std::uint32_t>(crc);
  }

  void Write(const EntryPrediction& entry, std::uint32_t crc, VirtualTree::Node& file) {
    const std::size_t index = prediction_.entries.size() - 1;
    if (!written_.insert(&file).second) {
      prediction_.entries[file.writer].replacedBy = index;
    }
    file.writer = index;
    file.size = entry.size;
    file.crc32 = crc;
  }

  Package& package_;
  Prediction& prediction_;
  std::set<const VirtualTree::Node*> written_;
  std::set<std::string> announced_;
  char portion_[Package::kPortion] = {};
};

void AddItems(const VirtualTree::Node& directory, const std::string& prefix,
              std::vector<TreeItem>& items) {
  for (const auto& [name, node] : directory.children) {
    items.push_back({prefix + name, node.get()});
    if (node->isDirectory) {
      AddItems(*node, prefix + name + "/", items);
    }
  }
}

}  // namespace

Prediction Predict(Package& package) {
  Prediction prediction;
  prediction.isOpened = package.IsOpen();
  prediction.entryCount = package.EntryCount();
  Predictor predictor(package, prediction);
  for (std::uint64_t entry = 0; entry < prediction.entryCount; ++entry) {
    if (entry > 0 && !package.GoToNext()) {
      break;
    }
    predictor.PredictEntry();
  }
  return prediction;
}

std::vector<TreeItem> ItemsOf(const VirtualTree& tree) {
  std::vector<TreeItem> items;
  AddItems(tree.root(), "", items);
  std::sort(items.begin(), items.end(),
            [](const TreeItem& a, const TreeItem& b) { return a.path < b.path; });
  return items;
}
