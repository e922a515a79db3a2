#include "platform/glob.h"

#include <glob.h>
#include <unistd.h>

#include <cerrno>

#include <gtest/gtest.h>

#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

constexpr uid_t NOBODY = 65534;

TEST(PlatformGlob, ListsMatchesInOrderAndLeavesHiddenNamesOut) {
  const TemporaryFolder folder;
  Tree{file("b"), file("a"), dir("c"), file(".hidden")}.build(folder.path());
  const platform::GlobResult result = platform::glob(folder / "*");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.paths, (std::vector<std::string>{folder / "a", folder / "b", folder / "c"}));
}

TEST(PlatformGlob, TakesNoMatchForSuccess) {
  const TemporaryFolder folder;
  for (const char* pattern : {"*", "missing/*", "missing/deeper/*", "name"}) {
    const platform::GlobResult result = platform::glob(folder / pattern);
    EXPECT_EQ(result.status, 0) << pattern;
    EXPECT_TRUE(result.paths.empty()) << pattern;
  }
}

TEST(PlatformGlob, StopsAtADirectoryThatMayNotBeRead) {
  const TemporaryFolder folder;
  Tree{dir("closed", {file("a")}, 0)}.build(folder.path());
  EXPECT_TRUE(passes_in_child([&folder] {
    ASSERT_EQ(::setreuid(NOBODY, NOBODY), 0);
    const platform::GlobResult result = platform::glob(folder / "closed/*");
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(result.status, GLOB_ABORTED);
    EXPECT_TRUE(result.paths.empty());
  }));
}

TEST(PlatformGlob, FindsNothingBelowAFile) {
  const TemporaryFolder folder;
  Tree{file("plain")}.build(folder.path());
  EXPECT_EQ(platform::glob(folder / "plain/*").status, 0);
}

TEST(PlatformGlob, ReturnsNamesAsBytes) {
  const TemporaryFolder folder;
  Tree{file("\xFF\xFE"), file("a b\n")}.build(folder.path());
  EXPECT_EQ(platform::glob(folder / "*").paths,
            (std::vector<std::string>{folder / "a b\n", folder / "\xFF\xFE"}));
}

}  // namespace
}  // namespace harbix::test
