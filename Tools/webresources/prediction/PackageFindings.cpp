#include "PackageFindings.h"

#include <algorithm>

#include "InstallerConstants.h"
#include "NameFindings.h"
#include "Names.h"

using EntryKind = PackageEntry::Kind;
using Failure = PredictedTree::Failure;
using DataEnd = EntryPrediction::DataEnd;

namespace {

constexpr unsigned long kStored = 0;
constexpr unsigned long kDeflated = 8;
constexpr unsigned int kSizesFollow = 8;  // the flag of an entry with a data descriptor

/// Larger entries that shrink more are worth a look: web content does not.
constexpr std::uint64_t kRatioLimit = 200;
constexpr std::uint64_t kRatioFrom = 1U << 20U;

std::string Count(std::uint64_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

bool IsSupported(const EntryPrediction& entry) {
  return entry.method == kStored || entry.method == kDeflated;
}

/// Which fields the two headers of an entry contradict each other in; empty when in none. Where the
/// sizes follow the data, a local header may leave them out.
std::string DifferingFields(const ArchiveLayout::Entry& entry) {
  if (!entry.local) {
    return {};
  }
  const ArchiveLayout::Header& local = *entry.local;
  const ArchiveLayout::Header& central = entry.central;
  const bool follow = (local.flags & kSizesFollow) != 0;
  const auto differ = [follow](std::uint64_t inLocal, std::uint64_t inCentral) {
    return inLocal != inCentral && !(follow && inLocal == 0);
  };
  std::string fields;
  const auto add = [&fields](bool differs, const char* field) {
    fields += differs ? (fields.empty() ? "" : ", ") + std::string(field) : std::string();
  };
  constexpr unsigned int kMeaningful = 0x809;  // encrypted, sizes follow, UTF-8
  add(local.name != central.name, "name");
  add((local.flags & kMeaningful) != (central.flags & kMeaningful), "flags");
  add(local.method != central.method, "method");
  add(differ(local.crc32, central.crc32), "checksum");
  add(differ(local.compressedSize, central.compressedSize), "compressed size");
  add(differ(local.size, central.size), "size");
  return fields;
}

class PackageFinder {
 public:
  PackageFinder(const Prediction& prediction, const std::optional<ArchiveLayout>& layout)
      : prediction_(prediction), layout_(layout) {}

  Findings FindAll() {
    FindInFrame();
    for (std::size_t i = 0; i < prediction_.entries.size(); ++i) {
      FindInEntry(i);
    }
    FindOverlaps();
    FindCollisions();
    return std::move(findings_);
  }

 private:
  void FindInFrame() {
    if (prediction_.entryCount == 0) {
      Add(findings_, "package-empty", kPackageFileName, "it has no entries");
    }
    if (!layout_) {
      return;
    }
    if (layout_->leadingBytes != 0) {
      Add(findings_, "leading-data", kPackageFileName,
          Count(layout_->leadingBytes, "byte") + " before the archive");
    }
    if (layout_->trailingBytes != 0) {
      Add(findings_, "trailing-data", kPackageFileName,
          Count(layout_->trailingBytes, "byte") + " after the archive");
    }
    if (layout_->missingBytes != 0) {
      Add(findings_, "directory-damaged", kPackageFileName,
          "its end record, with the comment, is cut by " + Count(layout_->missingBytes, "byte"));
    } else if (!layout_->isDirectoryWhole || prediction_.entries.size() != prediction_.entryCount) {
      Add(findings_, "directory-damaged", kPackageFileName,
          "entries by its own count: " + std::to_string(layout_->entryCount) +
              ", listed: " + std::to_string(layout_->entries.size()) +
              ", read by the installer: " + std::to_string(prediction_.entries.size()));
    }
  }

  void FindInEntry(std::size_t index) {
    const EntryPrediction& entry = prediction_.entries[index];
    if (entry.kind == EntryKind::NameEmpty || entry.kind == EntryKind::Unreadable) {
      // Without a name there is nothing more to say.
      Add(findings_, entry.kind == EntryKind::NameEmpty ? "name-empty" : "directory-damaged",
          "entry " + std::to_string(index + 1), Problem(entry));
      return;
    }
    subject_ = entry.name;
    FindInName(entry, index);
    FindInData(entry, index);
  }

  void FindInName(const EntryPrediction& entry, std::size_t index) {
    const std::string& name = entry.name;
    if (entry.kind == EntryKind::NameTooLong || entry.failure == Failure::ComponentTooLong) {
      AddHere("name-too-long", Problem(entry));
    } else if (entry.kind == EntryKind::ClimbsOut) {
      AddHere("climbs-out", Problem(entry));
    } else if (entry.nameLength != name.length()) {
      AddHere("name-unclean", "has a zero byte, at which its name ends");
    } else if (const std::string part = UncleanPart(name); !part.empty()) {
      AddHere("name-unclean", part);
    }
    if (!names::IsUtf8(name) && entry.kind != EntryKind::NameTooLong) {
      AddHere("name-not-utf8", "its name is not UTF-8, which a volume may refuse");
    } else if (!names::IsAscii(name) && !entry.HasUtf8Flag()) {
      AddHere("name-unflagged", "its name is not ASCII, and not flagged as UTF-8");
    }
    if (names::JunkKind(name) != names::Junk::None) {
      AddHere("junk-file", "macOS keeps it for itself");
    }
    if (entry.replacedBy) {
      AddHere("duplicate-entry", Problem(entry));
    } else if (entry.isRepeated) {
      AddHere("duplicate-entry",
              "the directory is announced again as entry " + std::to_string(index + 1));
    }
  }

  void FindInData(const EntryPrediction& entry, std::size_t index) {
    const std::string fields = DifferingFieldsOf(index);
    if (!fields.empty()) {
      AddHere("headers-differ", "its local and central headers differ in: " + fields);
    }
    if (entry.failure == Failure::Missing) {
      AddHere("missing-directory-entry", Problem(entry));
    } else if (entry.failure != Failure::None && entry.failure != Failure::ComponentTooLong) {
      AddHere("path-blocked", Problem(entry));
    }
    if (entry.kind == EntryKind::Directory && !HasLocalHeader(index)) {
      AddHere("damaged-entry", "its local header is damaged, which other tools do not forgive");
    }
    if (entry.kind != EntryKind::File) {
      return;
    }
    if (entry.isLink) {
      AddHere("link-entry", "a symbolic link: the installer writes a file with the link's text");
    }
    if (entry.IsEncrypted()) {
      AddHere("encrypted", "it is encrypted, and the installer has no password");
    } else if (!IsSupported(entry)) {
      AddHere("unsupported-method", Problem(entry));
    } else if (!entry.isOpened && fields.empty()) {
      AddHere("damaged-entry", Problem(entry));
    } else if (entry.end == DataEnd::WrongCrc) {
      AddHere("wrong-crc", Problem(entry));
    } else if (entry.end != DataEnd::Complete) {
      AddHere("damaged-data", Problem(entry));
    } else {
      FindExpansion(entry);
    }
  }

  void FindExpansion(const EntryPrediction& entry) {
    const std::uint64_t packed = std::max<std::uint64_t>(entry.compressedSize, 1);
    if (entry.size >= kRatioFrom && entry.size / packed >= kRatioLimit) {
      AddHere("expansion-ratio", Count(packed, "byte") + " become " + Count(entry.size, "byte") +
                                     ": " + std::to_string(entry.size / packed) + " times as much");
    }
  }

  std::string DifferingFieldsOf(std::size_t index) const {
    return IsInLayout(index) ? DifferingFields(layout_->entries[index]) : std::string();
  }

  bool HasLocalHeader(std::size_t index) const {
    return !IsInLayout(index) || layout_->entries[index].local;
  }

  bool IsInLayout(std::size_t index) const { return layout_ && index < layout_->entries.size(); }

  /// Each entry that begins before an earlier one, or the archive's directory, allows.
  void FindOverlaps() {
    if (!layout_) {
      return;
    }
    std::vector<const ArchiveLayout::Entry*> inOrder;
    for (const ArchiveLayout::Entry& entry : layout_->entries) {
      inOrder.push_back(&entry);
    }
    std::stable_sort(inOrder.begin(), inOrder.end(),
                     [](const auto* a, const auto* b) { return a->begin < b->begin; });
    std::uint64_t free = 0;
    for (const ArchiveLayout::Entry* entry : inOrder) {
      if (entry->local && (entry->begin < free || entry->end > layout_->directoryBegin)) {
        Add(findings_, "overlapping-entries", entry->central.name,
            "its data lies in bytes that another entry or the central directory takes");
      }
      free = std::max(free, entry->end);
    }
  }

  void FindCollisions() {
    std::vector<std::string> paths;
    for (const TreeItem& item : ItemsOf(prediction_.tree)) {
      paths.push_back(item.path);
    }
    AddCollisions(findings_, paths);
  }

  void AddHere(const char* id, const std::string& reason) { Add(findings_, id, subject_, reason); }

  const Prediction& prediction_;
  const std::optional<ArchiveLayout>& layout_;
  std::string subject_;
  Findings findings_;
};

std::string DataProblem(const EntryPrediction& entry) {
  const std::string size = std::to_string(entry.size);
  const std::string of = size + " of " + Count(entry.statedSize, "byte");
  switch (entry.end) {
    case DataEnd::Early:
      return "its data ends after " + of;
    case DataEnd::Damaged:
      return "its data is damaged: " + of + " can be read";
    case DataEnd::WrongCrc:
      return "its data does not match its checksum";
    default:
      return {};
  }
}

std::string FailureProblem(const EntryPrediction& entry) {
  const bool isDirectory = entry.kind == EntryKind::Directory;
  switch (entry.failure) {
    case Failure::Missing:
      return "its directory is not announced before it";
    case Failure::NotADirectory:
      return "a file is in the way of its directory";
    case Failure::IsADirectory:
      return "there is a directory of its name";
    case Failure::Exists:
      return isDirectory ? "there is a file of its name" : "its name leads to a directory";
    case Failure::ComponentTooLong:
      return "a component of its name has more than 255 bytes";
    default:
      return {};
  }
}

}  // namespace

std::string Problem(const EntryPrediction& entry) {
  switch (entry.kind) {
    case EntryKind::Unreadable:
      return "its directory record cannot be read";
    case EntryKind::NameEmpty:
      return "its name is empty";
    case EntryKind::NameTooLong:
      return "its name has " + std::to_string(entry.nameLength) + " bytes";
    case EntryKind::ClimbsOut:
      return "its name leads out of the destination";
    case EntryKind::File:
      if (!IsSupported(entry)) {
        return "its compression method " + std::to_string(entry.method) + " is not supported" +
               (entry.isOpened ? ": its data is written as it is" : "");
      }
      if (!entry.isOpened) {
        return "it cannot be opened: its local header is damaged or contradicts the directory";
      }
      break;
    default:
      break;
  }
  if (entry.failure != Failure::None) {
    return FailureProblem(entry);
  }
  if (entry.replacedBy) {
    return "entry " + std::to_string(*entry.replacedBy + 1) + " writes the same file again";
  }
  return DataProblem(entry);
}

Findings FindInPackage(bool exists, const Prediction& prediction,
                       const std::optional<ArchiveLayout>& layout) {
  Findings findings;
  // The installer's reader does not open an archive of an end record alone.
  const bool isEmptyArchive = layout && layout->entryCount == 0 && layout->missingBytes == 0;
  if (!exists) {
    Add(findings, "package-missing", kPackageFileName, "the installer installs an empty directory");
  } else if (!prediction.isOpened && !isEmptyArchive) {
    Add(findings, "package-unreadable", kPackageFileName,
        "the installer's reader does not open it and installs an empty directory");
  } else {
    findings = PackageFinder(prediction, layout).FindAll();
  }
  return findings;
}
