#include "platform/glob.h"

#include <glob.h>
#include <unistd.h>

#include <cerrno>

#include <gtest/gtest.h>

#include "support/child_process.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using test::dir;
using test::file;
using test::TemporaryFolder;
using test::Tree;

constexpr uid_t NOBODY = 65534;

TEST(PlatformGlob, ListsMatchesInOrderAndLeavesHiddenNamesOut) {
  const TemporaryFolder folder;
  Tree{file("b"), file("a"), dir("c"), file(".hidden")}.build(folder.path());
  const platform::GlobResult result = platform::glob(folder / "*");
  EXPECT_EQ(0, result.status);
  EXPECT_EQ((std::vector<std::string>{folder / "a", folder / "b", folder / "c"}), result.paths);
}

TEST(PlatformGlob, TakesNoMatchForSuccess) {
  const TemporaryFolder folder;
  for (const char* pattern : {"*", "missing/*", "missing/deeper/*", "name"}) {
    const platform::GlobResult result = platform::glob(folder / pattern);
    EXPECT_EQ(0, result.status) << pattern;
    EXPECT_TRUE(result.paths.empty()) << pattern;
  }
}

TEST(PlatformGlob, StopsAtADirectoryThatMayNotBeRead) {
  const TemporaryFolder folder;
  Tree{dir("closed", {file("a")}, 0)}.build(folder.path());
  EXPECT_TRUE(test::passes_in_child([&folder] {
    ASSERT_EQ(0, ::setreuid(NOBODY, NOBODY));
    const platform::GlobResult result = platform::glob(folder / "closed/*");
    EXPECT_EQ(EACCES, errno);
    EXPECT_EQ(GLOB_ABORTED, result.status);
    EXPECT_TRUE(result.paths.empty());
  }));
}

TEST(PlatformGlob, FindsNothingBelowAFile) {
  const TemporaryFolder folder;
  Tree{file("plain")}.build(folder.path());
  EXPECT_EQ(0, platform::glob(folder / "plain/*").status);
}

TEST(PlatformGlob, ReturnsNamesAsBytes) {
  const TemporaryFolder folder;
  Tree{file("\xFF\xFE"), file("a b\n")}.build(folder.path());
  EXPECT_EQ((std::vector<std::string>{folder / "a b\n", folder / "\xFF\xFE"}),
            platform::glob(folder / "*").paths);
}

}  // namespace
