// Each difference between an installation and a bundle is found, and no other difference.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <csignal>
#include <map>
#include <memory>
#include <regex>

#include "BundlePrograms.h"
#include "Descriptor.h"
#include "FailingCall.h"
#include "InstallerConstants.h"
#include "InstallerUtils.h"
#include "OSUtils.h"
#include "PreferencesDomain.h"
#include "Support.h"
#include "ZipBuilder.h"
#include "commands/Commands.h"
#include "machine/Access.h"
#include "machine/HostCheck.h"
#include "machine/InstallPlan.h"
#include "machine/Receipt.h"
#include "report/Rules.h"
#include "support/Files.h"
#include "support/Text.h"

using namespace webresources;

namespace {

namespace fs = std::filesystem;

/// A bundle, and a root with the bundle's installation as a run leaves it.
class VerifyTest : public testing::Test {
 protected:
  VerifyTest() {
    fs::create_directories(resources_);
    MakeProgram(directory_ / "X.app");
    WriteFile(resources_ + kPackageFileName, Zip({{"d/", ""}, {"d/f", "text"}, {"g", "x"}}));
    WriteFile(resources_ + kMetadataFileName, R"({"clear":false,"updateid":7,"regenerate":false})");
    std::string package = resources_ + kPackageFileName;
    std::string destination = installRoot_ + kFinalName;
    InstallerUtils::UncompressPackageFiles(package, destination);
    record_.SetText("tWebResourceInstallPath", kFinalName);
    record_.SetNumber("iUpdateId", 7);
    record_.SetText("tFullVersion", OSUtils::CompleteVersion(7));
    record_.SetNumber("irandom", 42);
    record_.Flush();
    options_.hostRoot = directory_ / "root";
    options_.bundle = directory_ / "X.app";
  }
  ~VerifyTest() override { record_.Flush(); }

  std::string Found() {
    record_.Flush();
    std::string found;
    for (const Finding& finding : Verify(options_).findings) {
      found += std::string(finding.rule->id) + " " + finding.subject + "\n";
    }
    return found;
  }

  /// Returns the findings with their reasons.
  std::string Told() {
    record_.Flush();
    std::string told;
    for (const Finding& finding : Verify(options_).findings) {
      told += std::string(finding.rule->id) + " " + finding.subject + " " + finding.reason + "\n";
    }
    return told;
  }

  std::string FoundWithMode(const std::string& path, mode_t mode) {
    record_.Flush();
    EXPECT_EQ(chmod(path.c_str(), mode), 0) << path;
    return Told();
  }

  /// Returns the path of `path` on the host.
  std::string Host(const std::string& path) const { return options_.hostRoot + path; }

  /// Returns the findings without a bundle.
  std::string FoundAlone() {
    options_.bundle.reset();
    return Found();
  }

  /// Writes the receipt as `install` does.
  void WriteReceiptOfTheBundle() const {
    const ExpectedBundle bundle = ReadBundle(*options_.bundle, {}, options_.limits);
    Receipt receipt;
    receipt.updateId = 7;
    receipt.packageSha256 = bundle.packageSha256.value();
    receipt.tree = bundle.tree;
    AtomicFile file(ReceiptPath(options_.hostRoot));
    WriteReceipt(file, receipt);
  }

  std::string RecordPath() const {
    return directory_ / "root/Library/Preferences/" + PLIST_SECTION_KEY + ".plist";
  }

  /// To install where nothing was ever installed. The record cannot be read: it is a directory.
  HostOptions OnAFreshHost() {
    fs::remove_all(directory_ / "root");
    fs::create_directories(RecordPath());
    HostOptions options;
    options.hostRoot = options_.hostRoot;
    options.bundle = *options_.bundle;
    return options;
  }

