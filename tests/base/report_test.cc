#include "base/report.h"

#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/flags.h"
#include "tests/support/captured_output.h"
#include "tests/support/program.h"
#include "tests/support/recorded_log.h"

namespace harbix::test {
namespace {

using harbix::report::ProgressLines;

TEST(Report, PutsAnErrorOnStandardErrorAndInTheLog) {
  const RecordedLog log(0);
  const CapturedOutput errors(STDERR_FILENO);
  harbix::report::error("it is gone");
  harbix::report::error("100 %s", "");
  EXPECT_EQ(errors.text(), "Error: it is gone\n100 %s\n");
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"2 ERROR: it is gone", "2 ERROR: 100 %s"}));
}

TEST(Report, SaysHowFarItIsOnlyWhenAsked) {
  EXPECT_TRUE(passes_in_child([] {
    const CapturedOutput errors(STDERR_FILENO);
    harbix::report::progress("one ", 1);
    harbix::verbose = true;
    harbix::report::progress("two ", 2, ':', "x");
    EXPECT_EQ(errors.text(), "two 2:x\n");
  }));
}

TEST(ProgressLinesTest, AreWrittenInOrderAtTheEnd) {
  const CapturedOutput errors(STDERR_FILENO);
  {
    ProgressLines lines;
    lines.add("Archive: ", "/apps/a/one");
    lines.add("Archive: ", "/apps/a/two");
    EXPECT_EQ(errors.text(), "");
  }
  EXPECT_EQ(errors.text(), "Archive: /apps/a/one\nArchive: /apps/a/two\n");
}

TEST(ProgressLinesTest, AreWrittenOnceWhenAskedFor) {
  const CapturedOutput errors(STDERR_FILENO);
  ProgressLines lines;
  lines.add("", "one");
  lines.flush();
  EXPECT_EQ(errors.text(), "one\n");
  lines.add("", "two");
  lines.flush();
  EXPECT_EQ(errors.text(), "one\ntwo\n");
}

TEST(ProgressLinesTest, DoNotWaitForTheEndWhenThereAreMany) {
  const CapturedOutput errors(STDERR_FILENO);
  ProgressLines lines;
  const std::string path(1023, 'p');
  for (int i = 0; i < 5; ++i) lines.add("", path);
  EXPECT_EQ(errors.text().size(), 4096U);
}

}  // namespace
}  // namespace harbix::test
