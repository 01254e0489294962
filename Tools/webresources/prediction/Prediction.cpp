#include "prediction/Prediction.h"

#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <utility>

#include "DirectoryChain.h"
#include "InstallerConstants.h"
#include "InstallerUtils.h"
#include "support/Error.h"
#include "support/Progress.h"
#include "support/Text.h"

namespace webresources {

using Failure = PredictedTree::Failure;

namespace {

/// Moves `*node`, a directory, to the entry called `component` of the directory.
Failure Step(const std::string& component, PredictedTree::Node** node) {
  if (!(*node)->isDirectory) {
    return Failure::NotADirectory;
  }
  if (component.empty() || component == ".") {
    return Failure::None;
  }
  if (component == "..") {
    *node = (*node)->parent;
    return Failure::None;
  }
  if (component.length() > kComponentLimit) {
    return Failure::ComponentTooLong;
  }
  const auto child = (*node)->children->find(component);
  if (child == (*node)->children->end()) {
    return Failure::Missing;
  }
  *node = child->second.get();
  return Failure::None;
}

}  // namespace

PredictedTree::PredictedTree() {
  root_->parent = root_.get();
  root_->children = std::make_unique<Children>();
}

bool PredictedTree::Exists(const std::string& path) const {
  Node* found = nullptr;
  return Find(path, &found) == Failure::None;
}

Failure PredictedTree::Find(const std::string& path, Node** found) const {
  *found = root_.get();
  for (std::size_t start = 0; start <= path.length();) {
    const std::size_t end = std::min(path.find('/', start), path.length());
    const Failure failure = Step(path.substr(start, end - start), found);
    if (failure != Failure::None) {
      return failure;
    }
    start = end + 1;
  }
  return Failure::None;
}

Failure PredictedTree::MakeDirectory(const std::string& path) {
  if (Exists(path)) {
    return Failure::Exists;
  }
  // mkdir() accepts a name that ends in "/".
  Node* added = nullptr;
  return Add(path.substr(0, path.find_last_not_of('/') + 1), true, &added);
}

Failure PredictedTree::OpenFile(const std::string& path, Node** file) {
  if (Find(path, file) == Failure::None) {
    return (*file)->isDirectory ? Failure::IsADirectory : Failure::None;
  }
  return Add(path, false, file);
}

Failure PredictedTree::Add(const std::string& path, bool isDirectory, Node** added) {
  Node* directory = nullptr;
  const Failure failure = Find(ParentOf(path), &directory);
  if (failure != Failure::None) {
    return failure;
  }
  const std::string name = LastOf(path);
  *added = directory;
  const Failure step = Step(name, added);
  if (step == Failure::None) {
    return Failure::Exists;  // for "." and "..", and for "name/" if "name" is a file
  }
  if (step != Failure::Missing) {
    return step;
  }
  auto node = std::make_unique<Node>();
  node->isDirectory = isDirectory;
  node->children = isDirectory ? std::make_unique<Children>() : nullptr;
  node->parent = directory;
  *added = node.get();
  directory->children->emplace(name, std::move(node));
  return Failure::None;
}

namespace {

/// Makes the directory of an entry called `name`. Returns the reason of a failure, if there is one.
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

/// Returns the fields of the current entry in the central directory.
EntryPrediction Describe(const PackageReader& package) {
  const PackageEntry& entry = package.entry();
  EntryPrediction prediction;
  prediction.kind = entry.kind;
  prediction.name = entry.name;
  prediction.nameLength = static_cast<std::uint32_t>(entry.nameLength);
  prediction.flags = static_cast<std::uint16_t>(entry.flags);  // the format has 16 bits
  prediction.method = static_cast<std::uint16_t>(entry.method);
  prediction.isLink = IsLink(entry);
  prediction.compressedSize = entry.compressedSize;
  prediction.statedSize = entry.size;
  return prediction;
}

class Predictor {
 public:
  Predictor(PackageReader& package, std::uint64_t bytes, const ChunkSink& sink, bool readsData)
      : package_(package),
        sink_(sink),
        readsData_(readsData),
        progress_("reading the package", bytes / PackageReader::kChunkSize) {
    package.StopWhen([this] {
      progress_.Step();
      return IsInterrupted();
    });
    prediction_.isOpened = package.IsOpen();
    prediction_.entryCount = package.EntryCount();
  }

  ~Predictor() { package_.StopWhen(nullptr); }

  /// Predicts the package's current entry.
  void PredictEntry() {
    EntryPrediction& entry = prediction_.entries.emplace_back(Describe(package_));
    if (entry.kind == PackageEntry::Kind::Directory) {
      PredictDirectory(entry);
    } else if (entry.kind == PackageEntry::Kind::File) {
      PredictFile(entry);
    }
    ThrowIfInterrupted("read", kPackageFileName);
  }

