#include <gtest/gtest.h>

#include "VirtualTree.h"

namespace {

using Failure = VirtualTree::Failure;

/// A tree with the directory "d", the directory "d/e" and the file "d/f".
class VirtualTreeTest : public testing::Test {
 protected:
  VirtualTreeTest() {
    tree_.MakeDirectory("d");
    tree_.MakeDirectory("d/e");
    Open("d/f");
  }

  Failure Open(const std::string& path) {
    VirtualTree::Node* file = nullptr;
    return tree_.OpenFile(path, &file);
  }

  VirtualTree tree_;
};

TEST_F(VirtualTreeTest, DotsAndEmptyComponentsLeadWhereTheyDoInAFileSystem) {
  for (const char* path :
       {"", "/", ".", "d", "d/", "/d", "d//e", "d/./e/.", "d/e/..", "d/e/../f"}) {
    EXPECT_TRUE(tree_.Exists(path)) << path;
  }
}

TEST_F(VirtualTreeTest, PathsThroughWhatIsNotADirectoryLeadNowhere) {
  for (const char* path : {"x", "d/x", "x/..", "d/f/", "d/f/.", "d/f/..", "d/f/g"}) {
    EXPECT_FALSE(tree_.Exists(path)) << path;
  }
}

TEST_F(VirtualTreeTest, AboveTheRootIsTheRoot) {
  EXPECT_TRUE(tree_.Exists("../../d"));
}

TEST_F(VirtualTreeTest, DirectoryIsMadeWithATrailingSlash) {
  EXPECT_EQ(tree_.MakeDirectory("d/g/"), Failure::None);
  EXPECT_TRUE(tree_.Exists("d/g"));
}

TEST_F(VirtualTreeTest, DirectoryIsNotMadeOverAnything) {
  EXPECT_EQ(tree_.MakeDirectory("d/e"), Failure::Exists);
  EXPECT_EQ(tree_.MakeDirectory("d/f"), Failure::Exists);
  EXPECT_EQ(tree_.MakeDirectory("d/f/"), Failure::Exists);
  EXPECT_EQ(tree_.MakeDirectory("d/."), Failure::Exists);
  EXPECT_EQ(tree_.MakeDirectory("d/e/.."), Failure::Exists);
}

TEST_F(VirtualTreeTest, NothingIsMadeInAMissingDirectory) {
  EXPECT_EQ(tree_.MakeDirectory("x/y"), Failure::Missing);
  EXPECT_EQ(tree_.MakeDirectory("x/."), Failure::Missing);
  EXPECT_EQ(Open("x/y"), Failure::Missing);
  EXPECT_EQ(Open("d/x/../y"), Failure::Missing);
}

TEST_F(VirtualTreeTest, NothingIsMadeInAFile) {
  EXPECT_EQ(tree_.MakeDirectory("d/f/g"), Failure::NotADirectory);
  EXPECT_EQ(Open("d/f/g"), Failure::NotADirectory);
}

TEST_F(VirtualTreeTest, DirectoryIsNotOpenedAsAFile) {
  EXPECT_EQ(Open("d/e"), Failure::IsADirectory);
  EXPECT_EQ(Open("d/e/."), Failure::IsADirectory);
}

TEST_F(VirtualTreeTest, OtherSpellingOfAFileOpensTheSameFile) {
  VirtualTree::Node* first = nullptr;
  VirtualTree::Node* second = nullptr;
  EXPECT_EQ(tree_.OpenFile("d/f", &first), Failure::None);
  EXPECT_EQ(tree_.OpenFile("d//e/../f", &second), Failure::None);
  EXPECT_EQ(first, second);
}

TEST_F(VirtualTreeTest, ComponentHasAtMost255Bytes) {
  EXPECT_EQ(Open(std::string(255, 'a')), Failure::None);
  EXPECT_EQ(Open(std::string(256, 'a')), Failure::ComponentTooLong);
  EXPECT_EQ(tree_.MakeDirectory(std::string(256, 'b')), Failure::ComponentTooLong);
  EXPECT_EQ(Open("d/" + std::string(256, 'a') + "/x"), Failure::ComponentTooLong);
}

}  // namespace
