#include <gtest/gtest.h>

#include <csignal>

#include "InstallerUtils.h"
#include "PackageComparison.h"
#include "Support.h"
#include "ZipBuilder.h"
#include "prediction/Prediction.h"
#include "support/Error.h"
#include "support/Progress.h"

using namespace webresources;

namespace {

using Action = EntryPrediction::Action;
using DataEnd = EntryPrediction::DataEnd;

struct Predicted {
  explicit Predicted(const std::vector<ZipEntry>& entries) : Predicted(Zip(entries)) {}

  explicit Predicted(const std::string& bytes) {
    WriteFile(path, bytes);
    package.emplace(path);
    prediction = Predict(*package, 0);
  }

  /// Returns whether the installer's extraction gives the predicted tree.
  bool IsRight() {
    std::string destination = directory / "destination";
    return InstallerUtils::UncompressPackageFiles(path, destination) &&
           CompareWithPackage(path, destination).empty();
  }

  std::vector<std::string> Paths() const {
    std::vector<std::string> paths;
    for (const TreeItem& item : ItemsOf(prediction.tree)) {
      paths.push_back(item.path + (item.node->isDirectory ? "/" : ""));
    }
    return paths;
  }

  ScopedDirectory directory;
  std::string path = directory / "package.zip";
  std::optional<PackageReader> package;
  Prediction prediction;
};

using Paths = std::vector<std::string>;

TEST(Prediction, DirectoryEntryMakesItsAncestors) {
  Predicted predicted({{"a/b/c/", ""}, {"a/f", "x"}});
  EXPECT_EQ(predicted.Paths(), (Paths{"a/", "a/b/", "a/b/c/", "a/f"}));
  EXPECT_TRUE(predicted.IsRight());
}

TEST(Prediction, OddDirectoryNamesMakeTheSameDirectoriesAsOnTheDisk) {
  Predicted predicted({{"a//", ""},
                       {"b/./", ""},
                       {"c/../d/", ""},
                       {"/e/", ""},
                       {"f/.//g//h/", ""},
                       {"/", ""},
                       {"./", ""},
                       {"i/..", ""},
                       {"j/../", ""}});
  EXPECT_EQ(predicted.Paths(), (Paths{"a/", "b/", "c/", "d/", "e/", "f/", "f/g/", "f/g/h/", "j/"}));
  EXPECT_TRUE(predicted.IsRight());
}

TEST(Prediction, FileInPlaceOfADirectoryStopsItAfterItsAncestors) {
  Predicted predicted({{"a/", ""}, {"a/f", "x"}, {"a/f/g/", ""}, {"b/f", "x"}});
  EXPECT_EQ(predicted.Paths(), (Paths{"a/", "a/f"}));
  EXPECT_EQ(predicted.prediction.entries[2].action, Action::Skip);
  EXPECT_TRUE(predicted.IsRight());
}

TEST(Prediction, LaterEntryReplacesAnEarlierOneThroughAnotherName) {
  Predicted predicted({{"d/", ""}, {"f", "long text"}, {"d/../f", "x"}});
  EXPECT_EQ(predicted.prediction.entries[1].replacedBy, std::optional<std::size_t>(2));
  EXPECT_TRUE(predicted.IsRight());
}

TEST(Prediction, DataReadBeforeADamageStays) {
  std::string text;
  for (int i = 0; i < 20000; ++i) {
    text += static_cast<char>('a' + i * i % 23);
  }
  ZipEntry entry("f", text);
  entry.method = entry.localMethod = kDeflated;
  entry.data = Deflated(text, Z_FULL_FLUSH) + std::string(100, '\xFF');
  entry.compressed = static_cast<std::uint32_t>(entry.data.length());
  entry.size = 30000;
  Predicted predicted({entry});
  EXPECT_EQ(predicted.prediction.entries[0].end, DataEnd::Damaged);
  EXPECT_EQ(predicted.prediction.entries[0].size, 16384U);
  EXPECT_TRUE(predicted.IsRight());
}

TEST(Prediction, FileWithAWrongChecksumIsWrittenCompletely) {
  ZipEntry entry("f", "text");
  entry.crc = 1;
  Predicted predicted({entry});
  EXPECT_EQ(predicted.prediction.entries[0].action, Action::WriteFile);
  EXPECT_EQ(predicted.prediction.entries[0].end, DataEnd::WrongCrc);
  EXPECT_TRUE(predicted.IsRight());
}

TEST(Prediction, LongNameIsKeptUpTo511Bytes) {
  Predicted predicted({{std::string(600, 'n'), "x"}});
  EXPECT_EQ(predicted.prediction.entries[0].name, std::string(511, 'n'));
  EXPECT_EQ(predicted.prediction.entries[0].nameLength, 600U);
}

TEST(Prediction, DataThatTheFileDoesNotHoldIsDamaged) {
  ZipEntry entry("f", "text");
  entry.size = entry.compressed = 5000;
  Predicted predicted({entry});
  EXPECT_EQ(predicted.prediction.entries[0].end, DataEnd::Damaged);
  EXPECT_TRUE(predicted.IsRight());
}

TEST(Prediction, EntryThatCannotBeOpenedDoesNotEmptyAnEarlierFile) {
  ZipEntry unopened("f", "x");
  unopened.localSignature = 0;
  Predicted predicted({{"f", "text"}, unopened});
  EXPECT_FALSE(predicted.prediction.entries[0].replacedBy);
  EXPECT_TRUE(predicted.IsRight());
}

TEST(Prediction, ChecksumOfEachFileIsTheChecksumOfItsData) {
  Predicted predicted({{"f", "text", kDeflated}});
  EXPECT_EQ(ItemsOf(predicted.prediction.tree)[0].node->crc32, Crc("text"));
}

/// Returns an archive with one file "f" and a comment.
std::string Commented(const std::string& comment) {
  std::string bytes = Zip({{"f", "text"}});
  bytes[bytes.length() - 2] = static_cast<char>(comment.length() & 0xFFU);
  bytes[bytes.length() - 1] = static_cast<char>(comment.length() >> 8U);
  return bytes + comment;
}

TEST(Prediction, ArchiveWithACommentOf65514BytesIsNotFound) {
  Predicted found(Commented(std::string(65513, 'c')));
  EXPECT_EQ(found.Paths(), Paths{"f"});
  EXPECT_TRUE(found.IsRight());
  Predicted notFound(Commented(std::string(65514, 'c')));
  EXPECT_EQ(notFound.Paths(), Paths{});
  EXPECT_TRUE(notFound.IsRight());
}

TEST(Prediction, LastEndOfCentralDirectoryRecordCountsEvenInAComment) {
  Predicted other(Commented(Zip({{"other", "x"}})));
  EXPECT_EQ(other.Paths(), Paths{"other"});
  EXPECT_TRUE(other.IsRight());
  Predicted signature(Commented("see PK\5\6 here"));
  EXPECT_EQ(signature.Paths(), Paths{});
  EXPECT_TRUE(signature.IsRight());
}

TEST(Prediction, ChecksumOfDamagedDataIsTheChecksumOfTheReadablePart) {
  ZipEntry early("f", "text");
  early.size = 9;
  Predicted predicted({early});
  EXPECT_EQ(predicted.prediction.entries[0].end, DataEnd::Early);
  EXPECT_EQ(ItemsOf(predicted.prediction.tree)[0].node->crc32,
            Crc(std::string("text").substr(0, predicted.prediction.entries[0].size)));
}

TEST(Prediction, EachEntryIsReadOnce) {
  ScopedDirectory directory;
  WriteFile(directory / "zip", Zip({{"a", "one"}, {"d/b", "two", kDeflated}, {"a", "three"}}));
  std::string read;
  PackageReader package(directory / "zip");
  Predict(package, 0, [&read](std::size_t entry, const char* bytes, std::size_t length) {
    read += std::to_string(entry) + std::string(bytes, length) + " ";
  });
  EXPECT_EQ(read, "0one 1two 2three ");
}

TEST(Prediction, ExtractionThatMissesAFileIsSeen) {
  // The file cannot be made. The extraction reads no data of the file, and the prediction reads all
  // data.
  Predicted predicted({{"f", "text", kDeflated}});
  std::string destination = predicted.directory / "destination";
  std::filesystem::create_directories(destination + "/f");
  PackageReader package(predicted.path);
  const Prediction whileExtracting = PredictAndExtract(package, 0, destination);
  EXPECT_EQ(whileExtracting.entries[0].size, 4U);
  const Differences differences =
      OfContent(Compare(TreeOf(whileExtracting), ReadTree(destination, Checksum::Crc32)));
  ASSERT_EQ(differences.size(), 1U);
  EXPECT_EQ(differences[0].kind, Difference::Kind::Type);
}

/// Returns whether `read`, which sends a signal to this process, throws an Error.
bool IsStopped(const std::function<void()>& read) {
  return InChild([&read] {
    CatchInterruptions();
    try {
      read();
      return false;
    } catch (const Error& error) {
      return error.reason() == "interrupted";
    }
  });
}

TEST(Prediction, IsStoppedInTheMiddleOfAnEntry) {
  Predicted predicted({{"a", std::string(5 * PackageReader::kChunkSize, 'x')}});
  EXPECT_TRUE(IsStopped([&predicted] {
    PackageReader package(predicted.path);
    int chunks = 0;
    const ChunkSink stop = [&chunks](std::size_t, const char*, std::size_t) {
      raise(SIGTERM);
      ASSERT_EQ(++chunks, 1);
    };
    Predict(package, 0, stop);
  }));
}

TEST(Prediction, ExtractionIsStoppedInTheMiddleOfAnEntry) {
  Predicted predicted({{"a", std::string(5 * PackageReader::kChunkSize, 'x')}, {"b", "2"}});
  const std::string destination = predicted.directory / "destination";
  EXPECT_TRUE(IsStopped([&] {
    PackageReader package(predicted.path);
    raise(SIGTERM);
    PredictAndExtract(package, 0, destination);
  }));
  EXPECT_EQ(std::filesystem::file_size(destination + "/a"), 0U);
  EXPECT_FALSE(IsThere(destination + "/b"));
}

TEST(Compare, EachKindOfDifferenceIsFound) {
  Predicted predicted({{"d/", ""},
                       {"d/missing", "x"},
                       {"differs", "1"},
                       {"longer", "1"},
                       {"type", "x"},
                       {"gone/", ""},
                       {"gone/f", "x"}});
  ASSERT_TRUE(predicted.IsRight());
  const std::string tree = predicted.directory / "destination/";
  namespace fs = std::filesystem;
  fs::remove(tree + "d/missing");
  WriteFile(tree + "differs", "2");
  WriteFile(tree + "longer", "12");
  fs::remove(tree + "type");
  fs::create_symlink("longer", tree + "type");
  fs::remove_all(tree + "gone");
  WriteFile(tree + "d/extra", "");
  const auto listed = [](const std::vector<Difference>& differences) {
    std::string found;
    for (const Difference& difference : differences) {
      found += std::to_string(static_cast<int>(difference.kind)) + " " + difference.path + "\n";
    }
    return found;
  };
  const std::string expected = "1 d/extra\n0 d/missing\n3 differs\n0 gone\n3 longer\n2 type\n";
  const std::string destination = predicted.directory / "destination";
  EXPECT_EQ(listed(CompareWithPackage(predicted.path, destination)), expected);
  EXPECT_EQ(listed(Topmost(OfContent(
                Compare(TreeOf(predicted.prediction), ReadTree(destination, Checksum::Crc32))))),
            expected);
}

}  // namespace
