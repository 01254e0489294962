#include "prediction/PackageFindings.h"

#include <sys/stat.h>

#include <algorithm>
#include <limits>
#include <optional>

#include "InstallerConstants.h"
#include "PackageReader.h"
#include "bundle/ArchiveLayout.h"
#include "packing/SourceTree.h"
#include "report/Rules.h"
#include "support/Files.h"
#include "support/Progress.h"
#include "support/Text.h"

namespace webresources {

namespace {

/// One deflated byte gives at most this number of bytes: a match of 258 bytes takes at least two
/// bits.
constexpr std::uint64_t kLargestRatio = 1032;

/// Returns the largest number of bytes that the installer reads or writes for `entry`: the larger
/// of compressed size and size. The stated sizes and `fileSize`, the size of the package, are
/// limits.
std::uint64_t WorkOf(const PackageEntry& entry, std::uint64_t fileSize) {
  if (entry.kind != PackageEntry::Kind::File) {
    return 0;
  }
  const std::uint64_t data = std::min(entry.compressedSize, fileSize);
  const std::uint64_t limit = std::numeric_limits<std::uint64_t>::max() / kLargestRatio;
  const std::uint64_t output = std::min(entry.size, std::min(data, limit) * kLargestRatio);
  return std::max(data, output);
}

/// Returns the number of different directories in `names`.
std::uint64_t CountDirectories(std::vector<std::string> names) {
  std::sort(names.begin(), names.end());
  std::uint64_t count = 0;
  std::string before;
  for (std::string& name : names) {
    // The directories of both names are in the common beginning of the two names.
    const auto rest = std::mismatch(name.begin(), name.end(), before.begin(), before.end()).first;
    count += static_cast<std::uint64_t>(std::count(rest, name.end(), '/'));
    before = std::move(name);
  }
  return count;
}

}  // namespace

PackageExtent ExtentOf(const std::string& path) {
  struct stat status = {};
  const bool isThere = stat(path.c_str(), &status) == 0;
  const std::uint64_t fileSize = isThere ? static_cast<std::uint64_t>(status.st_size) : 0;
  PackageExtent extent;
  std::vector<std::string> directories;
  PackageReader package(path, PackageReader::Unlocked());
  while (package.Next()) {
    ThrowIfInterrupted("read", path);
    const std::uint64_t work = WorkOf(package.entry(), fileSize);
    extent.bytes += std::min(work, std::numeric_limits<std::uint64_t>::max() - extent.bytes);
    ++extent.entries;
    if (package.entry().kind == PackageEntry::Kind::Directory) {
      directories.emplace_back(package.entry().name);
    }
  }
  extent.directories = CountDirectories(std::move(directories));
  return extent;
}

Findings FindOutOfBounds(const std::string& path, const PackageExtent& extent,
                         const Limits& limits) {
  Findings findings;
  if (extent.bytes > limits.maxSize) {
    Add(findings, kContentTooLarge, kPackageFileName,
        "its entries can hold " + std::to_string(extent.bytes) + " bytes, and " +
            std::to_string(limits.maxSize) + " are allowed: no data is read");
  }
  if (extent.directories > limits.maxDirectories) {
    Add(findings, kTooManyDirectories, kPackageFileName,
        "its entries ask for " + std::to_string(extent.directories) + " directories, and " +
            std::to_string(limits.maxDirectories) + " are allowed: no data is read");
  }
  if (findings.empty()) {
    return findings;
  }
  const ArchiveLayout layout = ReadArchiveLayout(path).value_or(ArchiveLayout());
  if (const std::size_t count = layout.Overlapping().size(); count > 0) {
    Add(findings, kOverlappingEntries, kPackageFileName,
        std::to_string(count) + " of its entries use bytes that others use, too");
  }
  if (!layout.isDirectoryWhole) {
    Add(findings, kDirectoryDamaged, kPackageFileName,
        "it states " + std::to_string(layout.entryCount) + " entries and lists " +
            std::to_string(layout.entries.size()));
  }
  return findings;
}

using EntryKind = PackageEntry::Kind;
using Failure = PredictedTree::Failure;
using DataEnd = EntryPrediction::DataEnd;

namespace {

constexpr unsigned long kStored = 0;
constexpr unsigned long kDeflated = 8;

/// Compression makes web content ten times smaller, and repetitive data a hundred times. A large
/// entry with a higher ratio is most likely a zip bomb.
constexpr std::uint64_t kRatioLimit = 200;
constexpr std::uint64_t kRatioFrom = 1U << 20U;  // in bytes

std::string Count(std::uint64_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

bool IsSupported(const EntryPrediction& entry) {
  return entry.method == kStored || entry.method == kDeflated;
}

/// Collects the findings of one package: of the archive, of each entry, and of entries together.
class PackageFinder {
 public:
  PackageFinder(const Prediction& prediction, const ArchiveLayout& layout)
      : prediction_(prediction), layout_(layout) {}

  Findings FindAll() {
    FindInFrame();
    for (std::size_t i = 0; i < prediction_.entries.size(); ++i) {
      ThrowIfInterrupted("check", kPackageFileName);
      FindInEntry(i);
    }
    FindOverlaps();
    FindCollisions(prediction_.tree.root(), "");
    return std::move(findings_);
  }

 private:
  void FindInFrame() {
    if (prediction_.entryCount == 0) {
      Add(findings_, kPackageEmpty, kPackageFileName,
          "it has no entries: an empty directory is installed");
    }
    if (layout_.leadingBytes != 0) {
      Add(findings_, kLeadingData, kPackageFileName,
          "there are " + Count(layout_.leadingBytes, "byte") + " before the archive");
    }
    if (layout_.trailingBytes != 0) {
      Add(findings_, kTrailingData, kPackageFileName,
          "there are " + Count(layout_.trailingBytes, "byte") + " after the archive");
    }
    if (layout_.missingBytes != 0) {
      Add(findings_, kDirectoryDamaged, kPackageFileName,
          "the last " + Count(layout_.missingBytes, "byte") +
              " of its end record or comment are missing");
    } else if (!layout_.isDirectoryWhole || prediction_.entries.size() != prediction_.entryCount) {
      Add(findings_, kDirectoryDamaged, kPackageFileName,
          "number of entries: stated " + std::to_string(layout_.entryCount) + ", listed " +
              std::to_string(layout_.entries.size()) + ", read by the installer " +
              std::to_string(prediction_.entries.size()));
    }
  }

  void FindInEntry(std::size_t index) {
    const EntryPrediction& entry = prediction_.entries[index];
    if (entry.kind == EntryKind::NameEmpty || entry.kind == EntryKind::Unreadable) {
      // The other findings need a name.
      Add(findings_, entry.kind == EntryKind::NameEmpty ? kNameEmpty : kDirectoryDamaged,
          "entry " + std::to_string(index + 1), *Problem(entry));
      return;
    }
    subject_ = entry.name;
    FindInName(entry, index);
    FindInData(entry, index);
  }

  void FindInName(const EntryPrediction& entry, std::size_t index) {
    const std::string& name = entry.name;
    if (entry.kind == EntryKind::NameTooLong || entry.failure == Failure::ComponentTooLong) {
      AddHere(kNameTooLong, *Problem(entry));
    } else if (entry.kind == EntryKind::ClimbsOut) {
      AddHere(kClimbsOut, *Problem(entry));
    } else if (entry.nameLength != name.length()) {
      AddHere(kNameUnclean, "its name has a zero byte: the installer reads the name up to there");
    } else if (const auto part = UncleanPart(name)) {
      AddHere(kNameUnclean, *part);
    }
    if (!IsAscii(name)) {
      FindInEncoding(entry);
    }
    if (const auto junk = JunkReason(name)) {
      AddHere(kJunkFile, *junk);
    }
    if (entry.replacedBy) {
      AddHere(kDuplicateEntry, *Problem(entry));
    } else if (entry.isRepeated) {
      AddHere(kDuplicateEntry,
              "entry " + std::to_string(index + 1) + " makes the same directory again");
    }
  }

  void FindInEncoding(const EntryPrediction& entry) {
    if (IsUtf8(entry.name)) {
      if (!entry.HasUtf8Flag()) {
        AddHere(kNameUnflagged, "its name is UTF-8, but the entry has no flag that says so");
      }
      // a truncated name can end inside a character
    } else if (entry.kind != EntryKind::NameTooLong) {
      AddHere(kNameNotUtf8, "its name is not UTF-8, which a volume may refuse");
    }
  }

  void FindInData(const EntryPrediction& entry, std::size_t index) {
    const ArchiveLayout::Entry headers = HeadersOf(index);
    const auto fields = headers.DifferingFields();
    if (fields) {
      AddHere(kHeadersDiffer, "its local and its central header have different values: " + *fields);
    }
    if (const auto reasons = headers.Refusals()) {
      AddHere(kUnportableEntry, "other tools refuse it: " + *reasons);
    }
    if (entry.failure == Failure::Missing) {
      AddHere(kMissingDirectoryEntry, *Problem(entry));
    } else if (entry.failure != Failure::None && entry.failure != Failure::ComponentTooLong) {
      AddHere(kPathBlocked, *Problem(entry));
    }
    if (entry.kind == EntryKind::Directory && !headers.hasLocalHeader) {
      AddHere(kDamagedEntry, "its local header is damaged: other tools refuse the archive");
    }
    if (entry.kind != EntryKind::File) {
      return;
    }
    if (entry.isLink) {
      AddHere(kLinkEntry,
              "it is a symbolic link: the installer writes a file with the link's text");
    }
    if (entry.IsEncrypted()) {
      AddHere(kEncrypted, "it is encrypted: the installer has no password and writes other data");
    } else if (!IsSupported(entry)) {
      AddHere(kUnsupportedMethod, *Problem(entry));
    } else if (!entry.isOpened && !fields) {
      AddHere(kDamagedEntry, *Problem(entry));
    } else if (entry.end == DataEnd::WrongCrc) {
      AddHere(kWrongCrc, *Problem(entry));
    } else if (entry.end == DataEnd::Early || entry.end == DataEnd::Damaged) {
      AddHere(kDamagedData, *Problem(entry));
    } else {
      FindExpansion(entry);
    }
  }

  void FindExpansion(const EntryPrediction& entry) {
    const std::uint64_t packed = std::max<std::uint64_t>(entry.compressedSize, 1);
    if (entry.size >= kRatioFrom && entry.size / packed >= kRatioLimit) {
      AddHere(kExpansionRatio, Count(packed, "byte") + " become " + Count(entry.size, "byte") +
                                   ", " + std::to_string(entry.size / packed) + " times as many");
    }
  }

  /// Returns the headers of an entry; without defects if the layout lacks the entry.
  ArchiveLayout::Entry HeadersOf(std::size_t index) const {
    return index < layout_.entries.size() ? layout_.entries[index]
                                          : ArchiveLayout::Entry{0, 0, true, 0, 0};
  }

  void FindOverlaps() {
    for (const std::size_t index : layout_.Overlapping()) {
      Add(findings_, kOverlappingEntries, SubjectOf(index),
          "another entry or the central directory occupies the same bytes");
    }
  }

  std::string SubjectOf(std::size_t index) const {
    const bool hasName =
        index < prediction_.entries.size() && !prediction_.entries[index].name.empty();
    if (!hasName) {
      return "entry " + std::to_string(index + 1);
    }
    return prediction_.entries[index].name;
  }

  /// Only names in the same directory can collide.
  void FindCollisions(const PredictedTree::Node& directory, const std::string& prefix) {
    std::vector<std::string> paths;
    for (const auto& [name, node] : *directory.children) {
      paths.push_back(prefix + name);
    }
    AddCollisions(findings_, paths);
    for (const auto& [name, node] : *directory.children) {
      if (node->isDirectory) {
        FindCollisions(*node, prefix + name + "/");
      }
    }
  }

  void AddHere(const Rule& rule, const std::string& reason) {
    Add(findings_, rule, subject_, reason);
  }

  const Prediction& prediction_;
  const ArchiveLayout& layout_;
  std::string subject_;
  Findings findings_;
};

std::optional<std::string> DataProblem(const EntryPrediction& entry) {
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
      return std::nullopt;
  }
}

/// The problem of each failure, in the order of the enumerators.
constexpr const char* kFailures[] = {"",
                                     "no entry before it makes its directory: it is not installed",
                                     "its path leads through a file",
                                     "a directory has its name",
                                     "a file has its name",
                                     "a component of its name has more than 255 bytes"};

}  // namespace

std::optional<std::string> Problem(const EntryPrediction& entry) {
  switch (entry.kind) {
    case EntryKind::Unreadable:
      return "its directory record cannot be read";
    case EntryKind::NameEmpty:
      return "its name is empty";
    case EntryKind::NameTooLong:
      return "its name has " + std::to_string(entry.nameLength) + " bytes";
    case EntryKind::ClimbsOut:
      return "its name leads out of the installed directory";
    case EntryKind::File:
      if (!IsSupported(entry)) {
        return "its compression method " + std::to_string(entry.method) + " is not supported" +
               (entry.isOpened ? ": its packed data is installed" : ": it is not installed");
      }
      if (!entry.isOpened) {
        return "its local header is damaged or contradicts the directory: it is not installed";
      }
      break;
    default:
      break;
  }
  if (entry.failure != Failure::None) {
    return kFailures[static_cast<int>(entry.failure)];
  }
  if (entry.replacedBy) {
    return "entry " + std::to_string(*entry.replacedBy + 1) + " writes the same file again";
  }
  return DataProblem(entry);
}

Findings FindInPackage(const std::string& path, const Prediction& prediction) {
  Findings findings;
  if (!IsPresent(path)) {
    Add(findings, kPackageMissing, kPackageFileName,
        "it is missing: the installer installs an empty directory");
    return findings;
  }
  const std::optional<ArchiveLayout> layout = ReadArchiveLayout(path);
  // The zip library does not open an archive that has only the end of central directory record.
  const bool isEmptyArchive = layout && layout->entryCount == 0 && layout->missingBytes == 0;
  if (!layout || (!prediction.isOpened && !isEmptyArchive)) {
    Add(findings, kPackageUnreadable, kPackageFileName,
        "the installer cannot open it and installs an empty directory");
    return findings;
  }
  return PackageFinder(prediction, *layout).FindAll();
}

}  // namespace webresources
