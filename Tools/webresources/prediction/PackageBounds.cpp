#include "PackageBounds.h"

#include <sys/stat.h>

#include <algorithm>
#include <limits>

#include "ArchiveLayout.h"
#include "Files.h"
#include "InstallerConstants.h"
#include "PackageReader.h"

namespace {

/// No deflated byte becomes more: a match of 258 bytes takes at least two bits.
constexpr std::uint64_t kLargestRatio = 1032;

/// What reading `entry` of a package of `fileSize` bytes costs at most: its data or, if that is
/// more, what comes out of it. Both end where the stated size or the file ends.
std::uint64_t LargestWork(const PackageEntry& entry, std::uint64_t fileSize) {
  if (entry.kind != PackageEntry::Kind::File) {
    return 0;
  }
  const std::uint64_t data = std::min(entry.compressedSize, fileSize);
  const std::uint64_t limit = std::numeric_limits<std::uint64_t>::max() / kLargestRatio;
  const std::uint64_t output = std::min(entry.size, std::min(data, limit) * kLargestRatio);
  return std::max(data, output);
}

std::uint64_t SizeOfFile(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

}  // namespace

std::uint64_t LargestContent(const std::string& path) {
  const std::uint64_t fileSize = SizeOfFile(path);
  PackageReader package(path);
  std::uint64_t sum = 0;
  while (package.Next()) {
    const std::uint64_t work = LargestWork(package.entry(), fileSize);
    sum += std::min(work, std::numeric_limits<std::uint64_t>::max() - sum);
  }
  return sum;
}

Findings FindOutOfBounds(const std::string& path, std::uint64_t maxSize) {
  Findings findings;
  const bool exists = StateOf(path) == FileState::Present;
  const std::uint64_t size = exists ? LargestContent(path) : 0;
  if (size <= maxSize) {
    return findings;
  }
  Add(findings, "content-too-large", kPackageFileName,
      "its entries can hold " + std::to_string(size) + " bytes, and " + std::to_string(maxSize) +
          " are allowed: no data is read");
  const ArchiveLayout layout = ReadArchiveLayout(path).value_or(ArchiveLayout());
  if (const std::size_t count = layout.Overlapping().size(); count > 0) {
    Add(findings, "overlapping-entries", kPackageFileName,
        std::to_string(count) + " of its entries use bytes that others use, too");
  }
  if (!layout.isDirectoryWhole) {
    Add(findings, "directory-damaged", kPackageFileName,
        "it states " + std::to_string(layout.entryCount) + " entries and lists " +
            std::to_string(layout.entries.size()));
  }
  return findings;
}
