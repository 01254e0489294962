#include <gtest/gtest.h>

#include "packing/SourceTree.h"
#include "support/Text.h"

using namespace webresources;

namespace {

TEST(Names, PrintableLeavesTextAloneAndShowsTheRestAsBytes) {
  EXPECT_EQ(Printable("a \xC3\xA4/\xE2\x82\xAC"), "a \xC3\xA4/\xE2\x82\xAC");
  EXPECT_EQ(Printable("a\nb\x1B[31m"), "a\\x0Ab\\x1B[31m");
  EXPECT_EQ(Printable("\xE4"), "\\xE4");
  EXPECT_EQ(Printable("\xC3"), "\\xC3");
  EXPECT_EQ(Printable("\xE2\x80\xAE"
                      "x"),
            "\\xE2\\x80\\xAEx");                         // right-to-left override
  EXPECT_EQ(Printable("\xEE\x80\x80"), "\xEE\x80\x80");  // a character for private use
}

TEST(Names, FoldingTakesAwayCaseAndNormalization) {
  EXPECT_EQ(Folded("ReadMe"), Folded("README"));
  EXPECT_EQ(Folded("\xC3\x84"), Folded("a\xCC\x88"));
  EXPECT_EQ(Folded("stra\xC3\x9F"
                   "e"),
            Folded("STRASSE"));
  EXPECT_NE(Folded("a"), Folded("b"));
  EXPECT_EQ(Folded("\xE4"), "\xE4");
}

TEST(Names, CollisionIsFoundInOneDirectoryOnly) {
  EXPECT_EQ(Collisions({"a/x", "b/X"}).size(), 0U);
  EXPECT_EQ(Collisions({"a/x", "a/x"}).size(), 0U);
  const auto collisions = Collisions({"a/x", "a/X"});
  ASSERT_EQ(collisions.size(), 1U);
  EXPECT_EQ(collisions[0].first, "a/x");
  EXPECT_EQ(collisions[0].second, "a/X");
  EXPECT_TRUE(collisions[0].differsInCase);
}

TEST(Names, JunkIsKnownByEachOfItsComponents) {
  for (const char* path :
       {"a/.DS_Store", "__MACOSX/a", "a/._b", "Thumbs.db", "a/desktop.ini", "Desktop.ini",
        ".git/HEAD", "a/.git", ".svn/", ".hg/x", ".bzr/x", "_darcs/x", "a/CVS/Root", "index.html~",
        ".index.html.swp", ".index.html.swo", "#index.html#"}) {
    EXPECT_TRUE(JunkReason(path)) << path;
  }
}

TEST(Names, NamesThatResembleJunkAreNone) {
  for (const char* path :
       {"a/.b/_c", "a/x.DS_Store", "Thumbs.dbx", ".gitignore", "cvs/a", "a~b", ".swp", "index.swp",
        "#index.html", "index.html#", ".well-known/a", ""}) {
    EXPECT_FALSE(JunkReason(path)) << path;
  }
}

}  // namespace