  ScopedDirectory directory_;
  std::string resources_ = directory_ / "X.app/Contents/Resources/";
  std::string installRoot_ = directory_ / ("root" + OSUtils::GetPellamResourceDirectory());
  std::string installed_ = installRoot_ + kFinalName + "/";
  PreferencesDomain record_{PLIST_SECTION_KEY, directory_ / "root"};
  HostOptions options_;
};

TEST_F(VerifyTest, InstalledBundleIsCorrect) {
  EXPECT_EQ(Found(), "");
  EXPECT_EQ(FoundAlone(), "");
}

TEST_F(VerifyTest, FileOfTheFinderIsNoFinding) {
  WriteFile(installed_ + "d/.DS_Store", "x");
  WriteFile(installRoot_ + ".DS_Store", "x");
  EXPECT_EQ(Found(), "");
  EXPECT_EQ(FoundAlone(), "");
}

TEST_F(VerifyTest, FlippedByteIsFound) {
  WriteFile(installed_ + "d/f", "texu");
  EXPECT_EQ(Found(), "file-differs Resource0/d/f\n");
}

TEST_F(VerifyTest, MissingFileIsFound) {
  fs::remove(installed_ + "g");
  EXPECT_EQ(Found(), "file-missing Resource0/g\n");
}

TEST_F(VerifyTest, ExtraFileIsFound) {
  WriteFile(installed_ + "d/extra", "");
  EXPECT_EQ(Found(), "file-extra Resource0/d/extra\n");
}

TEST_F(VerifyTest, ModesThatARunDoesNotGiveAreFoundUnlessIgnored) {
  for (const mode_t mode : {0400U, 0600U, 0664U, 0646U, 04644U, 02644U}) {
    chmod((installed_ + "g").c_str(), mode);
    EXPECT_EQ(Found(), "mode-differs Resource0/g\n") << std::oct << mode;
  }
  options_.ignoresModes = true;
  EXPECT_EQ(Found(), "");
}

TEST_F(VerifyTest, DirectoriesThatOthersCannotEnterOrCanWriteToAreFound) {
  const std::string above = fs::path(installRoot_).parent_path().parent_path();
  for (const mode_t mode : {0700U, 0751U, 0754U, 0757U, 0775U, 01775U}) {
    chmod(above.c_str(), mode);
    EXPECT_EQ(Found(), "mode-differs " + above + "\n") << std::oct << mode;
  }
  chmod(above.c_str(), 0700);
  chmod((installed_ + "d").c_str(), 0750);
  chmod(installed_.c_str(), 0777);
  const std::string found =
      "mode-differs " + above + "\nmode-differs Resource0/.\nmode-differs Resource0/d\n";
  EXPECT_EQ(Found(), found);
  EXPECT_EQ(FoundAlone(), "mode-differs " + above + "\n");  // there is no receipt
}

TEST_F(VerifyTest, InstallRootThatItsGroupCanWriteToIsFound) {
  const std::string root = installRoot_.substr(0, installRoot_.length() - 1);
  chmod(root.c_str(), 0775);
  EXPECT_EQ(Found(), "mode-differs " + root + "\n");
}

TEST_F(VerifyTest, ApplicationSupportThatOthersCannotEnterIsFoundWithTheCommand) {
  EXPECT_EQ(FoundWithMode(Host("/Library/Application Support"), 0700),
            "directory-access " + Host("/Library/Application Support") +
                " other users cannot read it: chmod go+rx " +
                ShellQuoted(Host("/Library/Application Support")) + "\n");
}

TEST_F(VerifyTest, ApplicationSupportThatOthersCanWriteToIsFoundWithTheCommand) {
  EXPECT_EQ(FoundWithMode(Host("/Library/Application Support"), 0777),
            "directory-access " + Host("/Library/Application Support") +
                " other users can write to it: chmod go-w " +
                ShellQuoted(Host("/Library/Application Support")) + "\n");
}

TEST(HostState, FindingsStandInTheOrderOfTheMembers) {
  HostState host;
  Add(host.hostFindings, kDirectoryAccess, "third", "");
  Add(host.receiptFindings, kReceiptDamaged, "second", "");
  Add(host.findings, kModeDiffers, "first", "");
  std::string subjects;
  for (const Finding& finding : host.AllFindings()) {
    subjects += finding.subject + " ";
  }
  EXPECT_EQ(subjects, "first second third ");
}

TEST_F(VerifyTest, EachDirectoryOfTheHostIsExamined) {
  for (const char* path :
       {"/", "/Library", "/Library/Application Support", "/Library/Preferences"}) {
    EXPECT_EQ(FoundWithMode(Host(path), 0755), "") << path;
    for (const mode_t mode : {0700U, 0757U, 0775U}) {
      EXPECT_NE(FoundWithMode(Host(path), mode), "") << path;
      EXPECT_EQ(Status(options_).findings.size(), 1U) << path;
    }
    chmod(Host(path).c_str(), 0755);
  }
}

TEST_F(VerifyTest, RecordThatOthersCannotReadIsFound) {
  EXPECT_EQ(FoundWithMode(RecordPath(), 0600),
            "mode-differs " + RecordPath() + " other users cannot read it\n");
}

TEST_F(VerifyTest, RecordThatOthersCanWriteToIsFound) {
  EXPECT_EQ(FoundWithMode(RecordPath(), 0666),
            "mode-differs " + RecordPath() + " other users can write to it\n");
}

TEST_F(VerifyTest, ReceiptThatOthersCanWriteToOrNotReadIsFound) {
  WriteReceiptOfTheBundle();
  for (const mode_t mode : {0600U, 0664U}) {
    EXPECT_EQ(FoundWithMode(ReceiptPath(options_.hostRoot), mode).substr(0, 12), "mode-differs");
  }
}

TEST_F(VerifyTest, WrongOwnersOfRecordAndDirectoriesAreFoundUnlessIgnored) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give files away";
  }
  const std::string root = installRoot_.substr(0, installRoot_.length() - 1);
  for (const std::string& path : {root, ParentOf(root), RecordPath()}) {
    ASSERT_EQ(chown(path.c_str(), 1234, 1234), 0);
    EXPECT_EQ(Told(), "owner-differs " + path + " its owner is user 1234\n");
    options_.ignoresModes = true;
    EXPECT_EQ(Told(), "");
    options_.ignoresModes = false;
    ASSERT_EQ(chown(path.c_str(), 0, 0), 0);
  }
  ASSERT_EQ(chown(Host("/Library").c_str(), 1234, 1234), 0);
  EXPECT_EQ(Told(), "directory-access " + Host("/Library") +
                        " its owner is user 1234: chown root " + ShellQuoted(Host("/Library")) +
                        "\n");
}

TEST_F(VerifyTest, OwnerOfTheHostsRootAndRootAreExpectedWhoeverAsks) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give files away";
  }
  ASSERT_EQ(chown(Host("").c_str(), 1234, 1234), 0);
  EXPECT_EQ(Told(), "");  // root owns the other entries
  for (const auto& entry : fs::recursive_directory_iterator(Host(""))) {
    ASSERT_EQ(chown(entry.path().c_str(), 1234, 1234), 0);
  }
  EXPECT_EQ(Told(), "");
  ASSERT_EQ(chown((installed_ + "g").c_str(), 1235, 1235), 0);
  ASSERT_EQ(chown(RecordPath().c_str(), 1235, 1235), 0);
  record_.Flush();
  EXPECT_EQ(Told(), "owner-differs " + RecordPath() +
                        " its owner is user 1235\n"
                        "owner-differs Resource0/g its owner is user 1235 instead of 1234\n");
}

TEST_F(VerifyTest, StickyDirectoryOfTheHostIsNoFinding) {
  EXPECT_EQ(FoundWithMode(Host("/Library"), 01777), "");
}

TEST_F(VerifyTest, SetGroupIdBitOfADirectoryIsNoFinding) {
  for (const std::string& path :
       {Host("/Library"), ParentOf(installRoot_), installed_, installed_ + "d"}) {
    EXPECT_EQ(FoundWithMode(path, 02755), "") << path;
  }
}

