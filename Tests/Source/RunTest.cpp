// The operations of a run, in order: main() with test doubles that list their calls.

#include <gtest/gtest.h>

#include <csignal>
#include <exception>
#include <string>

#include "InstallerUtils.h"
#include "MetadataHelper.h"
#include "OSUtils.h"

int Run();  // main(), compiled under another name

namespace {

struct Machine {
  std::string steps;
  std::string freeName = "Resource0";
  bool clears = false;
  bool regenerates = false;
  bool hasRandom = true;
  bool extracts = true;  ///< Whether the extraction succeeds. The other members are similar.
  bool registers = true;
  bool renames = true;

  bool Note(const std::string& step, bool result = true) {
    steps += step + "\n";
    return result;
  }
};

Machine machine;

}  // namespace

extern "C" int rename(const char* from, const char* to) {
  return machine.Note("rename " + std::string(from) + " " + to, machine.renames) ? 0 : -1;
}

bool InstallerUtils::UncompressPackageFiles(std::string& zipPath, std::string& destDir) {
  return machine.Note("extract " + zipPath + " " + destDir, machine.extracts);
}

MetadataHelper::MetadataHelper() = default;
MetadataHelper& MetadataHelper::getInstance() {
  static MetadataHelper instance;
  return instance;
}
bool MetadataHelper::shouldClearRegistry() {
  return machine.Note("clear?", machine.clears);
}
int MetadataHelper::getUpdateId() {
  machine.Note("update?");
  return 7;
}
bool MetadataHelper::shouldRegenerateRandom() {
  return machine.Note("regenerate?", machine.regenerates);
}

std::string OSUtils::GetPellamResourceDirectory() {
  return "/root/";
}
std::string OSUtils::CombinePath(const std::string& a, const std::string& b) {
  return a + b;
}
std::string OSUtils::GetZipResourcePath() {
  return "/package.zip";
}
std::string OSUtils::GetUniqueDirectoryName(const std::string& root) {
  machine.Note("free name in " + root);
  return machine.freeName;
}
bool OSUtils::DeleteAllDirectoryExceptOne(const std::string& root, const std::string& keep) {
  return machine.Note("delete all in " + root + " except " + keep);
}
void OSUtils::MakeDurable(const std::string& path) {
  machine.Note("sync " + path);
}
bool OSUtils::RegisterWebResourcePath(const std::string& path) {
  return machine.Note("record path " + path, machine.registers);
}
bool OSUtils::RegisterUpdateID(int id) {
  return machine.Note("record update " + std::to_string(id), false);
}
bool OSUtils::RegisterCompleteVersion(int build) {
  return machine.Note("record version " + std::to_string(build), false);
}
bool OSUtils::RegisterRandom() {
  return machine.Note("record random", false);
}
bool OSUtils::isRandomPresent() {
  return machine.Note("random?", machine.hasRandom);
}
void OSUtils::OldInfo(WebRegInfo* info) {
  machine.Note("capture");
  info->updateId = 4711;
}
bool OSUtils::ClearRegistry() {
  return machine.Note("clear", false);
}
bool OSUtils::MakeFreshRegistry(WebRegInfo* info) {
  return machine.Note("restore " + std::to_string(info->updateId), false);
}

namespace {

/// Returns the operations of a run on `other`. Restores the process's state that main() changes.
std::string StepsOn(Machine other) {
  machine = std::move(other);
  const auto terminate = std::get_terminate();
  EXPECT_EQ(Run(), 0);
  std::set_terminate(terminate);
  return machine.steps;
}

const char kFirstInstallation[] =
    "clear?\n"
    "free name in /root/\n"
    "extract /package.zip /root/Resource0\n"
    "sync /root/Resource0\n"
    "record path Resource0\n"
    "update?\n"
    "record update 7\n"
    "update?\n"
    "record version 7\n"
    "delete all in /root/ except Resource0\n"
    "regenerate?\n"
    "random?\n";

TEST(Run, FirstInstallationUsesTheFinalNameFromTheStart) {
  EXPECT_EQ(StepsOn({}), kFirstInstallation);
}

Machine Updated() {
  Machine updated;
  updated.freeName = "Resource1";
  return updated;
}

const char kUpdateUpToTheRename[] =
    "clear?\n"
    "free name in /root/\n"
    "extract /package.zip /root/Resource1\n"
    "sync /root/Resource1\n"
    "record path Resource1\n"
    "update?\n"
    "record update 7\n"
    "update?\n"
    "record version 7\n"
    "delete all in /root/ except Resource1\n"
    "rename /root/Resource1 /root/Resource0\n";

TEST(Run, UpdateRecordsBeforeItDeletesAndRenamesBeforeItRecordsTheFinalName) {
  EXPECT_EQ(StepsOn(Updated()), std::string(kUpdateUpToTheRename) +
                                    "sync /root/Resource0\n"
                                    "record path Resource0\n"
                                    "regenerate?\n"
                                    "random?\n");
}

TEST(Run, FailedRenameLeavesTheRecordedName) {
  Machine other = Updated();
  other.renames = false;
  EXPECT_EQ(StepsOn(other), std::string(kUpdateUpToTheRename) +
                                "regenerate?\n"
                                "random?\n");
}

TEST(Run, ClearingReadsThenClearsThenRestores) {
  Machine other;
  other.clears = true;
  std::string steps = kFirstInstallation;
  steps.insert(std::string("clear?\n").size(), "capture\nclear\nrestore 4711\n");
  EXPECT_EQ(StepsOn(other), steps);
}

TEST(Run, FailedExtractionRecordsOnlyTheRandomIdentifier) {
  Machine other;
  other.extracts = false;
  other.hasRandom = false;
  EXPECT_EQ(StepsOn(other),
            "clear?\n"
            "free name in /root/\n"
            "extract /package.zip /root/Resource0\n"
            "regenerate?\n"
            "random?\n"
            "record random\n");
}

TEST(Run, FailedFirstRegistrationDeletesNothing) {
  Machine other = Updated();
  other.registers = false;
  other.regenerates = true;
  EXPECT_EQ(StepsOn(other),
            "clear?\n"
            "free name in /root/\n"
            "extract /package.zip /root/Resource1\n"
            "sync /root/Resource1\n"
            "record path Resource1\n"
            "regenerate?\n"
            "record random\n");
}

TEST(Run, IgnoresTheSignalOfAFileSizeLimit) {
  std::signal(SIGXFSZ, SIG_DFL);
  StepsOn({});
  EXPECT_EQ(std::signal(SIGXFSZ, SIG_DFL), SIG_IGN);
}

}  // namespace
