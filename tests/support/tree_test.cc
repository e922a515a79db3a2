#include "tests/support/tree.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/folder.h"

namespace harbix::test {
namespace {

const Tree& sample() {
  static const Tree tree{file("a", "text", 0640).owned_by(1, 2), link("b", "a"),
                         dir("c", {file("d", std::string("\0\xFF\n", 3)), dir("empty", {}, 0700)}, 0750),
                         fifo("pipe", 0600), file("name\xFF", "", 04755)};
  return tree;
}

TEST(Tree, MatchesWhatItHasBuilt) {
  const TemporaryFolder folder;
  sample().build(folder.path());
  EXPECT_TRUE(sample().matches(folder.path()));
}

TEST(Tree, BuildsExactModesWhateverTheMask) {
  const TemporaryFolder folder;
  const mode_t before = ::umask(0777);
  sample().build(folder.path());
  ::umask(before);
  EXPECT_TRUE(sample().matches(folder.path()));
}

TEST(Tree, ComparesTwoFoldersThroughOneReading) {
  const TemporaryFolder one;
  const TemporaryFolder other;
  sample().build(one.path());
  sample().build(other.path());
  EXPECT_TRUE(Tree::read(one.path()).matches(other.path()));
}

TEST(Tree, TellsEachDifferenceWithBothSides) {
  struct Row {
    const char* what;
    Tree actual;
    const char* told;
  };
  const Tree expected{file("a", "text", 0640), link("b", "a"), dir("c", {file("d")})};
  const std::vector<Row> rows{
      {"content", Tree{file("a", "Text", 0640), link("b", "a"), dir("c", {file("d")})},
       "a\n  expected: file 0640 \"text\"\n  actual:   file 0640 \"Text\"\n"},
      {"mode", Tree{file("a", "text", 0644), link("b", "a"), dir("c", {file("d")})},
       "a\n  expected: file 0640 \"text\"\n  actual:   file 0644 \"text\"\n"},
      {"target", Tree{file("a", "text", 0640), link("b", "c"), dir("c", {file("d")})},
       "b\n  expected: link -> \"a\"\n  actual:   link -> \"c\"\n"},
      {"kind", Tree{file("a", "text", 0640), file("b"), dir("c", {file("d")})},
       "b\n  expected: link -> \"a\"\n  actual:   file \"\"\n"},
      {"missing below", Tree{file("a", "text", 0640), link("b", "a"), dir("c")},
       "missing: c/d (file 0644 \"\")\n"},
      {"extra below", Tree{file("a", "text", 0640), link("b", "a"), dir("c", {file("d"), link("\n", "x")})},
       "extra: c/\\x0A (link -> \"x\")\n"}};
  for (const Row& row : rows) {
    const auto result = expected.matches(row.actual);
    EXPECT_FALSE(result) << row.what;
    EXPECT_EQ(result.message(), std::string("the trees differ:\n") + row.told) << row.what;
  }
}

TEST(Tree, ComparesOwnersOnlyWhereTheyAreStated) {
  const TemporaryFolder folder;
  Tree{file("a").owned_by(1, 1)}.build(folder.path());
  EXPECT_TRUE(Tree{file("a")}.matches(folder.path()));
  const auto result = Tree{file("a").owned_by(1, 2)}.matches(folder.path());
  EXPECT_FALSE(result);
  EXPECT_STREQ(result.message(),
               "the trees differ:\na\n  expected: file 0644 1:2 \"\"\n  actual:   file 0644 1:1 \"\"\n");
}

TEST(Tree, AcceptsAnyModeWhereItIsLeftOpen) {
  const TemporaryFolder folder;
  Tree{file("a", "", 0601), dir("b", {}, 0711)}.build(folder.path());
  EXPECT_TRUE((Tree{file("a", "", ANY_MODE), dir("b", {}, ANY_MODE)}.matches(folder.path())));
}

TEST(TemporaryFolder, IsGoneWithItsContentAtTheEnd) {
  std::string path;
  {
    const TemporaryFolder folder;
    path = folder.path();
    Tree{dir("a", {file("b", "", 0)}, 0)}.build(path);
    EXPECT_EQ(::access((folder / "a/b").c_str(), F_OK), 0);
  }
  EXPECT_EQ(::access(path.c_str(), F_OK), -1);
}

TEST(Printable, EscapesWhatATerminalWouldNotShow) {
  EXPECT_EQ(printable("a\\\n\xFF"), "a\\x5C\\x0A\\xFF");
  EXPECT_EQ(printable(std::string(121, 'x')), std::string(120, 'x') + "... (121 bytes)");
}

}  // namespace
}  // namespace harbix::test
