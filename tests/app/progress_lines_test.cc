#include "app/progress_lines.h"

#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "support/captured_output.h"

namespace {

using harbix::ProgressLines;
using test::CapturedOutput;

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
