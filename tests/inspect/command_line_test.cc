#include <regex>
#include <set>
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
        Row{{"compare", "a"}, "NEW is required"}, Row{{"extract", "a", "b"}, "--to"},
        Row{{"plan", "a", "photos"}, "photos not in {app,media,settings}"}}) {
    const Outcome outcome = inspect(row.arguments);
    EXPECT_EQ(outcome.status, 64) << row.error;
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.errors, HasSubstr(row.error));
  }
}

TEST_F(InspectCommandLine, HelpAndVersionAreOutput) {
  EXPECT_THAT(inspect({"--version"}).output, HasSubstr("harbix-inspect 0."));
  for (const char* command : {"list", "verify", "checksums", "compare", "extract", "plan"}) {
    EXPECT_THAT(inspect({"--help"}).output, HasSubstr(command));
    const Outcome outcome = inspect({command, "--help"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.output, HasSubstr("--json"));
  }
}

/// All long options in a text.
std::set<std::string> options_in(const std::string& text, const char* pattern) {
  std::set<std::string> options;
  const std::regex option(pattern);
  for (std::sregex_iterator found(text.begin(), text.end(), option), end; found != end; ++found)
    options.insert((*found)[1]);
  return options;
}

TEST_F(InspectCommandLine, HasTheSameOptionsInHelpManualAndCompletions) {
  std::set<std::string> options;
  for (const char* command : {"list", "verify", "checksums", "compare", "extract", "plan"})
    options.merge(options_in(inspect({command, "--help"}).output, "\\s(?:-[a-z],)?--([a-z]+)"));
  EXPECT_EQ(options,
            (std::set<std::string>{"bytes", "checksums", "color", "help", "json", "long", "notes", "to"}));
  options.insert("version");
  const std::string sources = HARBIX_SOURCES;
  EXPECT_EQ(options_in(read_file(sources + "/docs/man/harbix-inspect.1"), "Fl -([a-z]+)"), options);
  const std::string completions = sources + "/tools/inspect/completions/";
  std::set<std::string> bash = options_in(read_file(completions + "harbix-inspect.bash"), "[ ']--([a-z]+)");
  EXPECT_EQ(bash, options);
  EXPECT_EQ(options_in(read_file(completions + "_harbix-inspect"), "[',]--([a-z]+)"), options);
  EXPECT_EQ(options_in(read_file(completions + "harbix-inspect.fish"), "complete[^\\n]* -l ([a-z]+)"),
            options);
}

TEST_F(InspectCommandLine, IsCompletedInBash) {
  struct Row {
    const char* words;
    const char* reply;
  };
  for (const Row& row : {Row{"c", "checksums compare"}, Row{"verify --n", "--notes"},
                         Row{"list --color a", "auto always"}, Row{"list --color =", "auto always never"},
                         Row{"list --color = n", "never"}, Row{"plan a.tar m", "media"}}) {
    const Outcome outcome = run_program(
        {"bash", "-c",
         std::string("source '" HARBIX_SOURCES "/tools/inspect/completions/harbix-inspect.bash'; "
                     "COMP_WORDS=(harbix-inspect ") +
             row.words +
             "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _harbix_inspect; echo -n \"${COMPREPLY[*]}\""});
    EXPECT_EQ(outcome.output, row.reply) << outcome.errors;
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

TEST_F(InspectCommandLine, ATerminalIsNoArchive) {
  const std::string program = "'" HARBIX_INSPECT_PROGRAM "' ";
  EXPECT_THAT(run_program({"script", "-qec", program + "list -", "/dev/null"}).output,
              HasSubstr("harbix-inspect: Archive error: Standard input is a terminal\r\n"));
  EXPECT_THAT(run_program({"script", "-qec", program + "list /dev/tty", "/dev/null"}).output,
              HasSubstr("harbix-inspect: Archive error: '/dev/tty' is a terminal\r\n"));
}

TEST_F(InspectCommandLine, OutputThatIsLostIsAnError) {
  const std::string tar = archive(music().text());
  for (const std::string& command :
       {"list " + tar, "list -l " + tar, "verify " + tar, "verify --json " + tar, "checksums " + tar,
        "compare " + tar + " " + archive(TarBuilder().text(), "b.tar"),
        "extract " + tar + " /media/Music/a.mp3 --to -", std::string("--help")}) {
    const std::string program = "'" HARBIX_INSPECT_PROGRAM "' " + command;
    const Outcome full = run_program({"sh", "-c", program + " >/dev/full"});
    EXPECT_EQ(full.status, 2) << command;
    EXPECT_THAT(full.errors, HasSubstr("Standard output: No space left on device"));
    const Outcome closed = run_program({"bash", "-c", "{ sleep 0.2; " + program + "; echo $? >&2; } | :"});
    EXPECT_EQ(closed.errors, "harbix-inspect: Standard output: Broken pipe\n2\n") << command;
  }
}

}  // namespace
}  // namespace harbix::test
