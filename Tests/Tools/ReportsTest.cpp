// The complete output of the commands, as text and as members of the JSON document.

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "BundlePrograms.h"
#include "InstallerConstants.h"
#include "InstallerUtils.h"
#include "OSUtils.h"
#include "PreferencesDomain.h"
#include "Support.h"
#include "ZipBuilder.h"
#include "commands/Commands.h"
#include "report/Rules.h"
#include "support/Text.h"

using namespace webresources;

namespace {

namespace fs = std::filesystem;

/// A root with the installed update 7, and the bundles of updates 7 and 8.
class ReportsTest : public testing::Test {
 protected:
  ReportsTest() {
    MakeBundle("7.app", 7, {{"d/", ""}, {"d/f", "text"}, {"g", "x"}, {"same", ""}});
    MakeBundle("8.app", 8, {{"d/", ""}, {"d/f", "longer"}, {"new/", ""}, {"same", ""}});
    std::string package = directory_ / "7.app/Contents/Resources/OrloWebResources.zip";
    std::string destination = installRoot_ + kFinalName;
    InstallerUtils::UncompressPackageFiles(package, destination);
    fs::create_directory(installRoot_ + "Resource1");
    record_.SetText("tWebResourceInstallPath", kFinalName);
    record_.SetNumber("iUpdateId", 7);
    record_.SetText("tFullVersion", OSUtils::CompleteVersion(7));
    record_.SetNumber("irandom", 42);
    record_.Flush();
  }

  void MakeBundle(const std::string& name, int updateId, const std::vector<ZipEntry>& entries) {
    const std::string resources = directory_ / (name + "/Contents/Resources/");
    fs::create_directories(resources);
    MakeProgram(directory_ / name);
    WriteFile(resources + kPackageFileName, Zip(entries));
    WriteFile(
        resources + kMetadataFileName,
        "{\"clear\":false,\"updateid\":" + std::to_string(updateId) + ",\"regenerate\":false}");
  }

  /// Returns the complete output of `report`, without the parts that depend on the host. Each
  /// member of a document has a line.
  std::string Said(Report report) const {
    std::string text = "status " + std::to_string(report.status) + "\n";
    for (const std::string& line : report.listing) {
      text += line + "\n";
    }
    for (const Finding& finding : report.findings) {
      text += std::string(finding.rule->id) + " " + Printable(finding.subject) + ": " +
              finding.reason + "\n";
    }
    for (const std::string& line : report.summary) {
      text += line + "\n";
    }
    for (const auto& [key, value] : report.details.items()) {
      text += key + " " + std::regex_replace(value.dump(), std::regex(","), ",\n  ") + "\n";
    }
    text = std::regex_replace(text, std::regex(directory_ / ""), "*");
    text = std::regex_replace(text, std::regex(OSUtils::GetPellamResourceDirectory()), "/I/");
    text = std::regex_replace(text, std::regex("[0-9]+ free|bytesFree [0-9]+"), "N free");
    text = std::regex_replace(text, std::regex("[0-9-]+T[0-9:]+Z"), "T");
    text = std::regex_replace(text, std::regex("[0-9a-f]{64}"), "DIGEST");
    return std::regex_replace(text, std::regex("(.{80}[^ \n]*) "), "$1\n    ");  // long lines
  }

