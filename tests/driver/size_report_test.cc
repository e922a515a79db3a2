#include "driver/size_report.h"

#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/captured_output.h"
#include "tests/support/folder.h"
#include "tests/support/recorded_log.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using harbix::size_report_text;
using harbix::write_size_report;

TEST(SizeReport, IsTwoLines) {
  EXPECT_EQ(size_report_text({}, 1024), "bytesize=2048\ncount=0\n");
  EXPECT_EQ(size_report_text({.bytes = 10000000000000, .files = 2147483647}, 23),
            "bytesize=10000000001047\ncount=2147483647\n");
}

TEST(SizeReport, IsWrittenToTheNamedFileOfMode0666LessTheMask) {
  const TemporaryFolder folder;
  const mode_t before = ::umask(027);
  write_size_report(folder / "out.txt", "bytesize=1\ncount=2\n");
  ::umask(before);
  EXPECT_TRUE((Tree{file("out.txt", "bytesize=1\ncount=2\n", 0640)}.matches(folder.path())));
}

TEST(SizeReport, TruncatesWhatWasThere) {
  const TemporaryFolder folder;
  write_file(folder / "out.txt", std::string(1000, 'x'));
  write_size_report(folder / "out.txt", "bytesize=1\ncount=2\n");
  EXPECT_EQ(read_file(folder / "out.txt"), "bytesize=1\ncount=2\n");
}

TEST(SizeReport, GoesToStandardOutputForAnEmptyName) {
  const CapturedOutput output(STDOUT_FILENO);
  write_size_report("", "bytesize=1\ncount=2\n");
  EXPECT_EQ(output.text(), "bytesize=1\ncount=2\n");
}

TEST(SizeReport, IsLoggedAtLevelFour) {
  const RecordedLog log(4);
  write_size_report("/dev/null", "bytesize=1\ncount=2\n");
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"6 Response: 'bytesize=1\ncount=2\n'"}));
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
    EXPECT_STREQ(error.what(), "Size report could not be written: No space left on device");
  }
}

}  // namespace
}  // namespace harbix::test
