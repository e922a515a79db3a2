#include "fs/folder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "fs/exception.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Folder;
using fs::Path;

class FolderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Tree{file("top", "1"), dir("a", {file("f", "22"), dir("b", {file("g", "333"), link("l", "g")})}),
         dir("ab", {file("f", "4444")}), link("out", "a")}
        .build(path_);
  }

  static std::string failure_of(Folder& folder, const char* relative) {
    try {
      static_cast<void>(folder.file(relative));
    } catch (const fs::Exception& error) {
      return error.what();
    }
    return "";
  }

  TemporaryFolder temporary_;
  std::string path_ = temporary_.path();
};

TEST_F(FolderTest, KnowsWhatLiesBelowItInAnyOrder) {
  Folder folder{Path(path_)};
  struct Row {
    const char* relative;
    off_t size;
  };
  for (const Row& row : {Row{"top", 1}, Row{"a/f", 2}, Row{"a/b/g", 3}, Row{"ab/f", 4}, Row{"a/b/g", 3},
                         Row{"a/f", 2}, Row{"top", 1}, Row{"./top", 1}, Row{"./a/f", 2}}) {
    const fs::File found = folder.file(row.relative);
    EXPECT_EQ(found.record().st_size, row.size) << row.relative;
    EXPECT_EQ(found.path().text(), path_ + "/" + row.relative);
    EXPECT_TRUE(folder.holds(row.relative)) << row.relative;
  }
  EXPECT_TRUE(folder.file("a/b/l").is_symbolic_link());
  EXPECT_TRUE(folder.file("a").is_directory());
}

TEST_F(FolderTest, StaysInTheFolderThatWasAskedForLast) {
  // A folder that is opened again would not be found.
  Folder folder{Path(path_)};
  ASSERT_TRUE(folder.holds("a/b/g"));
  std::filesystem::rename(path_ + "/a", path_ + "/moved");
  for (const char* name : {"a/b/l", "./a/b/g", "././a/b/l"}) {
    EXPECT_TRUE(folder.holds(folder.relative(Path(name)))) << name;
  }
  folder.let_go();
  EXPECT_FALSE(folder.holds("a/b/g"));
}

TEST_F(FolderTest, NamesWhatItCannotReach) {
  Folder folder{Path(path_)};
  EXPECT_EQ(failure_of(folder, "none"),
            "Path '" + path_ + "/none' stat failed. [errno:2 'No such file or directory']");
  EXPECT_EQ(failure_of(folder, "none/x"),
            "Directory '" + path_ + "/none' could not be opened. [errno:2 'No such file or directory']");
  struct ::stat record {};
  EXPECT_EQ(folder.look_up("top", record), 0);
  EXPECT_EQ(record.st_size, 1);
  EXPECT_EQ(folder.look_up("none", record), ENOENT);
  EXPECT_EQ(folder.look_up("none/x", record), ENOENT);
  EXPECT_EQ(folder.look_up("top/x", record), ENOTDIR);
  EXPECT_EQ(folder.look_up("../x", record), EXDEV);
  EXPECT_EQ(failure_of(folder, "top/x"),
            "Directory '" + path_ + "/top' could not be opened. [errno:20 'Not a directory']");
  for (const char* relative : {"none", "none/x", "top/x", "out/f", "../x", "a/../top"}) {
    EXPECT_FALSE(folder.holds(relative)) << relative;
  }
}

TEST_F(FolderTest, FollowsNoLinkOnTheWay) {
  Folder folder{Path(path_)};
  EXPECT_EQ(failure_of(folder, "out/f"),
            "Directory '" + path_ + "/out' could not be opened. [errno:20 'Not a directory']");
  EXPECT_TRUE(folder.file("out").is_symbolic_link());
}

TEST_F(FolderTest, IsNotLedElsewhereByWhatIsPutInTheWayOfALaterStep) {
  Folder folder{Path(path_)};
  ASSERT_EQ(folder.file("a/f").record().st_size, 2);
  std::filesystem::rename(path_ + "/a", path_ + "/moved");
  std::filesystem::create_symlink("ab", path_ + "/a");
  // The folder that was reached is still the same, and a new way there is refused.
  EXPECT_EQ(folder.file("a/f").record().st_size, 2);
  EXPECT_EQ(folder.file("top").record().st_size, 1);
  EXPECT_EQ(folder.file("ab/f").record().st_size, 4);
  EXPECT_FALSE(folder.holds("a/f"));
}

TEST_F(FolderTest, TakesPathsThatAreItsOwnApart) {
  const Folder folder{Path(path_)};
  EXPECT_EQ(folder.relative(Path(path_ + "/a/f")).text(), "a/f");
  EXPECT_EQ(folder.relative(Path("././a/f")).text(), "a/f");
  EXPECT_EQ(folder.relative(Path("./")).text(), ".");
  EXPECT_EQ(folder.relative("a/f").text(), "a/f");
  EXPECT_EQ(folder.relative(Path(path_)).text(), "");
  EXPECT_THROW(static_cast<void>(folder.relative("/elsewhere")), fs::Exception);
}

TEST_F(FolderTest, NeedsAFolder) {
  for (const std::string& path : {path_ + "/none", path_ + "/top"}) {
    try {
      const Folder folder{Path(path)};
      ADD_FAILURE() << path;
    } catch (const fs::Exception& error) {
      EXPECT_TRUE(std::string(error.what()).starts_with("Directory '" + path + "' could not be opened."))
          << error.what();
    }
  }
}

}  // namespace
}  // namespace harbix::test