  const ScopedDirectory directory_;
  const std::string root_ = directory_ / "root";
  const std::string installRoot_ = root_ + OSUtils::GetPellamResourceDirectory();
  PreferencesDomain record_{PLIST_SECTION_KEY, root_};
};

TEST_F(ReportsTest, PlanTellsFilesLeftoversRecordAndBytes) {
  HostOptions options;
  options.hostRoot = root_;
  options.bundle = directory_ / "8.app";
  EXPECT_EQ(Said(Plan(options)), R"(status 0
removed  Resource1  (beside the installed directory)
changed  d/f  (4 -> 6 bytes)
removed  g  (1 bytes)
added  new  (directory)
files: 0 added, 1 changed, 1 removed, 1 unchanged
update: 7 -> 8
directory: Resource2, renamed to Resource0
random identifier: it is kept
bytes: 36864 needed, N free
install will run the installer
outcome "install"
installRoot "*/root/I/"
record {"installPath":"Resource0",
  "updateId":7,
  "fullVersion":"17.011.30138.7",
  "random":42}
recordAfter {"installPath":"Resource0",
  "updateId":8,
  "fullVersion":"17.011.30138.8",
  "random":42}
freshDirectory "Resource2"
bytesNeeded 36864
N free
needsRoot false
leftovers [{"name":"Resource1"}]
changes [{"change":"changed",
  "path":"d/f",
  "sizeBefore":4,
  "sizeAfter":6},
  {"change":"removed",
  "path":"g",
  "sizeBefore":1},
  {"change":"added",
  "path":"new"}]
files {"added":0,
  "changed":1,
  "removed":1,
  "unchanged":1}
)");
}

TEST_F(ReportsTest, PlanOfTheInstalledUpdateChangesNothing) {
  fs::remove(installRoot_ + "Resource1");
  HostOptions options;
  options.hostRoot = root_;
  options.bundle = directory_ / "7.app";
  EXPECT_EQ(Said(Plan(options)), R"(status 0
files: 0 added, 0 changed, 0 removed, 3 unchanged
update: 7 -> 7
random identifier: it is kept
bytes: 40960 needed, N free
up to date: install will change nothing
outcome "up-to-date"
installRoot "*/root/I/"
record {"installPath":"Resource0",
  "updateId":7,
  "fullVersion":"17.011.30138.7",
  "random":42}
recordAfter {"installPath":"Resource0",
  "updateId":7,
  "fullVersion":"17.011.30138.7",
  "random":42}
freshDirectory "Resource1"
bytesNeeded 40960
N free
needsRoot false
leftovers []
changes []
files {"added":0,
  "changed":0,
  "removed":0,
  "unchanged":3}
)");
}

TEST_F(ReportsTest, PlanThatRefusesNamesTheReason) {
  record_.SetNumber("iUpdateId", 9);
  record_.Flush();
  HostOptions options;
  options.hostRoot = root_;
  options.bundle = directory_ / "8.app";
  EXPECT_EQ(Said(Plan(options)), R"(status 1
newer-installed */root/I/: update 9 is installed, and the bundle has update 8
files: 0 added, 0 changed, 0 removed, 3 unchanged
update: 9 -> 9
random identifier: it is kept
bytes: 36864 needed, N free
install will refuse the bundle and change nothing
outcome "refuse"
installRoot "*/root/I/"
record {"installPath":"Resource0",
  "updateId":9,
  "fullVersion":"17.011.30138.7",
  "random":42}
recordAfter {"installPath":"Resource0",
  "updateId":9,
  "fullVersion":"17.011.30138.7",
  "random":42}
freshDirectory "Resource2"
bytesNeeded 36864
N free
needsRoot false
leftovers []
changes []
files {"added":0,
  "changed":0,
  "removed":0,
  "unchanged":3}
)");
  WriteFile(*options.bundle + "/Contents/Resources/" + kPackageFileName, "");
  EXPECT_EQ(Said(Plan(options)), R"(status 1
package-unreadable OrloWebResources.zip: the installer cannot open it and installs
    an empty directory
install will refuse the bundle and change nothing
outcome "refuse"
installRoot "*/root/I/"
record {"installPath":"Resource0",
  "updateId":9,
  "fullVersion":"17.011.30138.7",
  "random":42}
)");
}

TEST_F(ReportsTest, StatusTellsWhatIsInstalledAndWhetherItIsSound) {
  EXPECT_EQ(Said(Status({std::nullopt, root_})), R"(status 1
leftover */root/I/Resource1: it is not the installed directory
update:    7, version 17.011.30138.7
directory: */root/I/Resource0
content:   3 files, 5 bytes
since:     T
receipt:   none
sound:     no: */root/I/Resource1: it is not the installed directory
installRoot "*/root/I/"
record {"installPath":"Resource0",
  "updateId":7,
  "fullVersion":"17.011.30138.7",
  "random":42}
directory "*/root/I/Resource0"
files 3
bytes 5
since "T"
receipt null
comparedWith "record"
)");
  fs::remove(installRoot_ + "Resource1");
  EXPECT_EQ(Said(Status({std::nullopt, root_})), R"(status 0
update:    7, version 17.011.30138.7
directory: */root/I/Resource0
content:   3 files, 5 bytes
since:     T
receipt:   none
sound:     yes, but only the record was compared: no receipt tells the content
installRoot "*/root/I/"
record {"installPath":"Resource0",
  "updateId":7,
  "fullVersion":"17.011.30138.7",
  "random":42}
directory "*/root/I/Resource0"
files 3
bytes 5
since "T"
receipt null
comparedWith "record"
)");
  fs::remove_all(directory_ / "root/Library");
  EXPECT_EQ(Said(Status({std::nullopt, root_})), R"(status 1
not-installed */root/I/: neither directory nor record is there
update:    none, version none
directory: none
content:   0 files, 0 bytes
since:     never
receipt:   none
sound:     no: */root/I/: neither directory nor record is there
installRoot "*/root/I/"
record {"installPath":null,
  "updateId":null,
  "fullVersion":null,
  "random":null}
directory null
files 0
bytes 0
since null
receipt null
comparedWith "record"
)");
}

TEST_F(ReportsTest, VerifyReportsTheDifferences) {
  EXPECT_EQ(Said(Verify({directory_ / "8.app", root_, false})), R"(status 1
file-differs Resource0/d/f: it has 4 bytes instead of 6
file-extra Resource0/g: it does not belong there
file-missing Resource0/new: it is missing
leftover */root/I/Resource1: it is not the installed directory
record-differs update number: it is 7 instead of 8
record-differs full version: it is 17.011.30138.7 instead of 17.011.30138.8
findings: 6
comparedWith "bundle"
installRoot "*/root/I/"
record {"installPath":"Resource0",
  "updateId":7,
  "fullVersion":"17.011.30138.7",
  "random":42}
)");
  fs::remove(installRoot_ + "Resource1");
  EXPECT_EQ(Said(Verify({{}, root_, false})), R"(status 0
only the record was compared: no receipt tells the content
the installation is correct
installRoot "*/root/I/"
record {"installPath":"Resource0",
  "updateId":7,
  "fullVersion":"17.011.30138.7",
  "random":42}
comparedWith "record"
)");
}

TEST_F(ReportsTest, InstallCheckNamesTheReason) {
  EXPECT_EQ(Said(InstallCheck({directory_ / "8.app", root_, false})), R"(status 0
file-differs Resource0/d/f: it has 4 bytes instead of 6
file-extra Resource0/g: it does not belong there
file-missing Resource0/new: it is missing
leftover */root/I/Resource1: it is not the installed directory
record-differs update number: it is 7 instead of 8
record-differs full version: it is 17.011.30138.7 instead of 17.011.30138.8
install needed: Resource0/d/f: it has 4 bytes instead of 6
installRoot "*/root/I/"
record {"installPath":"Resource0",
  "updateId":7,
  "fullVersion":"17.011.30138.7",
  "random":42}
installNeeded true
)");
  fs::remove(installRoot_ + "Resource1");
  EXPECT_EQ(Said(InstallCheck({directory_ / "7.app", root_, false})), R"(status 1
up to date
installRoot "*/root/I/"
record {"installPath":"Resource0",
  "updateId":7,
  "fullVersion":"17.011.30138.7",
  "random":42}
installNeeded false
)");
  record_.SetNumber("iUpdateId", 9);
  record_.Flush();
  EXPECT_EQ(Said(InstallCheck({directory_ / "8.app", root_, false})), R"(status 1
up to date: the newer update 9 is installed
installRoot "*/root/I/"
record {"installPath":"Resource0",
  "updateId":9,
  "fullVersion":"17.011.30138.7",
  "random":42}
installNeeded false
)");
  EXPECT_EQ(Said(InstallCheck({directory_ / "none", root_, false})), R"(status 2
cannot be installed: cannot read */none: No such file or directory
error {"operation":"read",
  "object":"*/none",
  "reason":"No such file or directory",
  "remedy":null}
installNeeded false
)");
  WriteFile(directory_ / "8.app/Contents/Resources/OrloWebResources.zip", "");
  EXPECT_EQ(Said(InstallCheck({directory_ / "8.app", root_, false})), R"(status 2
package-unreadable OrloWebResources.zip: the installer cannot open it and installs
    an empty directory
cannot be installed: OrloWebResources.zip: the installer cannot open it and installs
    an empty directory
installNeeded false
)");
}

TEST_F(ReportsTest, DiffTellsEachChange) {
  EXPECT_EQ(Said(Diff(directory_ / "7.app", directory_ / "8.app", {})), R"(status 1
changed  d/f  (4 -> 6 bytes)
removed  g  (1 bytes)
added  new  (directory)
files: 0 added, 1 changed, 1 removed, 1 unchanged
changes [{"change":"changed",
  "path":"d/f",
  "sizeBefore":4,
  "sizeAfter":6},
  {"change":"removed",
  "path":"g",
  "sizeBefore":1},
  {"change":"added",
  "path":"new"}]
files {"added":0,
  "changed":1,
  "removed":1,
  "unchanged":1}
)");
}

TEST_F(ReportsTest, DiffOfEqualBundlesIsAsItShouldBeIfTheyAre) {
  const std::string bundle = directory_ / "7.app";
  EXPECT_EQ(Diff(bundle, bundle, {}).status, kAsItShouldBe);
  WriteFile(directory_ / "7.app/Contents/Resources/OrloWebResources.zip", "");
  EXPECT_EQ(Diff(bundle, bundle, {}).status, kHasFindings);
}

TEST_F(ReportsTest, CheckReportsEachEntryAndTheOutcomeOfARun) {
  CheckOptions options;
  options.path = directory_ / "7.app";
  EXPECT_EQ(Said(Check(options)), R"(status 0
directory             d/
file               4  d/f
file               1  g
file               0  same
SHA-256: DIGEST
directories: 1, files: 3, skipped: 0
clear: false, updateid: 7, regenerate: false
a run exits with 0 when all is done
resources "*/7.app/Contents/Resources"
sha256 "DIGEST"
metadata {"clear":false,
  "updateid":7,
  "regenerate":false}
outcome {"end":"exit",
  "reach":"complete",
  "description":"exits with 0 when all is done"}
)");
  options.asJson = options.prove = true;
  MakeBundle("9.app", 9, {{"d/", ""}, {"none/f", "text"}, {"\xE4", std::string(12345678, 'x')}});
  WriteFile(directory_ / "9.app/Contents/Resources/metadata.txt",
            R"({"clear":true,"updateid":"9"})");
  options.path = directory_ / "9.app";
  EXPECT_EQ(Said(Check(options)), R"(status 1
missing-directory-entry none/f: no entry before it makes its directory: it is not
    installed
name-not-utf8 \xE4: its name is not UTF-8, which a volume may refuse
metadata-member-type updateid: its value has another type
metadata-member-missing regenerate: it is missing
SHA-256: DIGEST
directories: 1, files: 1, skipped: 1
clear: true, updateid: missing, regenerate: missing
a run aborts after the package is extracted and its directory recorded: the update
    number is not recorded, nothing is deleted
not compared: )"
                                  "\xE4"
                                  R"(: its name depends on the volume
proof: the extraction leaves exactly what is predicted
resources "*/9.app/Contents/Resources"
sha256 "DIGEST"
entries [{"action":"directory",
  "name":"d/"},
  {"action":"skip",
  "name":"none/f",
  "problem":"no entry before it makes its directory: it is not installed"},
  {"action":"file",
  "name":"\\xE4",
  "nameHex":"e4",
  "size":12345678}]
tree [{"type":"directory",
  "path":"d"},
  {"type":"file",
  "path":"\\xE4",
  "pathHex":"e4",
  "size":12345678,
  "crc32":"0d50b9ae"}]
metadata {"clear":true,
  "updateid":null,
  "regenerate":null}
outcome {"end":"abort",
  "reach":"extracted",
  "description":"aborts after the package is extracted and its directory recorded:
    the update number is not recorded,
   nothing is deleted"}
proof {"agrees":true,
  "differences":[],
  "notCompared":[{"reason":"its name depends on the volume",
  "path":"\\xE4",
  "pathHex":"e4"}]}
)");
}

/// Returns the text output of `report`.
std::string Printed(const Report& report, Form form) {
  testing::internal::CaptureStdout();
  Print(report, form);
  return testing::internal::GetCapturedStdout();
}

TEST(Reports, FindingsOfOneRuleAreCountedFromTheSixthOn) {
  Report report("verify");
  for (const std::string name : {"1", "2", "3", "4", "5"}) {
    Add(report.findings, kOwnerDiffers, name, "the owner is 7");
    Add(report.findings, kFileDiffers, name, name + " bytes");
  }
  EXPECT_EQ(Printed(report, Form::Brief), Printed(report, Form::Whole));
  Add(report.findings, kOwnerDiffers, "6", "the owner is 7");
  Add(report.findings, kLeftover, "x", "the name");
  Add(report.findings, kFileDiffers, "6", "6 bytes");
  const std::string fix = std::string("\n    fix: ");
  EXPECT_EQ(
      Printed(report, Form::Brief),
      "error [owner-differs] 6 times: 1, 2, 3, … (--all lists all): the owner is 7" + fix +
          kOwnerDiffers.fix +
          "\nerror [file-differs] 6 times: 1, 2, 3, … (--all lists all), for example: 1 bytes" +
          fix + kFileDiffers.fix + "\nerror [leftover] x: the name" + fix + kLeftover.fix + "\n");
  const std::string whole = Printed(report, Form::Whole);
  EXPECT_EQ(std::count(whole.begin(), whole.end(), '\n'), 26);
  EXPECT_EQ(Json::parse(Printed(report, Form::Document))["findings"].size(), 13U);
}

TEST(Reports, LongListingIsTruncatedWithoutAll) {
  Report report("diff");
  report.listing.assign(15, "line");
  EXPECT_EQ(Printed(report, Form::Brief), Printed(report, Form::Whole));
  report.listing.assign(20, "line");
  report.summary = {"end"};
  const std::string brief = Printed(report, Form::Brief);
  EXPECT_EQ(std::count(brief.begin(), brief.end(), '\n'), 17);
  EXPECT_NE(brief.find("line\n… and 5 more: --all lists all\nend\n"), std::string::npos);
  const std::string whole = Printed(report, Form::Whole);
  EXPECT_EQ(std::count(whole.begin(), whole.end(), '\n'), 21);
}

TEST(Reports, NameOfAnyBytesIsReadBack) {
  for (const std::string name : {"", "a", "\xC3\xA4", "\xE4\x80", "a\nb"}) {
    Json json = Json::object();
    PutName(json, "name", name);
    EXPECT_EQ(NameOf(json, "name"), name);
  }
}

TEST_F(ReportsTest, FindingOfTheMetadataAloneIsInTheStatusOfCheck) {
  CheckOptions options;
  options.path = directory_ / "7.app";
  WriteFile(options.path + "/Contents/Resources/" + kMetadataFileName, "{}");
  EXPECT_EQ(Check(options).status, 1);
}

TEST_F(ReportsTest, TrialExtractionWithoutEnoughFreeSpaceIsNotStarted) {
  std::vector<ZipEntry> entries;
  for (int i = 0; i < 20000; ++i) {  // each: 1 MB or more that could become 1 GB
    ZipEntry entry(std::to_string(i), i == 0 ? std::string(1U << 20U, 'x') : "");
    entry.size = entry.compressed = 0xFFFFFFF0;
    entry.offset = 0;
    entries.push_back(entry);
  }
  MakeBundle("9.app", 9, entries);
  CheckOptions options;
  options.path = directory_ / "9.app";
  options.prove = true;
  options.limits.maxSize = UINT64_MAX;
  std::string reason;
  try {
    Check(options);
  } catch (const Error& error) {
    reason = error.reason() + "; " + error.remedy().value();
  }
  EXPECT_TRUE(
      std::regex_match(reason, std::regex("up to [0-9]{14,} bytes are needed and [0-9]+ are "
                                          "free; set TMPDIR to a larger volume")))
      << reason;
}

}  // namespace
