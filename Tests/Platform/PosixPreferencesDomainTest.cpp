// What the property-list back end promises beyond the contract.

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

}  // namespace
