#include "archive/archivable.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/archive_test_support.h"
#include "support/captured_output.h"
#include "support/recorded_log.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using fs::File;
using fs::Path;
using test::dir;
using test::file;
using test::link;

class Archivable : public ::testing::Test {
 protected:
  bool judge(const std::string& path) { return harbix::is_archivable(File(Path(path)), writer_); }

  test::TemporaryFolder folder_;
  std::string archive_ = folder_ / "a.tar";
  test::Writer writer_{archive_};
  test::RecordedLog log_;
  test::CapturedOutput errors_{STDERR_FILENO};
};

TEST_F(Archivable, ArePlainFilesFoldersAndLinks) {
  test::Tree{file("f"),
             file("secret", "", 0000),
             dir("d"),
             link("l", "nowhere"),
             link("to_fifo", "p"),
             link("to_archive", "a.tar"),
             test::fifo("p")}
      .build(folder_.path());
  for (const char* name : {"f", "secret", "d", "l", "to_fifo", "to_archive"})
    EXPECT_TRUE(judge(folder_ / name)) << name;
  EXPECT_EQ("", errors_.text());
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Archivable, OthersAreNotAndAreToldOf) {
  test::Tree{test::fifo("p")}.build(folder_.path());
  EXPECT_FALSE(judge(folder_ / "p"));
  EXPECT_FALSE(judge("/dev/null"));
  EXPECT_EQ("not a file, folder or link: " + (folder_ / "p") +
                " skipping\nnot a file, folder or link: /dev/null skipping\n",
            errors_.text());
  EXPECT_EQ((std::vector<std::string>{"3 not a file, folder or link: '" + (folder_ / "p") + "'; skipping.",
                                      "3 not a file, folder or link: '/dev/null'; skipping."}),
            log_.messages());
}

TEST_F(Archivable, IsNeverTheArchiveItselfUnderAnyName) {
  ASSERT_EQ(0, ::link(archive_.c_str(), (folder_ / "other_name").c_str()));
  EXPECT_FALSE(judge(archive_));
  EXPECT_FALSE(judge(folder_ / "other_name"));
  EXPECT_EQ("is the archive itself: " + archive_ +
                " skipping\nis the archive itself: " + (folder_ / "other_name") + " skipping\n",
            errors_.text());
  EXPECT_EQ("3 is the archive itself: '" + archive_ + "'; skipping.", log_.messages().front());
}

}  // namespace
