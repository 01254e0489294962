#include "prediction/FileTree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <numeric>

#include "Descriptor.h"
#include "support/Error.h"
#include "support/Files.h"
#include "support/Progress.h"

namespace webresources {

namespace {

constexpr char kTop[] = ".";

void Sort(FileTree& tree) {
  std::sort(tree.begin(), tree.end(),
            [](const FileItem& a, const FileItem& b) { return a.path < b.path; });
}

/// A directory that is open for the whole walk. The system finds an entry from here faster than
/// from the root.
struct OpenDirectory {
  const std::string& path;
  const Descriptor descriptor;
};

FileItem::Type TypeOf(mode_t mode) {
  return S_ISDIR(mode)   ? FileItem::Type::Directory
         : S_ISREG(mode) ? FileItem::Type::File
                         : FileItem::Type::Other;
}

/// Returns the entry at `path` below `top`. Returns nothing if the entry has disappeared.
std::optional<FileItem> Look(const OpenDirectory& top, const std::string& path) {
  struct stat status = {};
  if (fstatat(*top.descriptor, path.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) {
      return std::nullopt;
    }
    throw Error::FromErrno("read", top.path + "/" + path);
  }
  FileItem item;
  item.path = path;
  item.type = TypeOf(status.st_mode);
  item.size = item.type == FileItem::Type::File ? static_cast<std::uint64_t>(status.st_size) : 0;
  item.mode = static_cast<std::uint16_t>(status.st_mode & 07777U);
  item.owner = status.st_uid;
  return item;
}

/// Adds the entries of the directory `prefix`, which is empty or ends in "/", below `top`.
void AddEntries(const OpenDirectory& top, const std::string& prefix, FileTree& tree) {
  for (const std::string& name : NamesIn(top.path + "/" + prefix)) {
    ThrowIfInterrupted("read", top.path + "/" + prefix + name);
    auto item = Look(top, prefix + name);
    if (!item) {
      continue;
    }
    const bool isDirectory = item->type == FileItem::Type::Directory;
    tree.push_back(*std::move(item));
    if (isDirectory) {
      AddEntries(top, prefix + name + "/", tree);
    }
  }
}

void AddChecksum(const OpenDirectory& top, Checksum checksum, Progress& progress, FileItem& item) {
  const std::string path = top.path + "/" + item.path;
  const InputFile file(*top.descriptor, item.path, path, Links::Refuse);
  Sha256 hash;
  uLong crc = 0;
  ForEachChunk(file.descriptor(), path, [&](const char* bytes, std::size_t length) {
    if (checksum == Checksum::Sha256) {
      hash.Update(bytes, length);
    } else {
      crc = crc32_z(crc, reinterpret_cast<const Bytef*>(bytes), length);
    }
    progress.Step(length);
  });
  if (checksum == Checksum::Sha256) {
    item.sha256 = hash.Finish();
  } else {
    item.crc32 = static_cast<std::uint32_t>(crc);
  }
}

bool HasFile(const FileTree& tree, const std::string& path, std::uint64_t size) {
  const auto item = std::lower_bound(
      tree.begin(), tree.end(), path,
      [](const FileItem& one, const std::string& that) { return one.path < that; });
  return item != tree.end() && item->path == path && item->type == FileItem::Type::File &&
         item->size == size;
}

FileItem ItemOf(TreeItem&& predicted, EntryDigests* digests) {
  const PredictedTree::Node& node = *predicted.node;
  FileItem item;
  item.path = std::move(predicted.path);
  if (node.isDirectory) {
    item.mode = kDirectoryMode;
    return item;
  }
  item.type = FileItem::Type::File;
  item.size = node.size;
  item.crc32 = node.crc32;
  item.mode = kFileMode;
  if (digests != nullptr) {
    item.sha256 = digests->Of(*node.writer);
  }
  return item;
}

}  // namespace

ChunkSink EntryDigests::Sink() {
  return [this](std::size_t entry, const char* bytes, std::size_t length) {
    if (current_ != entry) {
      FinishCurrent();
      current_ = entry;
    }
    hash_.Update(bytes, length);
  };
}

Sha256::Digest EntryDigests::Of(std::size_t index) {
  FinishCurrent();
  const auto digest =
      std::lower_bound(digests_.begin(), digests_.end(), index,
                       [](const auto& one, std::size_t that) { return one.first < that; });
  return digest == digests_.end() || digest->first != index ? Sha256().Finish() : digest->second;
}

void EntryDigests::FinishCurrent() {
  if (current_) {
    digests_.emplace_back(*current_, hash_.Finish());
    current_.reset();
  }
}

FileTree TreeOf(const Prediction& prediction, EntryDigests* digests) {
  FileTree tree(1);
  tree[0].path = kTop;
  tree[0].mode = kDirectoryMode;
  ForEachItem(prediction.tree,
              [&](TreeItem&& item) { tree.push_back(ItemOf(std::move(item), digests)); });
  Sort(tree);
  return tree;
}

FileTree ReadTree(const std::string& directory, Checksum checksum, const FileTree* expected) {
  FileTree tree;
  const OpenDirectory top = {
      directory, Descriptor(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))};
  if (!top.descriptor) {
    if (errno == ENOENT) {
      return tree;
    }
    throw Error::FromErrno("read", directory);
  }
  if (auto item = Look(top, kTop)) {
    tree.push_back(*std::move(item));
    AddEntries(top, "", tree);
  }
  Sort(tree);
  Progress progress("reading what is installed", BytesOf(tree));
  for (FileItem& item : tree) {
    if (checksum == Checksum::None || item.type != FileItem::Type::File) {
      continue;
    }
    if (expected == nullptr || HasFile(*expected, item.path, item.size)) {
      AddChecksum(top, checksum, progress, item);
    } else {
      progress.Step(item.size);
    }
  }
  return tree;
}

std::uint64_t BytesOf(const FileTree& tree) {
  return std::accumulate(tree.begin(), tree.end(), std::uint64_t{0},
                         [](std::uint64_t sum, const FileItem& item) { return sum + item.size; });
}

std::size_t FilesOf(const FileTree& tree) {
  return static_cast<std::size_t>(std::count_if(tree.begin(), tree.end(), [](const FileItem& item) {
    return item.type == FileItem::Type::File;
  }));
}

}  // namespace webresources
