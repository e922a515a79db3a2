#include "device/usage/program_search.h"

#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using usage::find_program;

class ProgramSearch : public ::testing::Test {
 protected:
  ProgramSearch() {
    Tree{dir("a", {file("plain", "", 0644), dir("both")}),
         dir("b", {file("plain", "", 0755), file("both", "", 0755), file("first", "", 0755)}),
         dir("c", {file("first", "", 0755)})}
        .build(folder_.path());
  }

  TemporaryFolder folder_;
  std::string path_ = (folder_ / "a") + ":" + (folder_ / "b") + ":" + (folder_ / "c");
};

TEST_F(ProgramSearch, TakesTheFirstFolderThatHasIt) {
  EXPECT_EQ(find_program("first", path_), folder_ / "b/first");
}

TEST_F(ProgramSearch, PassesOverWhatCannotBeRun) {
  EXPECT_EQ(find_program("plain", path_), folder_ / "b/plain");
  EXPECT_EQ(find_program("both", path_), folder_ / "b/both");
}

TEST_F(ProgramSearch, FindsNothingWhereThereIsNothing) {
  EXPECT_EQ(find_program("none", path_), std::nullopt);
  EXPECT_EQ(find_program("first", folder_ / "a"), std::nullopt);
}

TEST_F(ProgramSearch, TakesANameWithASlashAsItIs) {
  EXPECT_EQ(find_program("./first", path_), "./first");
  EXPECT_EQ(find_program("/none/at/all", path_), "/none/at/all");
}

TEST_F(ProgramSearch, TakesAnEmptyFolderForTheWorkingDirectory) {
  const InsideFolder inside(folder_ / "c");
  EXPECT_EQ(find_program("first", (folder_ / "a") + ":"), "./first");
  EXPECT_EQ(find_program("first", ""), "./first");
}

}  // namespace
}  // namespace harbix::test