TEST_F(VerifyTest, CommandOfAFindingIsQuotedForAShell) {
  const std::string host = directory_ / "a\"$`\\b";
  fs::rename(Host(""), host);
  options_.hostRoot = host;
  const std::string found = FoundWithMode(host + "/Library", 0777);
  EXPECT_NE(found.find(" '" + host + "/Library'\n"), std::string::npos) << found;
}

TEST_F(VerifyTest, FileInThePlaceOfADirectoryHasNoModeToCompare) {
  fs::remove_all(installRoot_);
  fs::remove(ParentOf(ParentOf(installRoot_)));
  WriteFile(ParentOf(ParentOf(installRoot_)), "");
  EXPECT_EQ(Found().find("mode-differs"), std::string::npos);
}

TEST_F(VerifyTest, WrongOwnerIsFoundUnlessIgnored) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give files away";
  }
  ASSERT_EQ(chown((installed_ + "g").c_str(), 1234, 1234), 0);
  EXPECT_EQ(Found(), "owner-differs Resource0/g\n");
  options_.ignoresModes = true;
  EXPECT_EQ(Found(), "");
}

TEST_F(VerifyTest, FileInThePlaceOfTheInstallRootIsFound) {
  fs::remove_all(installRoot_);
  WriteFile(installRoot_.substr(0, installRoot_.length() - 1), "");
  EXPECT_EQ(Found(), "root-blocked " + installRoot_ + "\n");
}

TEST_F(VerifyTest, UpdateNumberMinusOneThatIsNotRecordedIsFound) {
  WriteFile(resources_ + kMetadataFileName, R"({"clear":false,"updateid":-1,"regenerate":false})");
  record_.SetText("tFullVersion", OSUtils::CompleteVersion(-1));
  record_.SetNumber("iUpdateId", -1);
  EXPECT_EQ(Found(), "");
  record_.Remove("iUpdateId");
  EXPECT_EQ(Found(), "record-missing update number\n");
}

TEST_F(VerifyTest, ErrorsOfThePackageCount) {
  WriteFile(resources_ + kPackageFileName, Zip({{"d/", ""}, {"d/f", "text"}, {"g", "x"}}) + "x");
  EXPECT_EQ(Found(), "");  // a warning is no finding
  std::string cut = Zip({{"d/", ""}, {"d/f", "text"}, {"g", "x"}});
  WriteFile(resources_ + kPackageFileName, cut.substr(0, cut.length() - 30));
  EXPECT_EQ(Found().substr(0, 18), "package-unreadable");
  EXPECT_EQ(InstallCheck(options_).status, 2);
}

TEST_F(VerifyTest, InstallCheckOfANewerInstalledUpdateIsNotNeeded) {
  record_.SetNumber("iUpdateId", 8);
  record_.Flush();
  EXPECT_EQ(InstallCheck(options_).status, 1);
}

TEST_F(VerifyTest, LinkInAFilesPlaceIsFound) {
  fs::rename(installed_ + "g", directory_ / "elsewhere");
  fs::create_symlink(directory_ / "elsewhere", installed_ + "g");
  EXPECT_EQ(Found(), "file-type Resource0/g\n");
}

TEST_F(VerifyTest, LeftoversBesideTheDirectoryAreFound) {
  fs::create_directory(installRoot_ + "Resource1");
  WriteFile(installRoot_ + "x", "");
  const std::string leftovers =
      "leftover " + installRoot_ + "Resource1\nleftover " + installRoot_ + "x\n";
  EXPECT_EQ(Found(), leftovers);
  EXPECT_EQ(FoundAlone(), leftovers);
}

TEST_F(VerifyTest, EachChangedValueOfTheRecordIsFound) {
  const auto foundWith = [this](auto set) {
    set();
    std::string found = Found();
    record_.SetNumber("iUpdateId", 7);
    record_.SetText("tFullVersion", OSUtils::CompleteVersion(7));
    record_.SetText("tWebResourceInstallPath", kFinalName);
    return found;
  };
  EXPECT_EQ(foundWith([this] { record_.SetNumber("iUpdateId", 8); }),
            "record-differs update number\n");
  EXPECT_EQ(foundWith([this] { record_.SetText("tFullVersion", "17.011.30138.8"); }),
            "record-differs full version\n");
  EXPECT_EQ(foundWith([this] { record_.SetText("tWebResourceInstallPath", "Resource4"); }),
            "record-directory installed directory\n");
  for (const char* path : {"../Resource0", ".", ".."}) {
    EXPECT_EQ(foundWith([&] { record_.SetText("tWebResourceInstallPath", path); }),
              "record-directory installed directory\n")
        << path;
  }
  EXPECT_EQ(foundWith([this] { record_.SetNumber("irandom", 10001); }),
            "record-random random identifier\n");
  EXPECT_EQ(foundWith([this] { record_.SetNumber("irandom", 0); }),
            "record-random random identifier\n");
}

TEST_F(VerifyTest, EachMissingValueOfTheRecordIsFound) {
  const std::pair<const char*, const char*> values[] = {
      {"tWebResourceInstallPath", "installed directory"},
      {"iUpdateId", "update number"},
      {"tFullVersion", "full version"},
      {"irandom", "random identifier"}};
  std::string expected;
  for (const auto& [key, name] : values) {
    record_.Remove(key);
    expected += std::string("record-missing ") + name + "\n";
    EXPECT_EQ(Found(), expected);
  }
}

TEST_F(VerifyTest, ValueOfAnotherTypeIsReportedWithItsType) {
  record_.SetText("iUpdateId", "7");
  EXPECT_EQ(Found(), "record-type update number\n");
  record_.SetNumber("iUpdateId", 7);
  record_.SetText("irandom", "42");
  EXPECT_EQ(Found(), "record-type random identifier\n");
}

TEST_F(VerifyTest, VersionThatContradictsTheUpdateNumberIsFoundWithoutABundle) {
  record_.SetNumber("iUpdateId", 8);
  EXPECT_EQ(FoundAlone(), "record-version full version\n");
}

TEST_F(VerifyTest, RecordOfAMissingDirectoryIsFoundWithoutABundle) {
  record_.SetText("tWebResourceInstallPath", "Resource4");
  EXPECT_EQ(FoundAlone(), "record-directory installed directory\n");
}

