#include <gtest/gtest.h>

#include <string>

#include "BundleProcess.h"
#include "InstallerConstants.h"
#include "OSUtils.h"

namespace {

TEST(Locations, CombinePathIsPlainConcatenation) {
  EXPECT_EQ(OSUtils::CombinePath("", "x"), "x");
  EXPECT_EQ(OSUtils::CombinePath("a/", ""), "a/");
  EXPECT_EQ(OSUtils::CombinePath("", ""), "");
  EXPECT_EQ(OSUtils::CombinePath("a/", "b"), "a/b");
}

TEST(Locations, CombinePathAddsNoSeparator) {
  EXPECT_EQ(OSUtils::CombinePath("/tmp", "Resource0"), "/tmpResource0");
}

TEST(Locations, CombinePathNormalizesNothing) {
  EXPECT_EQ(OSUtils::CombinePath("a//./", "/../b"), "a//.//../b");
}

TEST(Locations, CombinePathKeepsEveryByte) {
  const std::string bytes("\0\xff", 2);
  EXPECT_EQ(OSUtils::CombinePath(bytes, "x"), bytes + "x");
}

TEST(Locations, InstallRootIsFixed) {
  EXPECT_EQ(OSUtils::GetPellamResourceDirectory(),
            "/Library/Application Support/Veltrane/Orlisk/2017/WebResources/");
  EXPECT_EQ(OSUtils::GetPellamResourceDirectory(), INSTALL_PATH_ROOT);
}

TEST(Locations, InstallRootHoldsTheYearOnce) {
  const std::string root = OSUtils::GetPellamResourceDirectory();
  EXPECT_NE(root.find(PRODUCT_YEAR), std::string::npos);
  EXPECT_EQ(root.find(PRODUCT_YEAR), root.rfind(PRODUCT_YEAR));
}

TEST(Locations, InstallRootIsACopy) {
  std::string root = OSUtils::GetPellamResourceDirectory();
  root.clear();
  EXPECT_NE(OSUtils::GetPellamResourceDirectory(), "");
}

// The suffix is part of the identifier, on purpose.
TEST(Locations, ApplicationIdentifierEndsInThePropertyListSuffix) {
  EXPECT_EQ(PLIST_SECTION_KEY, "com.veltrane.orlisk.2017.WebResource.plist");
}

class ResourcePaths : public testing::Test {
 protected:
  ScopedDirectory directory_;
};

TEST_F(ResourcePaths, LieInTheResourcesDirectoryOfTheBundle) {
  const BundleProcess bundle(directory_ / "X.app");
  EXPECT_EQ(bundle.Answers("zip"), directory_ / "X.app/Contents/Resources/OrloWebResources.zip\n");
  EXPECT_EQ(bundle.Answers("metadata"), directory_ / "X.app/Contents/Resources/metadata.txt\n");
}

TEST_F(ResourcePaths, DoNotNeedTheirFiles) {
  const BundleProcess bundle(directory_ / "X.app");
  std::filesystem::remove_all(directory_ / "X.app/Contents/Resources");
  EXPECT_EQ(bundle.Answers("metadata"), directory_ / "X.app/Contents/Resources/metadata.txt\n");
}

/// Makes a bundle in `directory` whose Resources directory has a path of `length` bytes.
std::string BundleWithResourcesPathOf(std::size_t length, const ScopedDirectory& directory) {
  length -= std::string("/Contents/Resources").length();
  std::string path = directory / "X.app";
  while (path.length() + 210 < length) {
    path += "/" + std::string(200, 'd');
  }
  return path + "/" + std::string(length - path.length() - 1, 'd');
}

TEST_F(ResourcePaths, ResourcesPathOf1023BytesIsWhole) {
  SKIP_UNLESS_FILE_SYSTEM_TAKES(BundleWithResourcesPathOf(1024, directory_) +
                                "/Contents/Resources");
  const std::string path = BundleWithResourcesPathOf(1023, directory_);
  const BundleProcess bundle(path);
  EXPECT_EQ(bundle.Answers("metadata"), path + "/Contents/Resources/metadata.txt\n");
  EXPECT_EQ(bundle.Answers("zip"), path + "/Contents/Resources/OrloWebResources.zip\n");
}

TEST_F(ResourcePaths, ResourcesPathOf1024BytesYieldsAnEmptyString) {
  SKIP_UNLESS_FILE_SYSTEM_TAKES(BundleWithResourcesPathOf(1024, directory_) +
                                "/Contents/Resources");
  for (const std::size_t length : {1024U, 1025U}) {
    const BundleProcess bundle(BundleWithResourcesPathOf(length, directory_));
    EXPECT_EQ(bundle.Answers("metadata zip"), "\n\n") << length;
  }
}

TEST_F(ResourcePaths, ResourcesPathFarTooLongYieldsAnEmptyString) {
  SKIP_UNLESS_FILE_SYSTEM_TAKES(BundleWithResourcesPathOf(1024, directory_) +
                                "/Contents/Resources");
  if (std::string(BUNDLE_EXECUTABLES) == "Linux") {
    GTEST_SKIP() << "CoreFoundation for Linux cuts the executable's own path";
  }
  const BundleProcess bundle(BundleWithResourcesPathOf(1100, directory_));
  EXPECT_EQ(bundle.Answers("metadata zip"), "\n\n");
}

}  // namespace
