// Archive to tree. For every content of the package, the extraction
//  - does not crash, leaves no descriptor open, and returns true;
//  - changes only its destination, which contains only directories and regular files;
//  - makes the same tree from the same package in another directory.
//
// An input that starts with a zero byte, or is large, is a zero byte and a package. Any other input
// describes entries (see NextEntry()). The fuzzer makes a package from the description, with
// correct offsets, sizes and checksums unless the description changes them. Such a package reaches
// the code behind the central directory.

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

#include "Fuzz.h"
#include "InstallerUtils.h"
#include "TestFiles.h"
#include "ZipBuilder.h"

namespace {

// Package ----------------------------------------------------------------------------------------

/// The input, read from its beginning. Behind the end are zero bytes and empty strings.
class Reader {
 public:
  Reader(const std::uint8_t* data, std::size_t size)
      : rest_(reinterpret_cast<const char*>(data), size) {}

  bool AtEnd() const { return at_ >= rest_.size(); }
  unsigned Byte() { return AtEnd() ? 0 : static_cast<unsigned char>(rest_[at_++]); }

  /// Returns the string behind a length byte.
  std::string Text() {
    const std::size_t length = Byte();
    std::string text = AtEnd() ? std::string() : rest_.substr(at_, length);
    at_ += text.size();
    return text;
  }

  std::string Rest() const { return rest_.substr(at_); }

 private:
  std::string rest_;
  std::size_t at_ = 0;
};

std::string Repeated(const std::string& text, unsigned times) {
  std::string all;
  for (unsigned i = 0; i < times; ++i) {
    all += text;
  }
  return all;
}

/// Returns the next described entry. The description is a byte with a bit for each fault, a byte
/// with two repetition counts, the name, the content, and a byte or string for each fault.
ZipEntry NextEntry(Reader& input) {
  const unsigned kind = input.Byte();
  const unsigned times = input.Byte();
  const std::string name = Repeated(input.Text(), 1 + times % 4);
  const std::string contents = Repeated(input.Text(), 1U << (times / 4 % 8));
  ZipEntry entry(name, contents, (kind & 1U) != 0 ? kDeflated : kStored);
  if ((kind & 2U) != 0) {
    entry.method = entry.localMethod = static_cast<std::uint16_t>(input.Byte());
  }
  if ((kind & 4U) != 0) {
    entry.crc += input.Byte();
  }
  if ((kind & 8U) != 0) {
    entry.size += input.Byte() * 64 - 0x2000U;
    entry.compressed += input.Byte() - 128U;
  }
  if ((kind & 16U) != 0) {
    entry.flags = static_cast<std::uint16_t>(input.Byte());
  }
  if ((kind & 32U) != 0) {
    entry.localName = input.Text();
  }
  if ((kind & 64U) != 0) {
    entry.offset = input.Byte() * 8;
  }
  if ((kind & 128U) != 0) {
    entry.data.replace(0, 64, input.Text());
  }
  return entry;
}

constexpr std::size_t kLargestDescription = 8192;  // a large description could need gigabytes

std::string Package(Reader input) {
  const bool isPackage = input.Byte() == 0;
  std::string rest = input.Rest();
  if (isPackage || rest.size() > kLargestDescription) {
    return rest;
  }
  std::vector<ZipEntry> entries;
  while (!input.AtEnd()) {
    entries.push_back(NextEntry(input));
  }
  return Zip(entries);
}

// Extraction -------------------------------------------------------------------------------------

/// Limits the size of files, like a full disk.
class ScopedFileSizeLimit {
 public:
  ScopedFileSizeLimit() {
    std::signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{1 << 18, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~ScopedFileSizeLimit() { setrlimit(RLIMIT_FSIZE, &before_); }
  ScopedFileSizeLimit(const ScopedFileSizeLimit&) = delete;
  ScopedFileSizeLimit& operator=(const ScopedFileSizeLimit&) = delete;

 private:
  rlimit before_ = {};
};

int LowestFreeDescriptor() {
  const int descriptor = dup(STDERR_FILENO);
  close(descriptor);
  return descriptor;
}

/// The directory of the extractions, with other entries beside and above that must not change.
class Place {
 public:
  Place() {
    std::filesystem::create_directories(directory_ / "above/root/d");
    for (const char* file : {"f", "above/f", "above/root/f", "above/root/d/f"}) {
      WriteFile(directory_ / file, "as before");
    }
    before_ = TreeOf(directory_ / "");
  }

  /// Extracts the package twice and returns the tree. Restores the directory.
  Tree Extracted(std::string package) {
    Extract(package, "Resource0");
    Extract(package, "Resource1");
    Tree all = TreeOf(directory_ / "");
    Tree tree = Taken(all, "above/root/Resource0/");
    Require(Taken(all, "above/root/Resource1/") == tree, "the same tree twice");
    Require(all == before_, "nothing outside was changed");
    return tree;
  }

 private:
  void Extract(std::string& package, const char* name) {
    std::string destination = directory_ / "above/root/" + name;
    std::filesystem::remove_all(destination);
    const int free = LowestFreeDescriptor();
    const ScopedFileSizeLimit limit;
    Require(InstallerUtils::UncompressPackageFiles(package, destination), "it succeeded");
    Require(LowestFreeDescriptor() == free, "no descriptor stays open");
  }

  /// Removes `directory` and its content from `all` and returns the removed part.
  static Tree Taken(Tree& all, const std::string& directory) {
    Tree taken;
    auto at = all.lower_bound(directory);
    while (at != all.end() && at->first.compare(0, directory.length(), directory) == 0) {
      taken.emplace(at->first.substr(directory.length()), std::move(at->second));
      at = all.erase(at);
    }
    return taken;
  }

  const ScopedDirectory directory_;
  Tree before_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Place place;
  static const int file = memfd_create("package.zip", MFD_CLOEXEC);
  const std::string bytes = Package(Reader(data, size));
  Require(ftruncate(file, 0) == 0 &&
              pwrite(file, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
          "the package is written");
  for (const auto& [path, contents] : place.Extracted("/proc/self/fd/" + std::to_string(file))) {
    Require(path.find("//") == std::string::npos, "no link: " + path);
  }
  return 0;
}