TEST_F(VerifyTest, NumberedDirectoryThatIsRecordedIsComparedAndFound) {
  fs::rename(installed_, installRoot_ + "Resource1");
  WriteFile(installRoot_ + "Resource1/g", "y");
  record_.SetText("tWebResourceInstallPath", "Resource1");
  EXPECT_EQ(Found(), "record-differs installed directory\nfile-differs Resource1/g\n");
}

TEST_F(VerifyTest, NothingInstalledIsOneFinding) {
  fs::remove_all(directory_ / "root");
  fs::create_directory(directory_ / "root");
  EXPECT_EQ(Found(), "not-installed " + installRoot_ + "\n");
}

TEST_F(VerifyTest, OneRecordedValueAloneNeedsADirectory) {
  fs::remove_all(installRoot_);
  const auto foundWith = [this](auto set) {
    for (const char* key : {"tWebResourceInstallPath", "iUpdateId", "tFullVersion", "irandom"}) {
      record_.Remove(key);
    }
    set();
    return Found().find("not-installed " + installRoot_ + "Resource0\n");
  };
  EXPECT_NE(foundWith([this] { record_.SetNumber("irandom", 42); }), std::string::npos);
  EXPECT_NE(foundWith([this] { record_.SetNumber("iUpdateId", 7); }), std::string::npos);
  EXPECT_NE(foundWith([this] { record_.SetText("tFullVersion", "7"); }), std::string::npos);
  EXPECT_NE(foundWith([this] { record_.SetText("tWebResourceInstallPath", "Resource0"); }),
            std::string::npos);
  EXPECT_EQ(foundWith([] {}), std::string::npos);
}

TEST_F(VerifyTest, DirectoryGoneUnderItsRecordIsFound) {
  fs::remove_all(installed_);
  EXPECT_EQ(Found(), "not-installed " + installRoot_ + "Resource0\n");
  record_.SetText("tWebResourceInstallPath", "a/b");
  EXPECT_EQ(Found(),
            "record-directory installed directory\nnot-installed " + installRoot_ + "Resource0\n");
}

TEST_F(VerifyTest, RecordThatCannotBeReadGivesAnUnknownState) {
  const std::string record = RecordPath();
  fs::remove(record);
  fs::create_directory(record);
  EXPECT_THROW(Verify(options_), Error);
}

TEST_F(VerifyTest, MissingHostGivesAnUnknownState) {
  options_.hostRoot = directory_ / "none";
  EXPECT_THROW(Verify(options_), Error);
}

/// Returns a package that states more than 4 GiB, with entries that share their data.
std::string PackageThatCanHoldTooMuch() {
  std::vector<ZipEntry> entries{{"data", std::string(200000, 'x')}};
  for (int i = 0; i < 40; ++i) {
    ZipEntry& entry = entries.emplace_back(std::to_string(i), "", kDeflated);
    entry.compressed = entry.size = 0xFFFFFFFE;
  }
  return Zip(entries);
}

TEST_F(VerifyTest, PackageThatCanHoldTooMuchIsNotComparedWithTheTree) {
  WriteFile(installed_ + "g", "y");
  WriteFile(resources_ + kPackageFileName, PackageThatCanHoldTooMuch());
  EXPECT_EQ(Found(),
            "content-too-large OrloWebResources.zip\noverlapping-entries OrloWebResources.zip\n");
}

TEST_F(VerifyTest, FaultyMetadataGivesAnUnknownState) {
  WriteFile(resources_ + kMetadataFileName, "{}");
  EXPECT_THROW(Verify(options_), Error);
}

TEST_F(VerifyTest, InstallCheckTellsABundleThatCannotBeReadFromAHost) {
  EXPECT_EQ(InstallCheck(options_).status, 1);
  WriteFile(installed_ + "g", "y");
  EXPECT_EQ(InstallCheck(options_).status, 0);
  options_.bundle = directory_ / "nowhere";
  const Report report = InstallCheck(options_);
  EXPECT_EQ(report.status, 2);
  EXPECT_NE(report.summary.back().find("nowhere"), std::string::npos);
}

TEST_F(VerifyTest, InstallCheckTellsAHostThatCannotBeReadFromABundle) {
  fs::create_directories(ReceiptPath(options_.hostRoot));
  EXPECT_EQ(InstallCheck(options_).status, 3);
  fs::remove(ReceiptPath(options_.hostRoot));
  EXPECT_EQ(InstallCheck(options_).status, 1);
  fs::remove(RecordPath());
  fs::create_directories(RecordPath());
  EXPECT_EQ(InstallCheck(options_).status, 3);
}

TEST_F(VerifyTest, PlanSaysWhenRootIsNeeded) {
  WriteFile(installed_ + "g", "changed");
  HostOptions options;
  options.hostRoot = options_.hostRoot;
  options.bundle = *options_.bundle;
  record_.Flush();
  const FailingCall counted("access", EACCES, INT_MAX);
  const Report report = Plan(options);
  EXPECT_EQ(report.details["needsRoot"], false);
  const int last = counted.Count();
  for (const int call : {last - 1, last}) {
    const FailingCall denied("access", EACCES, call, call);
    EXPECT_EQ(Plan(options).details["needsRoot"], true);
  }
  const FailingCall full("access", EROFS, last);
  EXPECT_EQ(Plan(options).details["needsRoot"], false);
}

TEST_F(VerifyTest, InstallCheckCountsTheReceiptsFindings) {
  WriteFile(ReceiptPath(options_.hostRoot), "{}");
  const Report report = InstallCheck(options_);
  EXPECT_EQ(report.status, 0);
  ASSERT_EQ(report.findings.size(), 1U);
  EXPECT_EQ(report.findings[0].rule, &kReceiptDamaged);
}