  Prediction Take() { return std::move(prediction_); }

 private:
  void PredictDirectory(EntryPrediction& entry) {
    const Failure failure = EnsureDirectoryExists(prediction_.tree, entry.name);
    // For "a//" and "a/./", the directory exists although the function fails.
    PredictedTree::Node* made = nullptr;
    if (prediction_.tree.Find(entry.name, &made) == Failure::None) {
      entry.action = EntryPrediction::Action::MakeDirectory;
      entry.isRepeated = std::exchange(made->hasEntry, true);
    } else {
      entry.failure = failure;
    }
  }

  void PredictFile(EntryPrediction& entry) {
    const EntryData data =
        readsData_ ? DataOf() : EntryData{true, package_.entry().size, EntryData::End::Complete};
    entry.isOpened = data.isOpened;
    entry.size = data.size;
    entry.end = data.end;
    if (!entry.isOpened) {
      return;
    }
    PredictedTree::Node* file = nullptr;
    entry.failure = prediction_.tree.OpenFile(entry.name, &file);
    if (entry.failure == Failure::None) {
      entry.action = EntryPrediction::Action::WriteFile;
      Write(entry, *file);
    }
  }

  EntryData DataOf() {
    // A simultaneous extraction reads all data, except the data of files that cannot be made.
    if (package_.data().end == EntryData::End::Unread) {
      ReadData(sink_);
    }
    return package_.data();
  }

  void Write(const EntryPrediction& entry, PredictedTree::Node& file) {
    const std::size_t index = prediction_.entries.size() - 1;
    if (file.writer) {
      prediction_.entries[*file.writer].replacedBy = index;
    }
    file.writer = index;
    file.size = entry.size;
    // The library has compared complete data with the checksum in the central directory.
    file.crc32 = entry.end == EntryData::End::Complete ? package_.entry().crc32 : ChecksumOfData();
  }

  std::uint32_t ChecksumOfData() {
    uLong crc = 0;
    ReadData([&crc](std::size_t, const char* bytes, std::size_t length) {
      crc = crc32_z(crc, reinterpret_cast<const Bytef*>(bytes), length);
    });
    return static_cast<std::uint32_t>(crc);
  }

  void ReadData(const ChunkSink& sink) {
    if (!package_.Open()) {
      return;
    }
    for (int count = 0; (count = package_.Read()) > 0;) {
      if (sink) {
        sink(prediction_.entries.size() - 1, package_.chunk(), static_cast<std::size_t>(count));
      }
    }
    package_.Close();
  }

  PackageReader& package_;
  const ChunkSink& sink_;
  const bool readsData_;
  Prediction prediction_;
  Progress progress_;
};

Prediction PredictAll(PackageReader& package, std::uint64_t bytes, const ChunkSink& sink,
                      bool readsData) {
  Predictor predictor(package, bytes, sink, readsData);
  while (package.Next()) {
    predictor.PredictEntry();
  }
  return predictor.Take();
}

void Visit(const PredictedTree::Node& directory, const std::string& prefix,
           const TreeVisitor& visitor) {
  for (const auto& [name, node] : *directory.children) {
    ThrowIfInterrupted("read", kPackageFileName);
    visitor({prefix + name, node.get()});
    if (node->isDirectory) {
      Visit(*node, prefix + name + "/", visitor);
    }
  }
}

}  // namespace

Prediction Predict(PackageReader& package, std::uint64_t bytes, const ChunkSink& sink) {
  return PredictAll(package, bytes, sink, true);
}

Prediction PredictOutline(PackageReader& package) {
  return PredictAll(package, 0, {}, false);
}

Prediction PredictAndExtract(PackageReader& package, std::uint64_t bytes,
                             const std::string& directory) {
  const ChunkSink none;
  Predictor predictor(package, bytes, none, true);
  const auto predict = [&predictor] { predictor.PredictEntry(); };
  if (!InstallerUtils::UncompressPackage(package, directory, predict)) {
    throw Error("extract to", directory, "the directory cannot be made");
  }
  return predictor.Take();
}

void ForEachItem(const PredictedTree& tree, const TreeVisitor& visitor) {
  Visit(tree.root(), "", visitor);
}

std::vector<TreeItem> ItemsOf(const PredictedTree& tree) {
  std::vector<TreeItem> items;
  ForEachItem(tree, [&items](TreeItem&& item) { items.push_back(std::move(item)); });
  std::sort(items.begin(), items.end(),
            [](const TreeItem& a, const TreeItem& b) { return a.path < b.path; });
  return items;
}

}  // namespace webresources
