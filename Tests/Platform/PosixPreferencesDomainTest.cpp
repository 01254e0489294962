// The guarantees of the property-list back end beyond the contract.

#include <gtest/gtest.h>

#include <filesystem>

#include "PreferencesDomain.h"
#include "TestFiles.h"

namespace {

TEST(PosixPreferencesDomainTest, ChangesAreNotInTheFileBeforeTheFlush) {
  const ScopedDirectory root;
  PreferencesDomain domain("com.example.ContractTest", root / "");
  domain.SetNumber("number", 7);
  EXPECT_TRUE(std::filesystem::is_empty(root / ""));
  EXPECT_TRUE(domain.Flush());
  EXPECT_TRUE(IsThere(root / "Library/Preferences/com.example.ContractTest.plist"));
}

TEST(PosixPreferencesDomainTest, FileWithoutKeysIsErased) {
  const ScopedDirectory root;
  const std::string path = root / "Library/Preferences/com.example.ContractTest.plist";
  PreferencesDomain domain("com.example.ContractTest", root / "");
  EXPECT_TRUE(domain.Erase({"a"}));
  EXPECT_TRUE(std::filesystem::is_empty(root / ""));
  domain.SetNumber("a", 7);
  domain.SetNumber("b", 7);
  EXPECT_TRUE(domain.Flush());
  EXPECT_TRUE(domain.Erase({"a"}));
  EXPECT_TRUE(IsThere(path));
  EXPECT_TRUE(domain.Erase({"b"}));
  EXPECT_FALSE(IsThere(path));
  WriteFile(path, "damaged");
  EXPECT_TRUE(domain.Erase({"b"}));
  EXPECT_TRUE(IsThere(path));
}

}  // namespace