TEST_F(VerifyTest, PlanReadsTheContentOfInstalledFiles) {
  WriteFile(installed_ + "g", "y");  // as long as before
  HostOptions options;
  options.hostRoot = options_.hostRoot;
  options.bundle = *options_.bundle;
  record_.Flush();
  const Report report = Plan(options);
  EXPECT_EQ(report.details["files"]["changed"], 1);
  EXPECT_EQ(report.details["files"]["unchanged"], 1);
}

TEST_F(VerifyTest, RootsReserveIsNotFree) {
  const FailingCall fault("statvfs", FailingCall::kShort);
  const FreeSpace free = FreeSpaceAt(directory_ / "");
  EXPECT_EQ(free.bytes, 0U);
  EXPECT_EQ(free.files, 0U);
}

// Without a bundle, and before an installation ----------------------------------------------------

TEST_F(VerifyTest, StatusWithoutAReceiptSaysThatOnlyTheRecordWasCompared) {
  struct stat status = {};
  ASSERT_EQ(stat(installed_.c_str(), &status), 0);
  HostOptions options;
  options.hostRoot = options_.hostRoot;
  const Report report = Status(options);
  EXPECT_EQ(report.status, 0);
  EXPECT_NE(report.summary.back().find("only the record was compared"), std::string::npos);
  EXPECT_EQ(report.details["since"], TimeText(status.st_mtime));
}

TEST_F(VerifyTest, PlanDrawsANewIdentifierForOneOutOfRange) {
  HostOptions options;
  options.hostRoot = options_.hostRoot;
  options.bundle = *options_.bundle;
  options.isForced = true;
  const auto random = [&options] { return Plan(options).details["recordAfter"]["random"]; };
  EXPECT_EQ(random(), 42);
  record_.SetNumber("irandom", 0);
  record_.Flush();
  EXPECT_EQ(random(), "drawn");
  record_.Remove("irandom");
  record_.Flush();
  EXPECT_EQ(random(), "drawn");
  const auto summary = Plan(options).summary;
  EXPECT_EQ(std::count(summary.begin(), summary.end(), "random identifier: a new one is drawn"), 1);
}

TEST_F(VerifyTest, StatusWithoutADirectoryCountsNoFiles) {
  fs::rename(installed_, installRoot_ + "other");
  EXPECT_EQ(Status(options_).details["files"], 0);
}

TEST_F(VerifyTest, PackageBeyondTheLimitsIsNotRead) {
  WriteReceiptOfTheBundle();
  const std::string receipt = ReceiptPath(options_.hostRoot);
  WriteFile(receipt, std::regex_replace(ReadFile(receipt), std::regex("0644"), "0600"));
  options_.limits = {4};
  EXPECT_EQ(Found(), "content-too-large OrloWebResources.zip\n");
  fs::remove(receipt);
  EXPECT_EQ(InstallCheck(options_).status, 2);
  EXPECT_EQ(Found(), "content-too-large OrloWebResources.zip\n");
  options_.limits = {5};
  EXPECT_EQ(InstallCheck(options_).status, 1);
}

TEST_F(VerifyTest, ReceiptStandsInForAPackageOfItsDigestAndOutline) {
  const ExpectedBundle bundle = ReadBundle(*options_.bundle, {}, options_.limits);
  Receipt receipt;
  receipt.packageSha256 = bundle.packageSha256.value();
  receipt.tree = bundle.tree;
  const auto standsIn = [&] {  // a digest that only the receipt has
    receipt.tree.back().sha256 = Sha256::Digest{};
    return ReadBundle(*options_.bundle, receipt, options_.limits).tree.back().sha256 ==
           Sha256::Digest{};
  };
  EXPECT_TRUE(standsIn());
  receipt.isOwnersOwn = false;
  EXPECT_FALSE(standsIn());
  receipt.isOwnersOwn = true;
  receipt.tree.back().mode = 0600;
  EXPECT_FALSE(standsIn());
  receipt.tree.back().mode = bundle.tree.back().mode;
  receipt.tree.back().size = std::uint64_t{1} << 60U;
  EXPECT_FALSE(standsIn());
  receipt.tree.back().size = bundle.tree.back().size;
  receipt.tree.back().size = bundle.tree.back().size;
  EXPECT_TRUE(standsIn());
  receipt.packageSha256->front() ^= 1;
  EXPECT_FALSE(standsIn());
}

TEST_F(VerifyTest, StatusAndPlanLookAtEachInstalledEntryOnce) {
  WriteReceiptOfTheBundle();
  for (const auto command : {Status, Plan}) {
    const FailingCall look(
        "fstatat", [] {}, 1, INT_MAX);
    EXPECT_EQ(command(options_).status, 0);
    EXPECT_EQ(look.Count(), 4);  // the top, d, d/f and g
  }
}

TEST_F(VerifyTest, InstallThatIsInterruptedBeforeTheInstallerRunsKeepsTheReceipt) {
  WriteReceiptOfTheBundle();
  const std::string path = ReceiptPath(options_.hostRoot);
  const std::string before = ReadFile(path);
  options_.isForced = true;
  for (const int number : {1, 2}) {  // the syncs of the receipt "begun" and of its directory
    EXPECT_TRUE(InChild([&] {
      const FailingCall signal(
          "fsync", [] { raise(SIGTERM); }, number, number);
      try {
        Install(options_);
      } catch (const CannotStart& error) {
        return error.reason() == "interrupted";
      }
      return false;
    })) << number;
    EXPECT_EQ(ReadFile(path), before) << number;
  }
}

TEST_F(VerifyTest, ReceiptOfAnotherUpdateIsReported) {
  Receipt receipt;
  receipt.updateId = 6;
  Findings findings;
  EXPECT_FALSE(FindInReceipt(receipt, ReadInstallation(options_.hostRoot), findings));
  record_.Remove("iUpdateId");
  record_.Flush();
  EXPECT_FALSE(FindInReceipt(receipt, ReadInstallation(options_.hostRoot), findings));
  EXPECT_EQ(findings[0].reason, "it is of update 6, and update 7 is recorded");
  EXPECT_EQ(findings[1].reason, "it is of update 6, and no update is recorded");
}

