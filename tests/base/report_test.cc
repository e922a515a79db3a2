#include "base/report.h"

#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/flags.h"
#include "support/captured_output.h"
#include "support/child_process.h"
#include "support/recorded_log.h"

namespace {

using harbix::report::ProgressLines;
using test::CapturedOutput;

TEST(Report, PutsAnErrorOnStandardErrorAndInTheLog) {
  const test::RecordedLog log(0);
  const CapturedOutput errors(STDERR_FILENO);
  harbix::report::error("it is gone");
  harbix::report::error("100 %s", "");
  EXPECT_EQ("Error: it is gone\n100 %s\n", errors.text());
  EXPECT_EQ((std::vector<std::string>{"2 ERROR: it is gone", "2 ERROR: 100 %s"}), log.messages());
}

TEST(Report, SaysHowFarItIsOnlyWhenAsked) {
  EXPECT_TRUE(test::passes_in_child([] {
    const CapturedOutput errors(STDERR_FILENO);
    harbix::report::progress("one ", 1);
    harbix::verbose = true;
    harbix::report::progress("two ", 2, ':', "x");
    EXPECT_EQ("two 2:x\n", errors.text());
  }));
}

TEST(ProgressLinesTest, AreWrittenInOrderAtTheEnd) {
  const CapturedOutput errors(STDERR_FILENO);
  {
    ProgressLines lines;
    lines.add("Archive: ", "/apps/a/one");
    lines.add("Archive: ", "/apps/a/two");
    EXPECT_EQ("", errors.text());
  }
  EXPECT_EQ("Archive: /apps/a/one\nArchive: /apps/a/two\n", errors.text());
}

TEST(ProgressLinesTest, AreWrittenOnceWhenAskedFor) {
  const CapturedOutput errors(STDERR_FILENO);
  ProgressLines lines;
  lines.add("", "one");
  lines.flush();
  EXPECT_EQ("one\n", errors.text());
  lines.add("", "two");
  lines.flush();
  EXPECT_EQ("one\ntwo\n", errors.text());
}

TEST(ProgressLinesTest, DoNotWaitForTheEndWhenThereAreMany) {
  const CapturedOutput errors(STDERR_FILENO);
  ProgressLines lines;
  const std::string path(1023, 'p');
  for (int i = 0; i < 5; ++i) lines.add("", path);
  EXPECT_EQ(4096U, errors.text().size());
}

}  // namespace
