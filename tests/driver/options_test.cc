#include "driver/options.h"

#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/flags.h"
#include "base/log.h"
#include "tests/support/captured_output.h"
#include "tests/support/recorded_log.h"

namespace harbix::test {
namespace {

using harbix::parse_options;

using Words = std::vector<std::string>;

/// As the program would see "harbix WORD...".
std::optional<harbix::Options> parse(Words words) {
  words.insert(words.begin(), "harbix");
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  return parse_options(static_cast<int>(words.size()), arguments.data());
}

class CommandLine : public ::testing::Test {
 protected:
  void TearDown() override {
    harbix::verbose = false;
    harbix::pretend = false;
  }
  RecordedLog log_;
};

TEST_F(CommandLine, HasItsLetters) { EXPECT_STREQ(harbix::OPTION_LETTERS, "d:f:jrsvwpzit"); }

TEST_F(CommandLine, WithoutOptionsAsksForABackupToStandardOutput) {
  const auto options = parse({"media"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->file_name, "-");
  EXPECT_FALSE(options->restore || options->size_only || options->wipe || options->initiation ||
               options->termination);
  EXPECT_EQ(options->keywords, Words{"media"});
  EXPECT_EQ(options->operands, Words{"media"});
  EXPECT_TRUE(options->needs_keyword());
  EXPECT_FALSE(harbix::verbose || harbix::pretend);
}

TEST_F(CommandLine, SetsOneThingAnOption) {
  struct Row {
    const char* option;
    bool restore, size_only, wipe, initiation, termination, verbose, needs_keyword;
  };
  for (const Row& row : {Row{"-r", true, false, false, false, false, false, true},
                         Row{"-s", false, true, false, false, false, false, true},
                         Row{"-w", false, false, true, false, false, false, false},
                         Row{"-i", false, false, false, true, false, false, false},
                         Row{"-t", false, false, false, false, true, false, false},
                         Row{"-v", false, false, false, false, false, true, true}}) {
    harbix::verbose = false;
    const auto options = parse({row.option});
    ASSERT_TRUE(options) << row.option;
    EXPECT_EQ(options->restore, row.restore) << row.option;
    EXPECT_EQ(options->size_only, row.size_only) << row.option;
    EXPECT_EQ(options->wipe, row.wipe) << row.option;
    EXPECT_EQ(options->initiation, row.initiation) << row.option;
    EXPECT_EQ(options->termination, row.termination) << row.option;
    EXPECT_EQ(harbix::verbose, row.verbose) << row.option;
    EXPECT_EQ(options->needs_keyword(), row.needs_keyword) << row.option;
  }
}

TEST_F(CommandLine, CombinesLettersAndJoinedArguments) {
  const auto options = parse({"-rsvf/tmp/a.tar", "-d3", "media"});
  ASSERT_TRUE(options);
  EXPECT_TRUE(options->restore && options->size_only && harbix::verbose);
  EXPECT_EQ(options->file_name, "/tmp/a.tar");
  EXPECT_EQ(diagnostics::level(), 3);
}

TEST_F(CommandLine, ForgetsTheOneBefore) {
  ASSERT_TRUE(parse({"-r", "-f", "a.tar", "media", "x"}));
  ASSERT_FALSE(parse({"-rz"}));
  const auto options = parse({"-s", "settings"});
  ASSERT_TRUE(options);
  EXPECT_FALSE(options->restore);
  EXPECT_TRUE(options->size_only);
  EXPECT_EQ(options->file_name, "-");
  EXPECT_EQ(options->keywords, Words{"settings"});
}

TEST_F(CommandLine, EndsAtThePretendOption) {
  EXPECT_FALSE(parse({"-p", "-v", "media"}));
  EXPECT_TRUE(harbix::pretend);
  EXPECT_FALSE(harbix::verbose);
}

TEST_F(CommandLine, EndsAtWhatItDoesNotKnowWithoutAWordOfItsOwn) {
  struct Row {
    Words words;
    const char* said;
  };
  const std::vector<Row> rows{{{"-j", "app"}, ""},
                              {{"-z", "app"}, ""},
                              {{"-x", "app"}, "harbix: invalid option -- 'x'\n"},
                              {{"--restore"}, "harbix: invalid option -- '-'\n"},
                              {{"-f"}, "harbix: option requires an argument -- 'f'\n"},
                              {{"-d"}, "harbix: option requires an argument -- 'd'\n"}};
  for (const Row& row : rows) {
    const CapturedOutput output(STDOUT_FILENO);
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_FALSE(parse(row.words)) << row.words[0];
    EXPECT_EQ(output.text(), "") << row.words[0];
    EXPECT_EQ(errors.text(), row.said) << row.words[0];
    EXPECT_FALSE(harbix::pretend) << row.words[0];
  }
}

TEST_F(CommandLine, TakesTheNextWordForAnArgumentWhateverItIs) {
  const auto options = parse({"-f", "-r", "media"});
  ASSERT_TRUE(options);
  EXPECT_EQ(options->file_name, "-r");
  EXPECT_FALSE(options->restore);
  EXPECT_EQ(parse({"-f", "", "media"})->file_name, "");
  EXPECT_EQ(parse({"-f", "a", "-f", "b"})->file_name, "b");
}

TEST_F(CommandLine, StopsAtTheFirstOperand) {
  const auto options = parse({"media", "-r", "-p", "x"});
  ASSERT_TRUE(options);
  EXPECT_FALSE(options->restore);
  EXPECT_EQ(options->operands, (Words{"media", "-r", "-p", "x"}));
  EXPECT_EQ(parse({"-r", "--", "media"})->keywords, Words{"media"});
  EXPECT_EQ(parse({"--", "-r"})->operands, Words{"-r"});
  EXPECT_EQ(parse({"-"})->operands, Words{"-"});
}

TEST_F(CommandLine, ChoosesTheDebugLevelFromZeroToFive) {
  struct Row {
    const char* text;
    int level;
  };
  for (const Row& row : {Row{"0", 0}, Row{"1", 1}, Row{"5", 5}, Row{"3x", 3}, Row{"x", 0}, Row{"", 0},
                         Row{" 4", 4}, Row{"6", 2}, Row{"7", 2}, Row{"-1", 2}, Row{"100", 2}}) {
    diagnostics::set_level(2);
    ASSERT_TRUE(parse({"-d", row.text, "media"})) << row.text;
    EXPECT_EQ(diagnostics::level(), row.level) << row.text;
  }
}

TEST_F(CommandLine, LogsTheChosenLevelAndThatItRuns) {
  ASSERT_TRUE(parse({"-d", "3", "media"}));
  EXPECT_EQ(log_.messages(), (Words{"5 Debug level 3 enabled\n", "4 Harbix running"}));
  log_.clear();
  ASSERT_TRUE(parse({"-d", "1", "media"}));
  EXPECT_EQ(log_.messages(), Words{"3 Debug level 1 enabled\n"});
  log_.clear();
  ASSERT_TRUE(parse({"-d", "7", "media"}));
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(CommandLine, SelectsKeywordsFromTheFirstOperand) {
  struct Row {
    const char* operand;
    Words keywords;
  };
  const std::vector<Row> rows{{"app", {"app"}},
                              {"app_media_settings", {"app", "media", "settings"}},
                              {"settings_media", {"settings", "media"}},
                              {"app_app_foo", {"app"}},
                              {"foo", {}},
                              {"", {}},
                              {"_", {}},
                              {"__media__", {"media"}},
                              {"App", {}},
                              {"media ", {}},
                              {"medias_app", {"app"}}};
  for (const Row& row : rows) {
    const auto options = parse({row.operand});
    ASSERT_TRUE(options) << row.operand;
    EXPECT_EQ(options->keywords, row.keywords) << row.operand;
    EXPECT_EQ(options->operands, Words{row.operand}) << row.operand;
  }
  EXPECT_EQ(parse({"app", "media"})->keywords, Words{"app"});
  EXPECT_TRUE(parse({})->keywords.empty());
}

TEST_F(CommandLine, SplitsTheKeywordsInEveryMode) {
  for (const char* mode : {"-r", "-s", "-w", "-i", "-t"}) {
    EXPECT_EQ(parse({mode, "app_media"})->keywords, (Words{"app", "media"})) << mode;
  }
}

TEST_F(CommandLine, KeepsTheKeywordOperandBeforeThePackageIds) {
  EXPECT_EQ(parse({"app", "sample_pkg"})->operands, (Words{"app", "sample_pkg"}));
}

struct RequestRow {
  Words words;
  const char *output, *message;
};

TEST_F(CommandLine, IsRefusedForAReasonInAFixedOrder) {
  const char* both = "can not specify both backup initiation and termination";
  const std::vector<RequestRow> rows{{{"-i", "-t"}, both, both},
                                     {{"-t", "-i", "-f", ""}, both, both},
                                     {{"-f", "", "media"}, "Filename missing\n", "Filename missing"},
                                     {{"-f", "-r", "media"}, "Filename missing\n", "Filename missing"},
                                     {{"-f", "--", "media"}, "Filename missing\n", "Filename missing"},
                                     {{"-f", "-x.tar", "media"}, "Filename missing\n", "Filename missing"},
                                     {{"-f", "", "foo"}, "Filename missing\n", "Filename missing"},
                                     {{"-i", "-f", "-r"}, "Filename missing\n", "Filename missing"},
                                     {{}, "Keyword missing\n", "Keyword missing"},
                                     {{"foo"}, "Keyword missing\n", "Keyword missing"},
                                     {{"-r"}, "Keyword missing\n", "Keyword missing"},
                                     {{"-s", "-f", "out"}, "Keyword missing\n", "Keyword missing"}};
  for (const RequestRow& row : rows) {
    const auto options = parse(row.words);
    ASSERT_TRUE(options);
    const auto refusal = harbix::check_request(*options);
    ASSERT_TRUE(refusal) << row.message;
    EXPECT_EQ(refusal->output, row.output);
    EXPECT_EQ(refusal->message, row.message);
  }
}

TEST_F(CommandLine, CanBeCarriedOut) {
  for (const Words& words :
       {Words{"media"}, Words{"-r", "-f", "-", "app"}, Words{"-w"}, Words{"-r", "-w"}, Words{"-i"},
        Words{"-t"}, Words{"-f", "a", "media"}, Words{"-f", "a-", "media"}, Words{"-s", "app_media"}}) {
    EXPECT_FALSE(harbix::check_request(*parse(words))) << words.back();
  }
}

}  // namespace
}  // namespace harbix::test