TEST(Receipt, TimeIsUtcInEveryTimeZone) {
  setenv("TZ", "TEST-05:30", 1);
  tzset();
  EXPECT_EQ(TimeText(1000000000), "2001-09-09T01:46:40Z");
  unsetenv("TZ");
  tzset();
}

// Reading a receipt -------------------------------------------------------------------------------

class ReceiptTest : public VerifyTest {
 protected:
  /// Replaces the receipt by the receipt of an installation that has begun.
  std::unique_ptr<AtomicFile> Begin() const {
    auto file = std::make_unique<AtomicFile>(ReceiptPath(options_.hostRoot));
    Receipt begun;
    begun.isBegun = true;
    begun.updateId = 8;
    WriteReceipt(*file, begun);
    return file;
  }

  static constexpr char kTree[] =
      R"([{"type":"directory","path":".","mode":"0755"},)"
      R"({"type":"file","path":"a","size":1,"mode":"0644","sha256":)"
      R"("0123456789012345678901234567890123456789012345678901234567890123"}])";

  void SetUp() override {
    VerifyTest::SetUp();
    members_ = {{"tool", R"("webresources")"},
                {"version", R"("any text")"},
                {"time", R"("2026-11-22T00:00:00Z")"},
                {"product", "\"" + PLIST_SECTION_KEY + "\""},
                {"updateId", "7"},
                {"packageSha256", "\"" + std::string(64, 'a') + "\""},
                {"tree", kTree}};
  }

  std::string Text() const {
    std::string text;
    for (const auto& [name, value] : members_) {
      text += (text.empty() ? "{\"" : ",\"") + name + "\":" + value;
    }
    return text + "}";
  }

  /// Returns the defect of a receipt with this text, or an empty string.
  std::string DefectOf(const std::string& text) const {
    WriteFile(ReceiptPath(options_.hostRoot), text);
    Findings findings;
    const auto receipt = ReadReceipt(options_.hostRoot, {}, findings);
    EXPECT_NE(receipt.has_value(), !findings.empty());
    return findings.empty() ? "" : findings.front().reason;
  }

  std::string DefectWith(const std::string& name, const std::string& value) {
    const auto before = members_;
    members_[name] = value;
    const std::string defect = DefectOf(Text());
    members_ = before;
    return defect;
  }

  std::map<std::string, std::string> members_;
};

TEST_F(ReceiptTest, WithoutFormatAndStateIsThatOfAnInstallation) {
  EXPECT_EQ(DefectOf(Text()), "");
  Findings findings;
  const auto receipt = ReadReceipt(options_.hostRoot, {}, findings);
  EXPECT_FALSE(receipt->isBegun);
  EXPECT_EQ(receipt->tree.size(), 2U);
}

TEST_F(ReceiptTest, WithAnythingButTheSchemaIsDamaged) {
  EXPECT_EQ(DefectWith("updateId", "7.9"), "a number is not an integer");
  EXPECT_EQ(DefectWith("updateId", "2147483648"), "a number is out of range");
  EXPECT_EQ(DefectWith("updateId", "18446744073709551615"), "a number is out of range");
  EXPECT_EQ(DefectWith("product", "\"other\""), "it is of another product");
  EXPECT_EQ(DefectWith("state", "\"other\""), "its state is unknown");
  EXPECT_EQ(DefectWith("extra", "1"), "a member is unknown");
  EXPECT_EQ(DefectWith("version", "1"), "the version is not a text");
  EXPECT_NE(DefectWith("packageSha256", "\"aa\""), "");
  EXPECT_NE(DefectWith("tree", "{}"), "");
  EXPECT_NE(DefectWith("tree", "[]"), "");
  EXPECT_NE(DefectWith("tree", "1"), "");
  EXPECT_NE(DefectWith("format", "[1]"), "");
  EXPECT_NE(DefectOf("1"), "");
  EXPECT_EQ(DefectOf("{\"tool\":1," + Text().substr(1)), "a member is there twice");
  EXPECT_EQ(DefectOf(Text().substr(1)), "it is not JSON: byte 16 is wrong");
  EXPECT_EQ(DefectOf(std::string(100000, '[')), "it nests too deep");
}

TEST_F(ReceiptTest, WithADamagedItemIsDamaged) {
  const std::string tree = kTree;
  const auto with = [&](const std::string& from, const std::string& to) {
    std::string changed = tree;
    return DefectWith("tree", changed.replace(changed.find(from), from.length(), to));
  };
  EXPECT_EQ(with("0644", "0644junk"), "a mode is not four octal digits");
  EXPECT_EQ(with("0644", "0684"), "a mode is not four octal digits");
  EXPECT_EQ(with("\"file\"", "\"fifo\""), "a type is unknown");
  EXPECT_EQ(with("\"a\"", "\"\""), "a path is no path");
  EXPECT_EQ(with("\"a\"", "\".\""), "the tree is empty or has a path twice");
  EXPECT_EQ(with("\"size\":1", "\"size\":-1"), "a number is out of range");
  EXPECT_EQ(with("\"size\":1", "\"other\":1"), "a member is unknown");
  EXPECT_EQ(with("\"size\":1", "\"size\":1,\"size\":1"), "a member is there twice");
  EXPECT_EQ(with("\"size\":1", "\"size\":[1]"), "it nests too deep");
  EXPECT_EQ(with("[", "[1,"), "a value is in a wrong place");
}

