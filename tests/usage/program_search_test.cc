#include "device/usage/program_search.h"

#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using test::dir;
using test::file;
using usage::find_program;

class ProgramSearch : public ::testing::Test {
 protected:
  ProgramSearch() {
    test::Tree{dir("a", {file("plain", "", 0644), dir("both")}),
               dir("b", {file("plain", "", 0755), file("both", "", 0755), file("first", "", 0755)}),
               dir("c", {file("first", "", 0755)})}
        .build(folder_.path());
  }

  test::TemporaryFolder folder_;
  std::string path_ = (folder_ / "a") + ":" + (folder_ / "b") + ":" + (folder_ / "c");
};

TEST_F(ProgramSearch, TakesTheFirstFolderThatHasIt) {
  EXPECT_EQ(folder_ / "b/first", find_program("first", path_));
}

TEST_F(ProgramSearch, PassesOverWhatCannotBeRun) {
  EXPECT_EQ(folder_ / "b/plain", find_program("plain", path_));
  EXPECT_EQ(folder_ / "b/both", find_program("both", path_));
}

TEST_F(ProgramSearch, FindsNothingWhereThereIsNothing) {
  EXPECT_EQ(std::nullopt, find_program("none", path_));
  EXPECT_EQ(std::nullopt, find_program("first", folder_ / "a"));
}

TEST_F(ProgramSearch, TakesANameWithASlashAsItIs) {
  EXPECT_EQ("./first", find_program("./first", path_));
  EXPECT_EQ("/none/at/all", find_program("/none/at/all", path_));
}

TEST_F(ProgramSearch, TakesAnEmptyFolderForTheWorkingDirectory) {
  const test::InsideFolder inside(folder_ / "c");
  EXPECT_EQ("./first", find_program("first", (folder_ / "a") + ":"));
  EXPECT_EQ("./first", find_program("first", ""));
}

}  // namespace
