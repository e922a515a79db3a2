#include "fs/working_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "fs/exception.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Path;

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
    EXPECT_EQ(fs::current_directory().text(), row.reached) << row.given;
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
      EXPECT_EQ(error.what(), "Failed to chdir to '" + row.given + "'" + row.suffix);
      EXPECT_EQ(error.error(), row.error);
    }
    EXPECT_EQ(fs::current_directory().text(), folder_.path());
  }
}

TEST_F(WorkingDirectoryTest, GuardComesBackAtItsEnd) {
  {
    const fs::WorkingDirectory outer(Path("a"));
    EXPECT_EQ(fs::current_directory().text(), folder_ / "a");
    {
      const fs::WorkingDirectory inner(Path("b"));
      EXPECT_EQ(fs::current_directory().text(), folder_ / "a/b");
    }
    EXPECT_EQ(fs::current_directory().text(), folder_ / "a");
  }
  EXPECT_EQ(fs::current_directory().text(), folder_.path());
}

TEST_F(WorkingDirectoryTest, GuardComesBackAfterAThrow) {
  try {
    const fs::WorkingDirectory directory(Path("a/b"));
    throw std::runtime_error("on the way");
  } catch (const std::runtime_error&) {
    EXPECT_EQ(fs::current_directory().text(), folder_.path());
  }
}

TEST_F(WorkingDirectoryTest, GuardThatFailsChangesNothing) {
  EXPECT_THROW(const fs::WorkingDirectory directory(Path("missing")), fs::Exception);
  EXPECT_EQ(fs::current_directory().text(), folder_.path());
}

TEST_F(WorkingDirectoryTest, GuardComesBackToAFolderThatWasRenamed) {
  {
    const fs::WorkingDirectory outer(Path("a"));
    {
      const fs::WorkingDirectory inner(Path("/"));
      ASSERT_EQ(::rename((folder_ / "a").c_str(), (folder_ / "renamed").c_str()), 0);
    }
    EXPECT_EQ(fs::current_directory().text(), folder_ / "renamed");
  }
}

TEST_F(WorkingDirectoryTest, GuardSurvivesThatItsFolderIsGone) {
  EXPECT_TRUE(passes_in_child([this] {
    ASSERT_EQ(::chdir((folder_ / "a/b").c_str()), 0);
    {
      const fs::WorkingDirectory elsewhere(Path("/"));
      ASSERT_EQ(::rmdir((folder_ / "a/b").c_str()), 0);
    }
    EXPECT_EQ(fs::current_directory().text(), "");
  }));
}

TEST_F(WorkingDirectoryTest, IsEmptyWhereTheSystemCannotTell) {
  EXPECT_TRUE(passes_in_child([this] {
    ASSERT_EQ(::chdir((folder_ / "a/b").c_str()), 0);
    ASSERT_EQ(::rmdir((folder_ / "a/b").c_str()), 0);
    EXPECT_TRUE(fs::current_directory().empty());
  }));
}

TEST_F(WorkingDirectoryTest, CanBeRequiredToTheLetter) {
  fs::require_working_directory(Path(folder_.path()), "never");
  try {
    fs::require_working_directory(Path(folder_ / "a"), "Could not chdir");
    ADD_FAILURE();
  } catch (const fs::Exception& error) {
    EXPECT_STREQ(error.what(), "Could not chdir");
    EXPECT_EQ(error.error(), -1);
  }
  const fs::WorkingDirectory directory(Path("to_b"));
  EXPECT_THROW(fs::require_working_directory(Path(folder_ / "to_b"), ""), fs::Exception);
}

}  // namespace
}  // namespace harbix::test
