// What the property-list back end promises beyond the contract.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "PreferencesDomain.h"

namespace {

TEST(PosixPreferencesDomainTest, ChangesAreNotInTheFileBeforeTheFlush) {
  std::string root = "/tmp/PosixPreferencesDomainTest-XXXXXX";
  ASSERT_NE(nullptr, mkdtemp(root.data()));
  PreferencesDomain domain("com.example.ContractTest", root);
  domain.SetNumber("number", 7);
  EXPECT_TRUE(std::filesystem::is_empty(root));
  EXPECT_TRUE(domain.Flush());
  EXPECT_TRUE(
      std::filesystem::exists(root + "/Library/Preferences/com.example.ContractTest.plist"));
  std::filesystem::remove_all(root);
}

}  // namespace
