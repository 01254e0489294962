#include <gtest/gtest.h>

#include "prediction/Prediction.h"

using namespace webresources;

namespace {

using Failure = PredictedTree::Failure;

/// A tree with the directory "d", the directory "d/e" and the file "d/f".
class PredictedTreeTest : public testing::Test {
 protected:
  PredictedTreeTest() {
    tree_.MakeDirectory("d");
    tree_.MakeDirectory("d/e");
    Open("d/f");
  }

  Failure Open(const std::string& path) {
    PredictedTree::Node* file = nullptr;
    return tree_.OpenFile(path, &file);
  }

  PredictedTree tree_;
};

TEST_F(PredictedTreeTest, DotsAndEmptyComponentsLeadWhereTheyDoInAFileSystem) {
  for (const char* path :
       {"", "/", ".", "d", "d/", "/d", "d//e", "d/./e/.", "d/e/..", "d/e/../f"}) {
    EXPECT_TRUE(tree_.Exists(path)) << path;
  }
}

TEST_F(PredictedTreeTest, PathsThroughAFileDoNotExist) {
  for (const char* path : {"x", "d/x", "x/..", "d/f/", "d/f/.", "d/f/..", "d/f/g"}) {
    EXPECT_FALSE(tree_.Exists(path)) << path;
  }
}

TEST_F(PredictedTreeTest, AboveTheRootIsTheRoot) {
  EXPECT_TRUE(tree_.Exists("../../d"));
}

TEST_F(PredictedTreeTest, DirectoryIsMadeWithATrailingSlash) {
  EXPECT_EQ(tree_.MakeDirectory("d/g/"), Failure::None);
  EXPECT_TRUE(tree_.Exists("d/g"));
}

TEST_F(PredictedTreeTest, DirectoryIsNotMadeOverAnything) {
  EXPECT_EQ(tree_.MakeDirectory("d/e"), Failure::Exists);
  EXPECT_EQ(tree_.MakeDirectory("d/f"), Failure::Exists);
  EXPECT_EQ(tree_.MakeDirectory("d/f/"), Failure::Exists);
  EXPECT_EQ(tree_.MakeDirectory("d/."), Failure::Exists);
  EXPECT_EQ(tree_.MakeDirectory("d/e/.."), Failure::Exists);
}

TEST_F(PredictedTreeTest, NothingIsMadeInAMissingDirectory) {
  EXPECT_EQ(tree_.MakeDirectory("x/y"), Failure::Missing);
  EXPECT_EQ(tree_.MakeDirectory("x/."), Failure::Missing);
  EXPECT_EQ(Open("x/y"), Failure::Missing);
  EXPECT_EQ(Open("d/x/../y"), Failure::Missing);
}

TEST_F(PredictedTreeTest, NothingIsMadeInAFile) {
  EXPECT_EQ(tree_.MakeDirectory("d/f/g"), Failure::NotADirectory);
  EXPECT_EQ(Open("d/f/g"), Failure::NotADirectory);
}

TEST_F(PredictedTreeTest, DirectoryIsNotOpenedAsAFile) {
  EXPECT_EQ(Open("d/e"), Failure::IsADirectory);
  EXPECT_EQ(Open("d/e/."), Failure::IsADirectory);
}

TEST_F(PredictedTreeTest, OtherSpellingOfAFileOpensTheSameFile) {
  PredictedTree::Node* first = nullptr;
  PredictedTree::Node* second = nullptr;
  EXPECT_EQ(tree_.OpenFile("d/f", &first), Failure::None);
  EXPECT_EQ(tree_.OpenFile("d//e/../f", &second), Failure::None);
  EXPECT_EQ(first, second);
}

TEST_F(PredictedTreeTest, ComponentHasAtMost255Bytes) {
  EXPECT_EQ(Open(std::string(255, 'a')), Failure::None);
  EXPECT_EQ(Open(std::string(256, 'a')), Failure::ComponentTooLong);
  EXPECT_EQ(tree_.MakeDirectory(std::string(256, 'b')), Failure::ComponentTooLong);
  EXPECT_EQ(Open("d/" + std::string(256, 'a') + "/x"), Failure::ComponentTooLong);
}

}  // namespace
