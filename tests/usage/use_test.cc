#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

void expect_line(const std::vector<std::string>& arguments, int status, const std::string& line) {
  std::vector<std::string> command{HARBIX_USE};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const Outcome outcome = run_program(command);
  EXPECT_EQ(outcome.status, status);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(outcome.errors, line + "\n");
}

TEST(Use, PrintsTheRecordOfAProgram) {
  const Outcome outcome = run_program({HARBIX_USE, HARBIX_PROGRAM});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, read_file(HARBIX_USAGE_RECORD));
  EXPECT_EQ(outcome.errors, "");
}

TEST(Use, ReportsInOneLineWhatIsMissing) {
  expect_line({"harbix-that-is-not-there"}, 1, "use: 'harbix-that-is-not-there' is not in a folder of PATH");
  expect_line({"/none/at/all"}, 1, "use: cannot open '/none/at/all': No such file or directory");
  expect_line({HARBIX_USE}, 1, "use: '" HARBIX_USE "' has no usage record");
}

TEST(Use, RefusesAnotherCommandLine) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{}, {"a", "b"}, {"-h"}, {""}})
    expect_line(arguments, 64, "usage: use PROGRAM");
}

TEST(Use, FailsWhenItsOutputCannotBeWritten) {
  const Outcome outcome =
      run_program({"sh", "-c", "exec \"$0\" \"$1\" >/dev/full", HARBIX_USE, HARBIX_PROGRAM});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "use: the usage record could not be written\n");
}

}  // namespace
}  // namespace harbix::test
