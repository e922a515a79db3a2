#include "base/log.h"

#include <unistd.h>

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "support/recorded_log.h"

namespace {

using test::RecordedLog;

constexpr int MESSAGE_CODE = 104867601;

std::string tag() {
  return std::string(program_invocation_short_name) + "[" + std::to_string(::getpid()) + "]:";
}

/// The executable's name is cut, so that tests of other names can borrow it.
class ProgramName {
 public:
  explicit ProgramName(std::string name) : name_(std::move(name)), saved_(program_invocation_short_name) {
    program_invocation_short_name = name_.data();
  }
  ~ProgramName() { program_invocation_short_name = saved_; }
  ProgramName(const ProgramName&) = delete;
  ProgramName& operator=(const ProgramName&) = delete;
  ProgramName(ProgramName&&) = delete;
  ProgramName& operator=(ProgramName&&) = delete;

 private:
  std::string name_;
  char* saved_;
};

TEST(LogLevel, IsOneAtTheStart) { EXPECT_EQ(1, diagnostics::level()); }

TEST(LogLevel, IsConfirmedAtTheSeverityOfTheLevelItself) {
  struct Row {
    int level, severity;
  };
  for (const Row& row :
       {Row{0, 2}, Row{1, 3}, Row{2, 4}, Row{3, 5}, Row{4, 6}, Row{5, 7}, Row{-1, 2}, Row{-7, 2}}) {
    RecordedLog log(0);
    diagnostics::set_level(row.level);
    ASSERT_EQ(1U, log.lines().size()) << row.level;
    EXPECT_EQ(row.severity, log.lines()[0].severity) << row.level;
    EXPECT_EQ(MESSAGE_CODE, log.lines()[0].code) << row.level;
    EXPECT_EQ("Debug level " + std::to_string(row.level) + " enabled\n", log.lines()[0].message());
  }
}

TEST(LogLevel, AboveTheHighestIsStoredWithoutAWord) {
  const RecordedLog log(3);
  diagnostics::set_level(6);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(0, diagnostics::level());
}

TEST(LogLevel, OutsideOfTheTableReadsAsZero) {
  const RecordedLog log;
  for (const int level : {-1, -2147483647 - 1, 6, 2147483647}) {
    diagnostics::set_level(level);
    EXPECT_EQ(0, diagnostics::level()) << level;
  }
}

TEST(LogFunctions, SendAtTheirSeverityWhateverTheLevel) {
  struct Row {
    int level, severity;
  };
  for (const Row& row :
       {Row{0, 2}, Row{1, 3}, Row{2, 4}, Row{3, 5}, Row{4, 6}, Row{5, 7}, Row{-1, 2}, Row{6, 2}}) {
    RecordedLog log(0);
    diagnostics::level_function(row.level)("%s %d", "text", 7);
    ASSERT_EQ(1U, log.lines().size()) << row.level;
    EXPECT_EQ(row.severity, log.lines()[0].severity) << row.level;
    EXPECT_EQ(MESSAGE_CODE, log.lines()[0].code) << row.level;
    EXPECT_EQ(tag() + "text 7", log.lines()[0].text) << row.level;
  }
}

TEST(LogFunctions, OutsideOfTheTableAreThatOfLevelZero) {
  EXPECT_EQ(diagnostics::level_function(0), diagnostics::level_function(-1));
  EXPECT_EQ(diagnostics::level_function(0), diagnostics::level_function(6));
  EXPECT_NE(diagnostics::level_function(0), diagnostics::level_function(1));
}

TEST(LogLine, IsSentWhenTheLevelInForceIsAtLeastItsOwn) {
  for (int in_force = 0; in_force <= 5; ++in_force) {
    for (int level = 0; level <= 5; ++level) {
      const RecordedLog log(in_force);
      diagnostics::line(level, "text");
      EXPECT_EQ(level <= in_force ? 1U : 0U, log.lines().size()) << level << " under " << in_force;
    }
  }
}

TEST(LogLine, StandsDirectlyBehindTheTag) {
  const RecordedLog log;
  diagnostics::line(0, "Harbix %s", "running");
  ASSERT_EQ(1U, log.lines().size());
  EXPECT_EQ(tag() + "Harbix running", log.lines()[0].text);
}

TEST(LogLine, OfTwoThousandCharactersIsCutTo799WithItsTag) {
  const RecordedLog log;
  diagnostics::line(0, "%s", std::string(2000, 'x').c_str());
  ASSERT_EQ(1U, log.lines().size());
  const std::string& text = log.lines()[0].text;
  EXPECT_EQ(799U, text.size());
  EXPECT_EQ(tag() + std::string(799 - tag().size(), 'x'), text);
}

TEST(LogLine, OfExactly799CharactersIsWhole) {
  const RecordedLog log;
  const std::string message(799 - tag().size(), 'x');
  diagnostics::line(0, "%s", message.c_str());
  diagnostics::line(0, "%s", (message + "y").c_str());
  ASSERT_EQ(2U, log.lines().size());
  EXPECT_EQ(tag() + message, log.lines()[0].text);
  EXPECT_EQ(tag() + message, log.lines()[1].text);
}

TEST(LogLine, CutsATagThatIsTooLong) {
  const RecordedLog log;
  const ProgramName name(std::string(60, 'p'));
  diagnostics::line(0, "text");
  diagnostics::line(0, "%s", std::string(2000, 'x').c_str());
  ASSERT_EQ(2U, log.lines().size());
  EXPECT_EQ(std::string(39, 'p') + ":text", log.lines()[0].text);
  EXPECT_EQ(799U, log.lines()[1].text.size());
}

TEST(LogLine, DoesNotTakeItsArgumentsForFormats) {
  const RecordedLog log;
  diagnostics::line(0, "%s", "100%s %n");
  ASSERT_EQ(1U, log.lines().size());
  EXPECT_EQ("100%s %n", log.lines()[0].message());
}

}  // namespace