TEST_F(ReceiptTest, OfAnotherUpdateIsReadUpToTheTree) {
  const std::string path = ReceiptPath(options_.hostRoot);
  const std::string tree = std::string(",\"tree\":") + kTree;
  members_["format"] = "1";
  members_["state"] = R"("installed")";
  members_.erase("tree");
  const std::string head = Text().substr(0, Text().length() - 1);
  WriteFile(path, head + tree);  // truncated after the tree
  Findings findings;
  const auto receipt = ReadReceipt(options_.hostRoot, 8, findings);
  ASSERT_TRUE(receipt);
  EXPECT_EQ(receipt->updateId, 7);
  EXPECT_TRUE(receipt->tree.empty());
  EXPECT_FALSE(ReadReceipt(options_.hostRoot, 7, findings));
  EXPECT_FALSE(ReadReceipt(options_.hostRoot, {}, findings));
  members_.erase("format");
  WriteFile(path, Text().substr(0, Text().length() - 1) + tree + ",\"format\":2}");
  EXPECT_THROW(ReadReceipt(options_.hostRoot, 8, findings), Error);
  WriteFile(path, head + ",\"version\":1" + tree + "}");
  EXPECT_FALSE(ReadReceipt(options_.hostRoot, 8, findings));
  WriteFile(path, head + tree + "}");
  EXPECT_EQ(ReadReceipt(options_.hostRoot, 7, findings)->tree.size(), 2U);
}

TEST_F(ReceiptTest, OfANewerFormatIsNotRead) {
  for (const char* receipt : {R"({"format":2})", R"({"tool":"x","format":2,"new":[]})"}) {
    WriteFile(ReceiptPath(options_.hostRoot), receipt);
    try {
      Status(options_);
      ADD_FAILURE() << receipt;
    } catch (const Error& error) {
      EXPECT_EQ(error.reason(), "it was written by a newer webresources");
      EXPECT_EQ(error.remedy(), "use that version");
    }
  }
}

TEST_F(ReceiptTest, ThatCannotBeReadIsNotTreatedAsMissing) {
  const std::string path = ReceiptPath(options_.hostRoot);
  fs::create_directories(path);
  EXPECT_THROW(Status(options_), Error);
  EXPECT_EQ(InstallCheck(options_).status, 3);
  fs::remove(path);
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_THROW(Status(options_), Error);
  fs::remove(path);
  WriteFile(path, Text());
  fs::resize_file(path, (std::uint64_t{64} << 20U) + 1);
  EXPECT_THROW(Status(options_), Error);
}

TEST_F(ReceiptTest, WithoutATreeIsOfNoUseForTheContent) {
  members_.erase("tree");
  EXPECT_EQ(DefectOf(Text()), "");
  EXPECT_EQ(FoundAlone(), "");
  EXPECT_EQ(Verify(options_).details["comparedWith"], "record");
}

TEST_F(ReceiptTest, ThatTheDiskCannotReadIsReportedWithARemedy) {
  WriteFile(ReceiptPath(options_.hostRoot), Text());
  const std::string receipt = fs::canonical(ReceiptPath(options_.hostRoot));
  const auto damage = [&receipt] {  // a read of the system's file fails with EIO
    const Descriptor unreadable(open("/proc/self/mem", O_RDONLY | O_CLOEXEC));
    for (const auto& opened : fs::directory_iterator("/proc/self/fd")) {
      std::error_code ignored;
      if (fs::read_symlink(opened, ignored) == receipt) {
        dup2(*unreadable, std::stoi(opened.path().filename()));
      }
    }
  };
  const FailingCall fault("fstat", damage, 1, INT_MAX);
  try {
    Status(options_);
    ADD_FAILURE() << "it is read";
  } catch (const Error& error) {
    EXPECT_EQ(error.reason() + "; " + error.remedy().value(),
              "Input/output error; check the disk, then try again");
  }
}

TEST_F(ReceiptTest, OfAnotherOwnerIsNoProofOfTheInstalledFiles) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give files away";
  }
  WriteReceiptOfTheBundle();
  const std::string path = ReceiptPath(options_.hostRoot);
  const std::string digest = "\"sha256\":\"";
  std::string text = ReadFile(path);
  WriteFile(path, text.replace(text.find(digest) + digest.length(), 4, "0000"));
  EXPECT_EQ(Found(), "file-differs Resource0/d/f\n");  // the digest of the receipt
  ASSERT_EQ(chown(path.c_str(), 1234, 1234), 0);
  EXPECT_EQ(Found(), "owner-differs " + path + "\n");  // the digest of the package
}

TEST_F(ReceiptTest, OfABegunInstallationIsAFinding) {
  const auto receipt = Begin();
  const Report report = Status(options_);
  EXPECT_EQ(report.status, 1);
  EXPECT_EQ(report.findings.back().rule, &kInstallUnfinished);
  EXPECT_EQ(report.details["receipt"]["state"], "begun");
  EXPECT_EQ(report.details["receipt"]["updateId"], 8);
  EXPECT_EQ(Verify(options_).findings.back().rule, &kInstallUnfinished);
  EXPECT_EQ(InstallCheck(options_).status, 0);
}

