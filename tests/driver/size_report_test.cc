#include "driver/size_report.h"

#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/captured_output.h"
#include "support/recorded_log.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using harbix::size_report_text;
using harbix::write_size_report;
using test::RecordedLog;
using test::TemporaryFolder;

TEST(SizeReport, IsTwoLines) {
  EXPECT_EQ("bytesize=2048\ncount=0\n", size_report_text({}, 1024));
  EXPECT_EQ("bytesize=10000000001047\ncount=2147483647\n",
            size_report_text({.bytes = 10000000000000, .files = 2147483647}, 23));
}

TEST(SizeReport, IsWrittenToTheNamedFileOfMode0666LessTheMask) {
  const TemporaryFolder folder;
  const mode_t before = ::umask(027);
  write_size_report(folder / "out.txt", "bytesize=1\ncount=2\n");
  ::umask(before);
  EXPECT_TRUE((test::Tree{test::file("out.txt", "bytesize=1\ncount=2\n", 0640)}.matches(folder.path())));
}

TEST(SizeReport, TruncatesWhatWasThere) {
  const TemporaryFolder folder;
  test::write_file(folder / "out.txt", std::string(1000, 'x'));
  write_size_report(folder / "out.txt", "bytesize=1\ncount=2\n");
  EXPECT_EQ("bytesize=1\ncount=2\n", test::read_file(folder / "out.txt"));
}

TEST(SizeReport, GoesToStandardOutputForAnEmptyName) {
  const test::CapturedOutput output(STDOUT_FILENO);
  write_size_report("", "bytesize=1\ncount=2\n");
  EXPECT_EQ("bytesize=1\ncount=2\n", output.text());
}

TEST(SizeReport, IsLoggedAtLevelFour) {
  const RecordedLog log(4);
  write_size_report("/dev/null", "bytesize=1\ncount=2\n");
  EXPECT_EQ((std::vector<std::string>{"6 Response: 'bytesize=1\ncount=2\n'"}), log.messages());
}

TEST(SizeReport, ThatCannotBeOpenedIsNoError) {
  const RecordedLog log(1);
  EXPECT_NO_THROW(write_size_report("/nonexistent/out.txt", "text"));
  EXPECT_TRUE(log.lines().empty());
}

TEST(SizeReport, ThatCannotBeWrittenInFullIsOne) {
  try {
    write_size_report("/dev/full", "text");
    ADD_FAILURE();
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ("Size report could not be written: No space left on device", error.what());
  }
}

}  // namespace
