// The cost of hostile input: memory and processor time, measured in a child process.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <functional>

#include "InstallerConstants.h"
#include "Support.h"
#include "ZipBuilder.h"
#include "bundle/ArchiveLayout.h"
#include "commands/Commands.h"
#include "machine/Receipt.h"
#include "prediction/BundleInspection.h"
#include "prediction/TreeComparison.h"
#include "report/Rules.h"
#include "support/AtomicFile.h"
#include "support/Error.h"
#include "support/Files.h"
#include "support/Progress.h"
#include "support/Text.h"

using namespace webresources;

namespace {

constexpr std::uint64_t kMebi = 1U << 20U;

std::uint64_t LargestMemory() {
  struct rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
#ifdef __APPLE__
  return static_cast<std::uint64_t>(usage.ru_maxrss);
#else
  return static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;
#endif
}

/// Returns whether `act` returns true and uses at most `bytes` of memory more than `prepare`.
template <typename Act>
bool TakesAtMost(
    std::uint64_t bytes, Act act, const std::function<void()>& prepare = [] {}) {
  return InChild([bytes, &act, &prepare] {
    prepare();
    const std::uint64_t before = LargestMemory();
    const bool result = act();
    const std::uint64_t taken = LargestMemory() - before;
    if (taken > bytes) {
      std::cerr << "it takes " << taken / kMebi << " MiB\n";
    }
    return result && taken <= bytes;
  });
}

/// Returns whether `act` returns true within `seconds` of processor time. Other work of the machine
/// does not count.
template <typename Act>
bool TakesSecondsOfWork(unsigned int seconds, Act act) {
  return InChild([seconds, &act] {
    std::signal(SIGXCPU, [](int) { _exit(1); });
    struct rlimit limit = {};
    getrlimit(RLIMIT_CPU, &limit);  // the caller's hard limit stays: not every user may raise it
    limit.rlim_cur = seconds;
    return setrlimit(RLIMIT_CPU, &limit) == 0 && act();
  });
}

/// Makes a sparse file of `size` bytes, all 0 except the last bytes `end`, and returns the path.
std::string Sparse(const std::string& path, std::uint64_t size, const std::string& end) {
  WriteFile(path, "");
  std::filesystem::resize_file(path, size - end.length());
  std::ofstream(path, std::ios::binary | std::ios::app) << end;
  return path;
}

TEST(Bounds, DirectoryOfASparsePackageIsReadInChunks) {
  const ScopedDirectory directory;
  constexpr std::uint32_t kSize = 3U << 30U;
  std::string end = Zip({});  // an end of central directory record
  for (std::size_t i = 0; i < 4; ++i) {
    end[12 + i] = static_cast<char>((kSize - 22) >> (8 * i));  // the size of the central directory
  }
  end[8] = end[10] = 1;
  const std::string path = Sparse(directory / kPackageFileName, kSize, end);
  EXPECT_TRUE(TakesAtMost(64 * kMebi, [&directory, &path] {
    const auto layout = ReadArchiveLayout(path);
    FileTree tree;
    return layout && !layout->isDirectoryWhole && layout->entries.empty() &&
           !InspectBundle(directory / "", {}, &tree).findings.empty();
  }));
}

// Before, check of 1,000,000 entries took 552 MB.
TEST(Bounds, CheckTakesAtMost400BytesOfMemoryForAnEntry) {
  constexpr std::size_t kBytes = 400;
  constexpr std::size_t kEntries = 65535;
  const ScopedDirectory directory;
  ASSERT_TRUE(InChild([&directory] {  // the memory for the package is not that of the next process
    std::vector<ZipEntry> entries;
    for (std::size_t i = 0; i < kEntries; ++i) {
      entries.emplace_back("f" + std::to_string(1000000 + i), "");
    }
    WriteFile(directory / kPackageFileName, Zip(entries));
    return true;
  }));
  const ScopedDirectory small;
  WriteFile(small / kPackageFileName, Zip({{"f", ""}}));
  const auto entriesOf = [](const std::string& path) {
    CheckOptions options;
    options.path = path;
    return Check(options).listing.size();
  };
  EXPECT_TRUE(TakesAtMost(
      kBytes * kEntries, [&] { return entriesOf(directory / "") == kEntries; },
      [&] { entriesOf(small / ""); }));  // the memory for the code does not count
}

TEST(Bounds, DirectoryIsReadAcrossTheEndsOfItsChunks) {
  std::vector<ZipEntry> entries;
  for (int i = 0; i < 500; ++i) {
    entries.emplace_back(std::to_string(i) + std::string(400, 'n'), "");
  }
  const ScopedDirectory directory;
  WriteFile(directory / "zip", Zip(entries));
  const auto layout = ReadArchiveLayout(directory / "zip");
  ASSERT_EQ(layout->entries.size(), 500U);
  EXPECT_TRUE(layout->isDirectoryWhole);
  for (const ArchiveLayout::Entry& entry : layout->entries) {
    ASSERT_TRUE(entry.hasLocalHeader && !entry.DifferingFields());
  }
}

TEST(Bounds, DirectoriesOfAPackageAreCountedOnce) {
  const ScopedDirectory directory;
  WriteFile(directory / "zip", Zip({{"a/b/c/", ""},
                                    {"a/", ""},
                                    {"a/bc/", ""},
                                    {"a/b/d/", ""},
                                    {"f", "x"},
                                    {"a/b/c/", ""},
                                    {"x/y", ""}}));
  EXPECT_EQ(ExtentOf(directory / "zip").directories, 5U);
  EXPECT_EQ(ExtentOf(directory / "none").directories, 0U);
}

TEST(Bounds, PackageThatAsksForMillionsOfDirectoriesIsNotRead) {
  std::vector<ZipEntry> entries;
  std::string tail;
  for (int i = 0; i < 250; ++i) {
    tail += "/d";
  }
  for (int i = 0; i < 19700; ++i) {
    entries.emplace_back(std::to_string(i) + tail + "/", "");
  }
  const ScopedDirectory directory;
  WriteFile(directory / kPackageFileName, Zip(entries));
  EXPECT_TRUE(TakesAtMost(64 * kMebi, [&directory] {
    return TakesSecondsOfWork(5, [&directory] {
      FileTree tree;
      const BundleInspection bundle = InspectBundle(directory / "", {}, &tree);
      return !bundle.isRead &&
             bundle.findings.front().rule->id == std::string("too-many-directories");
    });
  }));
}

TEST(Bounds, FileOfAnotherSizeThanExpectedIsNotRead) {
  const ScopedDirectory directory;
  Sparse(directory / "grown", std::uint64_t{8} << 30U, "");
  WriteFile(directory / "same", "x");
  FileItem empty;
  empty.path = "grown";
  empty.type = FileItem::Type::File;
  FileItem same = empty;
  same.path = "same";
  same.size = 1;
  const FileTree expected = {empty, same};
  FileTree tree;
  EXPECT_TRUE(TakesSecondsOfWork(5, [&] {
    tree = ReadTree(directory / "", Checksum::Sha256, &expected);
    return tree.size() == 3 && !tree[1].sha256 && tree[2].sha256;
  }));
}

/// Returns two names of 16 bytes after which a hash function of this kind has the same state, if
/// the state before was the same. One half of a name reverses the change of the highest bit in the
/// other half.
std::pair<std::string, std::string> Colliding(std::uint64_t& seed) {
  constexpr std::uint64_t kFactor = 0xc6a4a7935bd1e995;
  constexpr std::uint64_t kInverse = 0x5f7a0ea7e59b19bd;
  static_assert(kFactor * kInverse == 1, "modulo 2^64");
  const auto text = [](std::uint64_t mixed) {
    std::uint64_t word = mixed * kInverse;
    word = (word ^ word >> 47U) * kInverse;
    return std::string(reinterpret_cast<const char*>(&word), sizeof word);
  };
  const auto half = [&seed, &text] {
    for (;;) {
      seed = seed * 6364136223846793005U + 1442695040888963407U;
      const std::string both = text(seed) + text(seed ^ std::uint64_t{1} << 63U);
      if (both.find('\0') == std::string::npos && both.find('/') == std::string::npos) {
        return both;
      }
    }
  };
  const std::string first = half();
  const std::string second = half();
  return {first.substr(0, 8) + second.substr(0, 8), first.substr(8) + second.substr(8)};
}

/// Returns 65,536 paths in 256 directories. The hash function of the C++ library gives one value
/// for all paths.
std::vector<std::string> PathsWithOneHash() {
  std::uint64_t seed = 1;
  std::vector<std::string> paths = {""};
  for (int pair = 0; pair < 16; ++pair) {
    const auto [one, other] = Colliding(seed);
    std::vector<std::string> longer;
    for (const std::string& path : paths) {
      const std::string start = path + (pair == 8 ? "/1234567" : "");
      longer.push_back(start + one);
      longer.push_back(start + other);
    }
    paths = std::move(longer);
  }
  return paths;
}

TEST(Bounds, NamesWithOneHashValueNeedNoMoreTimeThanOthers) {
  const std::vector<std::string> paths = PathsWithOneHash();
#ifdef __GLIBCXX__
  ASSERT_EQ(std::hash<std::string>()(paths.front()), std::hash<std::string>()(paths.back()));
#endif
  std::vector<ZipEntry> entries;
  FileTree tree(paths.size());
  for (std::size_t i = 0; i < paths.size(); ++i) {
    tree[i].path = paths[i];
    entries.emplace_back(paths[i] + "/", "");
  }
  std::sort(tree.begin(), tree.end(),
            [](const FileItem& a, const FileItem& b) { return a.path < b.path; });
  const ScopedDirectory directory;
  WriteFile(directory / kPackageFileName,
            Zip(std::vector(entries.begin(), entries.begin() + 65535)));
  constexpr unsigned int kSeconds = 4;
  EXPECT_TRUE(TakesSecondsOfWork(kSeconds, [&paths] { return Collisions(paths).empty(); }));
  EXPECT_TRUE(
      TakesSecondsOfWork(kSeconds, [&tree] { return !Topmost(Compare(tree, {})).empty(); }));
  EXPECT_TRUE(TakesSecondsOfWork(kSeconds, [&directory] {
    PackageReader package(directory / kPackageFileName);
    return Predict(package, 0).entries.size() == 65535;
  }));
}

// Without a limit, the reader used 7 GiB of memory for a receipt of 95 MiB.
TEST(Receipt, OfManyBracketsNeedsLittleMemory) {
  const ScopedDirectory directory;
  const std::string path = ReceiptPath(directory / "");
  std::filesystem::create_directories(ParentOf(path));
  WriteFile(path, std::string(60 * kMebi, '['));
  EXPECT_TRUE(TakesAtMost(64 * kMebi, [&directory] {
    Findings findings;
    return !ReadReceipt(directory / "", {}, findings) && findings.front().rule == &kReceiptDamaged;
  }));
}

// Once, `install` left a receipt that no command accepted.
TEST(Receipt, ThatWouldBeTooLargeToReadHasNoTree) {
  const ScopedDirectory directory;
  std::filesystem::create_directories(ParentOf(ReceiptPath(directory / "")));
  Receipt receipt;
  receipt.packageSha256 = std::string(64, 'a');
  for (int i = 0; i < 11; ++i) {
    FileItem& item = receipt.tree.emplace_back();
    item.path = std::string(1U << 20U, '\1');  // six bytes of JSON for each byte
    item.mode = kDirectoryMode;
  }
  AtomicFile file(ReceiptPath(directory / ""));
  WriteReceipt(file, receipt);
  Findings findings;
  EXPECT_TRUE(ReadReceipt(directory / "", {}, findings).value().tree.empty());
}

TEST(Interruption, FileIsNotReadToItsEnd) {
  const ScopedDirectory directory;
  Sparse(directory / "f", std::uint64_t{8} << 30U, "");
  EXPECT_TRUE(TakesSecondsOfWork(5, [&directory] {
    CatchInterruptions();
    raise(SIGTERM);
    try {
      DigestOfFile(directory / "f");
    } catch (const Error& error) {
      return error.reason() == "interrupted";
    }
    return false;
  }));
}

// A package of 1,000,000 entries took 6 seconds between the signal and the end of verify.
TEST(Interruption, EntriesAreNotReadToTheirEnd) {
  const ScopedDirectory directory;
  const std::string path = directory / kPackageFileName;
  WriteFile(path, Zip({{"a", "1"}}));
  const std::function<void()> readers[] = {[&] { ExtentOf(path); },
                                           [&] { ReadArchiveLayout(path); }};
  for (const auto& read : readers) {
    EXPECT_NO_THROW(read());
    EXPECT_TRUE(TakesSecondsOfWork(5, [&read] {
      CatchInterruptions();
      raise(SIGTERM);
      try {
        read();
      } catch (const Error& error) {
        return error.reason() == "interrupted";
      }
      return false;
    }));
  }
}

}  // namespace