TEST_F(ReceiptTest, OfABegunInstallationGivesTheBytesBefore) {
  const std::string path = ReceiptPath(options_.hostRoot);
  WriteFile(path, Text());
  Begin()->Rollback();
  EXPECT_EQ(ReadFile(path), Text());
  fs::remove(path);
  Begin()->Rollback();
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(VerifyTest, IdentifierThatIsValidAtTheSecondReadIsKept) {
  Installation seen = ReadInstallation(options_.hostRoot);
  seen.record.values.random = 0;
  RepairWhatARunKeeps(seen, false);
  EXPECT_EQ(ReadRecord(options_.hostRoot).value().values.random, 42);
}

TEST_F(VerifyTest, IdentifierOutOfRangeIsRemoved) {
  record_.SetNumber("irandom", 0);
  record_.Flush();
  RepairWhatARunKeeps(ReadInstallation(options_.hostRoot), false);
  EXPECT_EQ(ReadRecord(options_.hostRoot).value().values.random, -1);
}

TEST_F(VerifyTest, FailedRepairIsReported) {
  record_.SetNumber("irandom", 0);
  record_.Flush();
  const Installation installation = ReadInstallation(options_.hostRoot);
  {
    const FailingCall fault("renameat", EIO);
    try {
      RepairWhatARunKeeps(installation, false);
      ADD_FAILURE() << "it is removed";
    } catch (const Error& error) {
      EXPECT_EQ(error.what(), "cannot write " + RecordLocation(options_.hostRoot) +
                                  ": the random identifier cannot be removed");
    }
  }
  chmod(fs::path(installRoot_).parent_path().c_str(), 0700);
  for (const char* call : {"fchmod", "fstat", "open"}) {
    const FailingCall fault(call, EPERM);
    EXPECT_THROW(RepairAccess(options_.hostRoot), Error) << call;
  }
}

TEST_F(VerifyTest, AccessToTheProductsDirectoriesIsRepaired) {
  WriteReceiptOfTheBundle();
  record_.Flush();
  const std::string root = installRoot_.substr(0, installRoot_.length() - 1);
  const std::string veltrane = ParentOf(ParentOf(ParentOf(root)));
  for (const mode_t mode : {0700U, 0777U}) {
    for (const std::string& path : {veltrane, root, RecordPath(), ReceiptPath(options_.hostRoot)}) {
      chmod(path.c_str(), mode);
      EXPECT_NE(Found(), "");
    }
    RepairWhatARunKeeps(ReadInstallation(options_.hostRoot), true);
    EXPECT_NE(Found(), "");
    RepairWhatARunKeeps(ReadInstallation(options_.hostRoot), false);
    EXPECT_EQ(Found(), "");
  }
}

TEST_F(VerifyTest, WrongOwnerOfTheProductsDirectoriesIsRepaired) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give files away";
  }
  record_.Flush();
  for (const std::string& path : {RecordPath(), ParentOf(ParentOf(installRoot_))}) {
    ASSERT_EQ(chown(path.c_str(), 1234, 1234), 0);
  }
  RepairAccess(options_.hostRoot);
  EXPECT_EQ(Found(), "");
}

TEST_F(VerifyTest, RepairChangesNothingBehindALinkOrAnotherName) {
  record_.Flush();
  const std::string outside = directory_ / "outside";
  fs::create_hard_link(RecordPath(), directory_ / "name");
  fs::remove_all(ParentOf(ParentOf(installRoot_)));
  fs::create_directory(outside);
  fs::create_symlink(outside, ParentOf(ParentOf(installRoot_)));
  chmod(outside.c_str(), 0700);
  chmod(RecordPath().c_str(), 0600);
  RepairAccess(options_.hostRoot);
  EXPECT_EQ(StatusOf(outside).st_mode & 07777U, 0700U);
  EXPECT_EQ(StatusOf(RecordPath()).st_mode & 07777U, 0600U);
}

TEST_F(VerifyTest, InstallThatCannotReadTheRecordOfAFreshHostTouchesNothing) {
  EXPECT_THROW(Install(OnAFreshHost()), Error);
  EXPECT_FALSE(IsThere(directory_ / "root/Library/Application Support"));
}

/// Returns whether a process holds the lock at `path`.
bool IsLocked(const std::string& path) {
  const Descriptor lock(open(path.c_str(), O_RDWR | O_CLOEXEC));
  return lock && flock(*lock, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

TEST_F(VerifyTest, LockIsHeldWhileTheInstallationIsVerifiedAndTheReceiptWritten) {
  record_.Flush();
  const std::string ran = directory_ / "ran";
  const std::string program = directory_ / "X.app/Contents/MacOS/WebResourceInstaller";
  fs::create_directory(ParentOf(program));
  WriteFile(program, "#!/bin/sh\n: >'" + ran + "'\n");
  chmod(program.c_str(), 0755);
  HostOptions options;
  options.hostRoot = options_.hostRoot;
  options.bundle = *options_.bundle;
  options.isForced = true;
  for (const char* call : {"fstatat", "fsync"}) {  // calls of the verification and of the receipt
    fs::remove(ran);
    int looks = 0;
    const auto look = [&] {
      if (IsThere(ran)) {
        ++looks;
        EXPECT_TRUE(IsLocked(BesideInstallRoot(options_.hostRoot, ".WebResources.lock"))) << call;
      }
    };
    const FailingCall fault(call, look, 1, INT_MAX);
    EXPECT_EQ(Install(options).status, 0);
    EXPECT_GT(looks, 0) << call;
  }
}

TEST_F(VerifyTest, InstallOfAFreshHostLooksAgainUnderTheLockThatAnotherOneHasMade) {
  const HostOptions options = OnAFreshHost();
  const std::string lock = BesideInstallRoot(options.hostRoot, ".WebResources.lock");
  const FailingCall fault("openat", [&lock] {
    fs::create_directories(fs::path(lock).parent_path());
    WriteFile(lock, "");
  });
  try {
    Install(options);
    ADD_FAILURE() << "the record is read";
  } catch (const Error& error) {
    EXPECT_EQ(error.operation(), "read the record");
  }
  EXPECT_EQ(fault.Count(), 2);
}

TEST_F(VerifyTest, RefusalIsDecidedAgainUnderTheLockThatAnotherOneHasMade) {
  fs::remove_all(installRoot_);
  WriteFile(installRoot_.substr(0, installRoot_.length() - 1), "");
  record_.Flush();
  HostOptions options;
  options.hostRoot = options_.hostRoot;
  options.bundle = *options_.bundle;
  const std::string lock = BesideInstallRoot(options.hostRoot, ".WebResources.lock");
  const FailingCall fault("openat", [&lock] { WriteFile(lock, ""); });
  const Report report = Install(options);
  EXPECT_EQ(report.details["outcome"], "refused");
  EXPECT_EQ(report.findings.front().rule, &kRootBlocked);
  EXPECT_NE(fault.Calls().find(" flock "), std::string::npos);
}

TEST(Documents, NameThatIsNotUtf8IsReadBack) {
  Json json;
  for (const char* name : {"a", "\xE4"}) {
    json.clear();
    PutName(json, "path", name);
    EXPECT_EQ(NameOf(json, "path"), name);
  }
}

TEST(Errors, ExceptionThatIsNoErrorIsADocument) {
  const Report report = ReportOf("check", std::bad_alloc());
  EXPECT_EQ(report.status, kCouldNotTell);
  EXPECT_EQ(report.details["error"]["reason"], std::bad_alloc().what());
}

}  // namespace
