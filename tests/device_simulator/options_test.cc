#include "device/options.h"

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device/failure.h"
#include "device_process.h"

namespace {

using device::parse_options;
using testing::ElementsAre;
using testing::HasSubstr;

using Words = std::vector<std::string>;

TEST(DeviceOptions, TakeEveryOptionInAnyOrder) {
  const device::Options options =
      parse_options({"--bare", "--log", "l", "--state=s=1", "harbix", "-r", "--bare"});
  EXPECT_TRUE(options.bare);
  EXPECT_EQ(options.log, "l");
  EXPECT_EQ(options.state, "s=1");
  EXPECT_THAT(options.command, ElementsAre("harbix", "-r", "--bare"));
}

TEST(DeviceOptions, AreOffUnlessGiven) {
  const device::Options options = parse_options({"true"});
  EXPECT_FALSE(options.bare || options.help || options.version);
  EXPECT_EQ(options.state + options.log, "");
}

TEST(DeviceOptions, EndAtTheFirstOperandOrAtTwoDashes) {
  EXPECT_THAT(parse_options({"sh", "--help"}).command, ElementsAre("sh", "--help"));
  EXPECT_THAT(parse_options({"--", "--odd name"}).command, ElementsAre("--odd name"));
  EXPECT_THAT(parse_options({"-"}).command, ElementsAre("-"));
}

TEST(DeviceOptions, HelpAndVersionNeedNoCommand) {
  EXPECT_TRUE(parse_options({"--help"}).help);
  EXPECT_TRUE(parse_options({"--version"}).version);
}

TEST(DeviceOptions, SayWhatIsWrong) {
  struct Row {
    Words words;
    const char* text;
  };
  for (const Row& row :
       {Row{{}, "no command given"}, Row{{"--bare"}, "no command given"},
        Row{{""}, "the command's name is empty"}, Row{{"--bear", "x"}, "unknown option '--bear'"},
        Row{{"-b", "x"}, "unknown option '-b'"}, Row{{"--bare=1", "x"}, "unknown option '--bare=1'"},
        Row{{"--state"}, "option '--state' needs a value"},
        Row{{"--log=", "x"}, "option '--log' has an empty value"},
        Row{{"--state", "", "x"}, "option '--state' has an empty value"}}) {
    try {
      (void)parse_options(row.words);
      ADD_FAILURE() << "accepted: " << row.text;
    } catch (const device::Failure& failure) {
      EXPECT_EQ(failure.what(), row.text + std::string("; 'harbix-device --help' explains"));
      EXPECT_EQ(failure.status(), 64) << row.text;
    }
  }
}

TEST(DeviceHelp, NamesEveryOptionAndEveryStatus) {
  const device_test::Result result = device_test::run_device({"--help"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.output, device::help_text());
  for (const char* part : {"--state DIR", "--log FILE", "--bare", "--help", "--version", "COMMAND", "126",
                           "127", "128", "64", "70", "77", "/var/log/messages"}) {
    EXPECT_THAT(result.output, HasSubstr(part));
  }
}

TEST(DeviceHelp, FitsOnATerminal) {
  std::istringstream lines(device::help_text());
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 100U) << line;
}

TEST(DeviceHelp, FailsWhereItCannotBeWritten) {
  EXPECT_EQ(device_test::run_on_host("\"$device\" --help > /dev/full").status, 70);
}

TEST(DeviceVersion, IsOneLine) {
  EXPECT_THAT(device_test::run_device({"--version"}).output,
              testing::MatchesRegex("harbix-device [0-9.]+\n"));
}

}  // namespace
