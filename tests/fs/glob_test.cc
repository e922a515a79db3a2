#include "fs/glob.h"

#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fs/exception.h"
#include "fs/identity.h"
#include "tests/support/folder.h"
#include "tests/support/root.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Path;

TEST(Glob, ThatMatchesNothingIsEmptyAndNoError) {
  const TemporaryFolder folder;
  EXPECT_TRUE(fs::glob(Path(folder / "*")).empty());
  EXPECT_TRUE(fs::glob(Path(folder / "missing/*")).empty());
  EXPECT_TRUE(fs::list_by_glob(Path(folder / "missing")).empty());
}

TEST(Glob, KeepsTheOrderOfTheFacility) {
  const TemporaryFolder folder;
  Tree{file("b"), file("a"), dir("c", {file("d")})}.build(folder.path());
  EXPECT_EQ(fs::glob(Path(folder / "*")),
            (std::vector<Path>{Path(folder / "a"), Path(folder / "b"), Path(folder / "c")}));
  EXPECT_EQ(fs::glob(Path(folder / "[ab]")), (std::vector<Path>{Path(folder / "a"), Path(folder / "b")}));
}

TEST(Glob, MatchesRelativeToTheWorkingDirectory) {
  const TemporaryFolder folder;
  Tree{file("b"), file("a")}.build(folder.path());
  const InsideFolder inside(folder.path());
  EXPECT_EQ(fs::glob(Path("*")), (std::vector<Path>{Path("a"), Path("b")}));
}

TEST(Glob, OfAFolderYieldsNoHiddenNames) {
  const TemporaryFolder folder;
  Tree{file(".hidden"), file("seen")}.build(folder.path());
  EXPECT_EQ(fs::list_by_glob(Path(folder.path())), (std::vector<Path>{Path(folder / "seen")}));
  EXPECT_EQ(fs::list_by_glob(Path(folder / "")), (std::vector<Path>{Path(folder / "seen")}));
}

TEST(Glob, FailureQuotesThePatternAndTheSystem) {
  const TemporaryFolder folder;
  Tree{dir("closed", {file("a")}, 0)}.build(folder.path());
  const fs::EffectiveUser user(NOBODY);
  try {
    static_cast<void>(fs::list_by_glob(Path(folder / "closed")));
    ADD_FAILURE();
  } catch (const fs::Exception& error) {
    EXPECT_EQ(error.what(),
              "Glob pattern '" + (folder / "closed/*") + "' failed. [errno:13 'Permission denied']");
    EXPECT_EQ(error.error(), EACCES);
  }
}

}  // namespace
}  // namespace harbix::test
