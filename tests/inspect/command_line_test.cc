#include <string>

#include <gmock/gmock.h>

#include "tests/inspect/inspect_run.h"

namespace harbix::test {
namespace {

using ::testing::HasSubstr;

class InspectCommandLine : public InspectRun {};

TEST_F(InspectCommandLine, WrongOnesHaveAStatusOfTheirOwn) {
  struct Row {
    std::vector<std::string> arguments;
    const char* error;
  };
  for (const Row& row :
       {Row{{}, "A subcommand is required"}, Row{{"list"}, "ARCHIVE is required"},
        Row{{"frobnicate"}, "A subcommand is required"}, Row{{"verify", "--bogus", "a"}, "--bogus"},
        Row{{"compare", "a"}, "NEW is required"}, Row{{"extract", "a", "b"}, "--to"}}) {
    const Outcome outcome = inspect(row.arguments);
    EXPECT_EQ(outcome.status, 64) << row.error;
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, HasSubstr(row.error));
  }
}

TEST_F(InspectCommandLine, HelpAndVersionAreOutput) {
  EXPECT_THAT(inspect({"--version"}).output, HasSubstr("harbix-inspect 0."));
  for (const char* command : {"list", "verify", "checksums", "compare", "extract"}) {
    EXPECT_THAT(inspect({"--help"}).output, HasSubstr(command));
    const Outcome outcome = inspect({command, "--help"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.output, HasSubstr("--json"));
  }
}

TEST_F(InspectCommandLine, WhatCannotBeOpenedIsNamedWithoutControlCharacters) {
  const Outcome missing = inspect({"list", folder_ / "no\033such"});
  EXPECT_EQ(missing.status, 2);
  EXPECT_EQ(missing.errors, "harbix-inspect: Archive error: Failed to open '" + folder_.path() +
                                "/no\\033such': No such file or directory\n");
  EXPECT_THAT(inspect({"list", folder_.path()}).errors, HasSubstr("Is a directory"));
  EXPECT_EQ(inspect({"list", "-"}).errors, "harbix-inspect: Archive error: The archive is empty\n");
}

TEST_F(InspectCommandLine, OutputThatIsLostIsAnError) {
  const std::string tar = archive(music().text());
  for (const std::string& command :
       {"list " + tar, "list -l " + tar, "verify " + tar, "verify --json " + tar, "checksums " + tar,
        "compare " + tar + " " + archive(TarBuilder().text(), "b.tar"),
        "extract " + tar + " /media/Music/a.mp3 --to -", std::string("--help")}) {
    const std::string program = HARBIX_INSPECT_PROGRAM " " + command;
    const Outcome full = run_program({"sh", "-c", program + " >/dev/full"});
    EXPECT_EQ(full.status, 2) << command;
    EXPECT_THAT(full.errors, HasSubstr("Standard output: No space left on device"));
    const Outcome closed = run_program({"bash", "-c", "{ sleep 0.2; " + program + "; echo $? >&2; } | :"});
    EXPECT_EQ(closed.errors, "harbix-inspect: Standard output: Broken pipe\n2\n") << command;
  }
}

}  // namespace
}  // namespace harbix::test
