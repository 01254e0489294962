// Each way in which an installation can be other than a bundle's: found, alone.

#include <gtest/gtest.h>

#include "InstallerConstants.h"
#include "InstallerUtils.h"
#include "OSUtils.h"
#include "PreferencesDomain.h"
#include "Support.h"
#include "Verify.h"
#include "ZipBuilder.h"

namespace {

namespace fs = std::filesystem;

/// A bundle, and a root in which it is installed as a run leaves it.
class VerifyTest : public testing::Test {
 protected:
  VerifyTest() {
    fs::create_directories(resources_);
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
    options_.root = directory_ / "root";
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

  /// What is found without a bundle.
  std::string FoundAlone() {
    options_.bundle.reset();
    return Found();
  }

  ScopedDirectory directory_;
  std::string resources_ = directory_ / "X.app/Contents/Resources/";
  std::string installRoot_ = directory_ / ("root" + OSUtils::GetPellamResourceDirectory());
  std::string installed_ = installRoot_ + kFinalName + "/";
  PreferencesDomain record_{PLIST_SECTION_KEY, directory_ / "root"};
  VerifyOptions options_;
};

TEST_F(VerifyTest, InstalledBundleIsAsItShouldBe) {
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
  for (const mode_t mode : {0000, 0600, 0664, 0646, 04644, 02644}) {
    chmod((installed_ + "g").c_str(), mode);
    EXPECT_EQ(Found(), "mode-differs Resource0/g\n") << std::oct << mode;
  }
  options_.ignoresModes = true;
  EXPECT_EQ(Found(), "");
}

TEST_F(VerifyTest, DirectoriesThatOthersCannotEnterOrCanWriteToAreFound) {
  const std::string above = fs::path(installRoot_).parent_path().parent_path();
  chmod(above.c_str(), 0700);
  chmod((installed_ + "d").c_str(), 0750);
  chmod(installed_.c_str(), 0777);
  const std::string found =
      "mode-differs " + above + "\nmode-differs Resource0/.\nmode-differs Resource0/d\n";
  EXPECT_EQ(Found(), found);
  EXPECT_EQ(FoundAlone(), "mode-differs " + above + "\n");  // there is no receipt
}

TEST_F(VerifyTest, ForeignOwnerIsFoundUnlessIgnored) {
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
  EXPECT_EQ(Found(), "");  // a warning does not
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
  EXPECT_EQ(foundWith([this] { record_.SetText("tWebResourceInstallPath", "../Resource0"); }),
            "record-directory installed directory\n");
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

TEST_F(VerifyTest, ValueOfAnotherTypeIsToldAsWhatItIs) {
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

TEST_F(VerifyTest, DirectoryGoneUnderItsRecordIsFound) {
  fs::remove_all(installed_);
  EXPECT_EQ(Found(), "not-installed " + installRoot_ + "Resource0\n");
}

TEST_F(VerifyTest, RecordThatCannotBeReadCannotTell) {
  const std::string preferences = directory_ / "root/Library/Preferences";
  chmod(preferences.c_str(), 0);
  EXPECT_TRUE(AsOrdinaryUser([this] {
    try {
      Verify(options_);
    } catch (const Error&) {
      return true;
    }
    return false;
  }));
}

TEST_F(VerifyTest, FaultyMetadataCannotTell) {
  WriteFile(resources_ + kMetadataFileName, "{}");
  EXPECT_THROW(Verify(options_), Error);
}

TEST_F(VerifyTest, InstallCheckTurnsWhatItCannotTellIntoNeeded) {
  EXPECT_EQ(InstallCheck(options_).status, 1);
  WriteFile(installed_ + "g", "y");
  EXPECT_EQ(InstallCheck(options_).status, 0);
  options_.bundle = directory_ / "nowhere";
  const Report report = InstallCheck(options_);
  EXPECT_EQ(report.status, 0);
  EXPECT_NE(report.summary.back().find("nowhere"), std::string::npos);
}

}  // namespace
