#include "base/log.h"

#include <unistd.h>

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/recorded_log.h"

namespace harbix::test {
namespace {

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

TEST(LogLevel, IsOneAtTheStart) { EXPECT_EQ(diagnostics::level(), 1); }

TEST(LogLevel, IsConfirmedAtTheSeverityOfTheLevelItself) {
  struct Row {
    int level, severity;
  };
  for (const Row& row :
       {Row{0, 2}, Row{1, 3}, Row{2, 4}, Row{3, 5}, Row{4, 6}, Row{5, 7}, Row{-1, 2}, Row{-7, 2}}) {
    RecordedLog log(0);
    diagnostics::set_level(row.level);
    ASSERT_EQ(log.lines().size(), 1U) << row.level;
    EXPECT_EQ(log.lines()[0].severity, row.severity) << row.level;
    EXPECT_EQ(log.lines()[0].code, MESSAGE_CODE) << row.level;
    EXPECT_EQ(log.lines()[0].message(), "Debug level " + std::to_string(row.level) + " enabled\n");
  }
}

TEST(LogLevel, AboveTheHighestIsStoredWithoutAWord) {
  const RecordedLog log(3);
  diagnostics::set_level(6);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(diagnostics::level(), 0);
}

TEST(LogLevel, OutsideOfTheTableReadsAsZero) {
  const RecordedLog log;
  for (const int level : {-1, -2147483647 - 1, 6, 2147483647}) {
    diagnostics::set_level(level);
    EXPECT_EQ(diagnostics::level(), 0) << level;
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
    ASSERT_EQ(log.lines().size(), 1U) << row.level;
    EXPECT_EQ(log.lines()[0].severity, row.severity) << row.level;
    EXPECT_EQ(log.lines()[0].code, MESSAGE_CODE) << row.level;
    EXPECT_EQ(log.lines()[0].text, tag() + "text 7") << row.level;
  }
}

TEST(LogFunctions, OutsideOfTheTableAreThatOfLevelZero) {
  EXPECT_EQ(diagnostics::level_function(-1), diagnostics::level_function(0));
  EXPECT_EQ(diagnostics::level_function(6), diagnostics::level_function(0));
  EXPECT_NE(diagnostics::level_function(0), diagnostics::level_function(1));
}

TEST(LogLine, IsSentWhenTheLevelInForceIsAtLeastItsOwn) {
  for (int in_force = 0; in_force <= 5; ++in_force) {
    for (int level = 0; level <= 5; ++level) {
      const RecordedLog log(in_force);
      diagnostics::line(level, "text");
      EXPECT_EQ(log.lines().size(), level <= in_force ? 1U : 0U) << level << " under " << in_force;
    }
  }
}

TEST(LogLine, StandsDirectlyBehindTheTag) {
  const RecordedLog log;
  diagnostics::line(0, "Harbix %s", "running");
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_EQ(log.lines()[0].text, tag() + "Harbix running");
}

TEST(LogLine, OfTwoThousandCharactersIsCutTo799WithItsTag) {
  const RecordedLog log;
  diagnostics::line(0, "%s", std::string(2000, 'x').c_str());
  ASSERT_EQ(log.lines().size(), 1U);
  const std::string& text = log.lines()[0].text;
  EXPECT_EQ(text.size(), 799U);
  EXPECT_EQ(text, tag() + std::string(799 - tag().size(), 'x'));
}

TEST(LogLine, OfExactly799CharactersIsWhole) {
  const RecordedLog log;
  const std::string message(799 - tag().size(), 'x');
  diagnostics::line(0, "%s", message.c_str());
  diagnostics::line(0, "%s", (message + "y").c_str());
  ASSERT_EQ(log.lines().size(), 2U);
  EXPECT_EQ(log.lines()[0].text, tag() + message);
  EXPECT_EQ(log.lines()[1].text, tag() + message);
}

TEST(LogLine, CutsATagThatIsTooLong) {
  const RecordedLog log;
  const ProgramName name(std::string(60, 'p'));
  diagnostics::line(0, "text");
  diagnostics::line(0, "%s", std::string(2000, 'x').c_str());
  ASSERT_EQ(log.lines().size(), 2U);
  EXPECT_EQ(log.lines()[0].text, std::string(39, 'p') + ":text");
  EXPECT_EQ(log.lines()[1].text.size(), 799U);
}

TEST(LogLine, DoesNotTakeItsArgumentsForFormats) {
  const RecordedLog log;
  diagnostics::line(0, "%s", "100%s %n");
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_EQ(log.lines()[0].message(), "100%s %n");
}

}  // namespace
}  // namespace harbix::test
