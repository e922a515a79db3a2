#include "fs/working_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "fs/exception.h"
#include "support/child_process.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using fs::Path;
using test::dir;
using test::file;
using test::InsideFolder;
using test::link;
using test::TemporaryFolder;
using test::Tree;

class WorkingDirectoryTest : public ::testing::Test {
 protected:
  void SetUp() override { Tree{dir("a", {dir("b")}), file("f"), link("to_b", "a/b")}.build(folder_.path()); }
  TemporaryFolder folder_;
  InsideFolder inside_{folder_.path()};
};

TEST_F(WorkingDirectoryTest, ChangesToAbsoluteRelativeAndLinkedPaths) {
  struct Row {
    std::string given, reached;
  };
  for (const Row& row :
       {Row{folder_ / "a", folder_ / "a"}, Row{"a/b", folder_ / "a/b"}, Row{"./a", folder_ / "a"},
        Row{"to_b", folder_ / "a/b"}, Row{"a/..", folder_.path()}, Row{".", folder_.path()}, Row{"/", "/"}}) {
    const InsideFolder start(folder_.path());
    fs::change_directory(Path(row.given));
    EXPECT_EQ(row.reached, fs::current_directory().text()) << row.given;
  }
}

TEST_F(WorkingDirectoryTest, FailureQuotesThePathAndTheSystemAndLeavesTheProcessThere) {
  struct Row {
    std::string given;
    int error;
    const char* suffix;
  };
  for (const Row& row : {Row{folder_ / "missing", ENOENT, " [errno:2 'No such file or directory']"},
                         Row{"missing", ENOENT, " [errno:2 'No such file or directory']"},
                         Row{"f", ENOTDIR, " [errno:20 'Not a directory']"}}) {
    try {
      fs::change_directory(Path(row.given));
      ADD_FAILURE() << row.given;
    } catch (const fs::Exception& error) {
      EXPECT_EQ("Failed to chdir to '" + row.given + "'" + row.suffix, error.what());
      EXPECT_EQ(row.error, error.error());
    }
    EXPECT_EQ(folder_.path(), fs::current_directory().text());
  }
}

TEST_F(WorkingDirectoryTest, GuardComesBackAtItsEnd) {
  {
    const fs::WorkingDirectory outer(Path("a"));
    EXPECT_EQ(folder_ / "a", fs::current_directory().text());
    {
      const fs::WorkingDirectory inner(Path("b"));
      EXPECT_EQ(folder_ / "a/b", fs::current_directory().text());
    }
    EXPECT_EQ(folder_ / "a", fs::current_directory().text());
  }
  EXPECT_EQ(folder_.path(), fs::current_directory().text());
}

TEST_F(WorkingDirectoryTest, GuardComesBackAfterAThrow) {
  try {
    const fs::WorkingDirectory directory(Path("a/b"));
    throw std::runtime_error("on the way");
  } catch (const std::runtime_error&) {
    EXPECT_EQ(folder_.path(), fs::current_directory().text());
  }
}

TEST_F(WorkingDirectoryTest, GuardThatFailsChangesNothing) {
  EXPECT_THROW(const fs::WorkingDirectory directory(Path("missing")), fs::Exception);
  EXPECT_EQ(folder_.path(), fs::current_directory().text());
}

TEST_F(WorkingDirectoryTest, GuardComesBackToAFolderThatWasRenamed) {
  {
    const fs::WorkingDirectory outer(Path("a"));
    {
      const fs::WorkingDirectory inner(Path("/"));
      ASSERT_EQ(0, ::rename((folder_ / "a").c_str(), (folder_ / "renamed").c_str()));
    }
    EXPECT_EQ(folder_ / "renamed", fs::current_directory().text());
  }
}

TEST_F(WorkingDirectoryTest, GuardSurvivesThatItsFolderIsGone) {
  EXPECT_TRUE(test::passes_in_child([this] {
    ASSERT_EQ(0, ::chdir((folder_ / "a/b").c_str()));
    {
      const fs::WorkingDirectory elsewhere(Path("/"));
      ASSERT_EQ(0, ::rmdir((folder_ / "a/b").c_str()));
    }
    EXPECT_EQ("", fs::current_directory().text());
  }));
}

TEST_F(WorkingDirectoryTest, IsEmptyWhereTheSystemCannotTell) {
  EXPECT_TRUE(test::passes_in_child([this] {
    ASSERT_EQ(0, ::chdir((folder_ / "a/b").c_str()));
    ASSERT_EQ(0, ::rmdir((folder_ / "a/b").c_str()));
    EXPECT_TRUE(fs::current_directory().empty());
  }));
}

TEST_F(WorkingDirectoryTest, CanBeRequiredToTheLetter) {
  fs::require_working_directory(Path(folder_.path()), "never");
  try {
    fs::require_working_directory(Path(folder_ / "a"), "Could not chdir");
    ADD_FAILURE();
  } catch (const fs::Exception& error) {
    EXPECT_STREQ("Could not chdir", error.what());
    EXPECT_EQ(-1, error.error());
  }
  const fs::WorkingDirectory directory(Path("to_b"));
  EXPECT_THROW(fs::require_working_directory(Path(folder_ / "to_b"), ""), fs::Exception);
}

}  // namespace
