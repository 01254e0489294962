// Tests Bundle with copies of a real program in real directories.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "TestFiles.h"

namespace {

namespace fs = std::filesystem;

const char kNone[] = "(none)";

/// Returns the output of `command`, or "(none)" if the exit status is 1.
std::string OutputOf(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  std::string output;
  for (int byte = 0; (byte = std::fgetc(pipe)) != EOF;) {
    output += static_cast<char>(byte);
  }
  const int status = pclose(pipe);
  EXPECT_TRUE(WIFEXITED(status)) << command;
  EXPECT_LE(WEXITSTATUS(status), 1) << command;
  return WEXITSTATUS(status) == 0 ? output : kNone;
}

class BundleTest : public testing::Test {
 protected:
  /// Copies the probe to `path` in the test's directory and returns the path of the copy.
  std::string Copy(const std::string& path) {
    const fs::path copy = At(path);
    fs::create_directories(copy.parent_path());
    fs::copy_file(PROBE, copy);
    return copy;
  }
  std::string At(const std::string& path) const { return directory_ / path; }
  std::string In(const std::string& directory, const std::string& command) {
    return OutputOf("cd '" + At(directory) + "' && " + command);
  }

  /// Returns the output of the probe at "/" + `path` in a chroot. The chroot has no /proc, except
  /// in a sanitizer build, because sanitizers read /proc.
  std::string InPrivateRoot(const std::string& path) {
    Copy("root/" + path);
    return OutputOf(std::string(RUN_IN_PRIVATE_ROOT) + " '" + At("root") + "' '/" + path + "'");
  }

  ScopedDirectory directory_;
};

TEST_F(BundleTest, ExecutableInMacOSIsInABundle) {
  EXPECT_EQ(At("X.app/Contents/Resources"), OutputOf(Copy("X.app/Contents/MacOS/X")));
}

TEST_F(BundleTest, ExecutableInAnyOneDirectoryOfContentsIsInABundle) {
  EXPECT_EQ(At("X.app/Contents/Resources"), OutputOf(Copy("X.app/Contents/Helpers/X")));
}

TEST_F(BundleTest, ExecutableTwoDirectoriesBelowContentsIsNotInABundle) {
  EXPECT_EQ(At("X.app/Contents/A/B/Resources"), OutputOf(Copy("X.app/Contents/A/B/X")));
}

TEST_F(BundleTest, ExecutableDirectlyInContentsIsNotInABundle) {
  EXPECT_EQ(At("X.app/Contents/Resources"), OutputOf(Copy("X.app/Contents/X")));
}

TEST_F(BundleTest, ExecutableInContentsOfContentsIsInABundle) {
  EXPECT_EQ(At("Contents/Resources"), OutputOf(Copy("Contents/Contents/X")));
}

TEST_F(BundleTest, DirectoryWhoseNameOnlyEndsInContentsIsNoBundle) {
  EXPECT_EQ(At("NotContents/MacOS/Resources"), OutputOf(Copy("NotContents/MacOS/X")));
}

TEST_F(BundleTest, ExecutableElsewhereHasItsResourcesBesideIt) {
  EXPECT_EQ(At("plain/Resources"), OutputOf(Copy("plain/X")));
}

TEST_F(BundleTest, LinksToTheExecutableAreResolved) {
  fs::create_symlink(Copy("X.app/Contents/MacOS/X"), At("link"));
  EXPECT_EQ(At("X.app/Contents/Resources"), OutputOf(At("link")));
}

TEST_F(BundleTest, LinksToItsDirectoriesAreResolved) {
  Copy("X.app/Contents/MacOS/X");
  fs::create_directory_symlink(At("X.app/Contents/MacOS"), At("link"));
  EXPECT_EQ(At("X.app/Contents/Resources"), OutputOf(At("link/X")));
}

TEST_F(BundleTest, RelativePathsAreResolved) {
  Copy("X.app/Contents/MacOS/X");
  EXPECT_EQ(At("X.app/Contents/Resources"), In("X.app", "./Contents/MacOS/X"));
  EXPECT_EQ(At("X.app/Contents/Resources"), In("X.app/Contents/MacOS", "./X"));
  EXPECT_EQ(At("X.app/Contents/Resources"), In("X.app/Contents", "../Contents/MacOS/../MacOS/X"));
}

TEST_F(BundleTest, ExecutableFoundOnThePathIsResolved) {
  Copy("X.app/Contents/MacOS/X");
  EXPECT_EQ(At("X.app/Contents/Resources"), In("X.app", "PATH=Contents/MacOS X"));
}

TEST_F(BundleTest, ExecutableWithoutAPathHasNoResources) {
  const std::string probe = Copy("X.app/Contents/MacOS/X");
  EXPECT_EQ(kNone, OutputOf("python3 -c 'import os, sys; "
                            "os.execve(os.open(sys.argv[1], os.O_RDONLY), [\"X\"], {})' '" +
                            probe + "'"));
}

TEST_F(BundleTest, PathOf1023BytesFitsAndOneOf1024Fails) {
  const std::size_t fixed = At("/Resources").length();
  std::string name(1023 - fixed, 'd');
  for (std::size_t slash = 200; slash < name.length(); slash += 201) {
    name[slash] = '/';
  }
  EXPECT_EQ(At(name + "/Resources"), OutputOf(Copy(name + "/X")));
  EXPECT_EQ(1023U, At(name + "/Resources").length());
  EXPECT_EQ(kNone, OutputOf(Copy(name + "e/X")));
}

TEST_F(BundleTest, PathThatDoesNotFitFailsAndIsNotTruncated) {
  const std::string probe = Copy("plain/X");
  const std::size_t length = At("plain/Resources").length();
  EXPECT_EQ(kNone, OutputOf(probe + " " + std::to_string(length)));
  EXPECT_EQ(At("plain/Resources"), OutputOf(probe + " " + std::to_string(length + 1)));
  EXPECT_EQ(kNone, OutputOf(probe + " 0"));
}

TEST_F(BundleTest, WorksWithoutProc) {
  EXPECT_EQ("/X.app/Contents/Resources", InPrivateRoot("X.app/Contents/MacOS/X"));
}

TEST_F(BundleTest, ExecutableDirectlyUnderTheRootHasItsResourcesThere) {
  EXPECT_EQ("/Resources", InPrivateRoot("X"));
}

TEST_F(BundleTest, ContentsDirectlyUnderTheRootIsABundle) {
  EXPECT_EQ("/Contents/Resources", InPrivateRoot("Contents/MacOS/X"));
}

TEST_F(BundleTest, ExecutableInContentsDirectlyUnderTheRootIsNotInABundle) {
  EXPECT_EQ("/Contents/Resources", InPrivateRoot("Contents/X"));
}

}  // namespace
