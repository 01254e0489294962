#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Support.h"
#include "bundle/BundleFiles.h"
#include "support/Error.h"

using namespace webresources;

namespace {

TEST(BundleFiles, PathMayEndInSlashes) {
  const ScopedDirectory directory;
  EXPECT_EQ(FindBundleFiles(directory / "" + "//").directory, directory / "");
  EXPECT_EQ(FindBundleFiles("/").directory, "/");
}

/// Returns the message of the error for a `path` without the files of a bundle.
std::string Refusal(const std::string& path) {
  try {
    FindBundleFiles(path);
  } catch (const Error& error) {
    return error.what();
  }
  return {};
}

TEST(BundleFiles, FileIsNoBundle) {
  const ScopedDirectory directory;
  WriteFile(directory / "f", "");
  chmod((directory / "f").c_str(), 0777);
  EXPECT_EQ(Refusal(directory / "f"),
            "cannot read " + (directory / "f") + ": it is not a directory");
}

TEST(BundleFiles, DirectoryMustBeReadableAndSearchable) {
  const ScopedDirectory directory;
  for (const mode_t mode : {mode_t{0444}, mode_t{0333}}) {
    chmod((directory / "").c_str(), mode);
    EXPECT_TRUE(AsOrdinaryUser([&] {
      return Refusal(directory / "") ==
             "cannot read " + (directory / "") + ": Permission denied; run it as root";
    })) << mode;
  }
  chmod((directory / "").c_str(), 0755);
  EXPECT_TRUE(AsOrdinaryUser([&] { return Refusal(directory / "").empty(); }));
}

}  // namespace
