#include "fs/glob.h"

#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fs/exception.h"
#include "fs/identity.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using fs::Path;
using test::dir;
using test::file;
using test::TemporaryFolder;
using test::Tree;

constexpr uid_t NOBODY = 65534;

TEST(Glob, ThatMatchesNothingIsEmptyAndNoError) {
  const TemporaryFolder folder;
  EXPECT_TRUE(fs::glob(Path(folder / "*")).empty());
  EXPECT_TRUE(fs::glob(Path(folder / "missing/*")).empty());
  EXPECT_TRUE(fs::list_by_glob(Path(folder / "missing")).empty());
}

TEST(Glob, KeepsTheOrderOfTheFacility) {
  const TemporaryFolder folder;
  Tree{file("b"), file("a"), dir("c", {file("d")})}.build(folder.path());
  EXPECT_EQ((std::vector<Path>{Path(folder / "a"), Path(folder / "b"), Path(folder / "c")}),
            fs::glob(Path(folder / "*")));
  EXPECT_EQ((std::vector<Path>{Path(folder / "a"), Path(folder / "b")}), fs::glob(Path(folder / "[ab]")));
}

TEST(Glob, MatchesRelativeToTheWorkingDirectory) {
  const TemporaryFolder folder;
  Tree{file("b"), file("a")}.build(folder.path());
  const test::InsideFolder inside(folder.path());
  EXPECT_EQ((std::vector<Path>{Path("a"), Path("b")}), fs::glob(Path("*")));
}

TEST(Glob, OfAFolderYieldsNoHiddenNames) {
  const TemporaryFolder folder;
  Tree{file(".hidden"), file("seen")}.build(folder.path());
  EXPECT_EQ((std::vector<Path>{Path(folder / "seen")}), fs::list_by_glob(Path(folder.path())));
  EXPECT_EQ((std::vector<Path>{Path(folder / "seen")}), fs::list_by_glob(Path(folder / "")));
}

TEST(Glob, FailureQuotesThePatternAndTheSystem) {
  const TemporaryFolder folder;
  Tree{dir("closed", {file("a")}, 0)}.build(folder.path());
  const fs::EffectiveUser user(NOBODY);
  try {
    static_cast<void>(fs::list_by_glob(Path(folder / "closed")));
    ADD_FAILURE();
  } catch (const fs::Exception& error) {
    EXPECT_EQ("Glob pattern '" + (folder / "closed/*") + "' failed. [errno:13 'Permission denied']",
              error.what());
    EXPECT_EQ(EACCES, error.error());
  }
}

}  // namespace
