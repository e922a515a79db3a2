#include "device/options.h"

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device/failure.h"
#include "tests/support/device_process.h"

namespace harbix::test {
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
  EXPECT_TRUE(parse_options({"-h"}).help);
  EXPECT_TRUE(parse_options({"--version"}).version);
}

TEST(DeviceOptions, NeedNoCommand) { EXPECT_TRUE(parse_options({"--bare"}).command.empty()); }

TEST(DeviceOptions, SayWhatIsWrong) {
  struct Row {
    Words words;
    const char* text;
  };
  for (const Row& row :
       {Row{{""}, "the command's name is empty"},
        Row{{"--bear", "x"}, "unknown option '--bear'"},
        Row{{"-b", "x"}, "unknown option '-b'"},
        Row{{"--bare=1", "x"}, "option '--bare' takes no value"},
        Row{{"--bar", "x"}, "unknown option '--bar'"},
        Row{{"--stat=x", "x"}, "unknown option '--stat=x'"},
        Row{{"-hb", "x"}, "unknown option '-b'"},
        Row{{"--bare", "--=", "x"}, "unknown option '--='"},
        Row{{"--state"}, "option '--state' needs a value"},
        Row{{"--log=", "x"}, "option '--log' has an empty value"},
        Row{{"--state", "", "x"}, "option '--state' has an empty value"},
        Row{{"--enter"}, "option '--enter' needs '--state DIR'"},
        Row{{"--state", "s", "--enter", "--log", "l"}, "options '--enter' and '--log' do not go together"},
        Row{{"--state", "s", "--snapshot", "n", "--bare"},
            "options '--snapshot' and '--bare' do not go together"},
        Row{{"--fault", "power-loss"}, "fault 'power-loss' needs '--state DIR'"},
        Row{{"--fault", "fire"}, "unknown fault 'fire'"},
        Row{{"--fault", "corrupt-library=1"}, "unknown fault 'corrupt-library=1'"},
        Row{{"--fault", "full-share=1k"}, "'1k' is no number of bytes"},
        Row{{"--fault", "hanging-object=x"},
            "fault 'hanging-object' needs an object: 'hanging-object=/pps/PATH'"},
        Row{{"--state", "s", "--enter", "--fault", "full-share"},
            "options '--enter' and '--fault' do not go together"},
        Row{{"--state", "s", "--reset", "x"}, "option '--reset' takes no command"},
        Row{{"--state", "s", "--snapshot", "a", "--rollback", "a"},
            "only one of '--enter', '--reset', '--snapshot' and '--rollback' can be done"},
        Row{{"--state", "s", "--rollback", "../a"},
            "'../a' is no name for a snapshot: it begins with '.' or has a '/'"},
        Row{{"--state", "s", "--snapshot", "a/b"},
            "'a/b' is no name for a snapshot: it begins with '.' or has a '/'"}}) {
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
  const Outcome result = run_device({"--help"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.output, device::help_text());
  for (const char* part : {"--state DIR", "--log FILE", "--bare", "--help", "--version", "COMMAND", "126",
                           "127", "128", "64", "70", "77", "/var/log/messages"}) {
    EXPECT_THAT(result.output, HasSubstr(part));
  }
}

TEST(DeviceHelp, HasAShortOption) { EXPECT_EQ(run_device({"-h"}).output, device::help_text()); }

TEST(DeviceHelp, FitsOnATerminal) {
  std::istringstream lines(device::help_text());
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 100U) << line;
}

TEST(DeviceHelp, FailsWhereItCannotBeWritten) {
  EXPECT_EQ(run_on_host("\"$device\" --help > /dev/full").status, 70);
}

TEST(ServiceOptions, SayWhatIsWrong) {
  const Outcome pps = run_on_host(
      "cd \"${device%/*}\"; ./harbix-pps --nope /x; echo $?; ./harbix-pps --ready-fd=x /y; echo $?; "
      "./harbix-pps "
      "/x /y; "
      "echo $?");
  constexpr const char* PPS_USAGE =
      "; usage: harbix-pps [--store DIR] [--passing PATH] [--hanging PATH]... [--ready-fd N] MOUNTPOINT\n";
  EXPECT_EQ(pps.output, "2\n2\n2\n");
  EXPECT_EQ(pps.errors, std::string("harbix-pps: unknown option '--nope'") + PPS_USAGE +
                            "harbix-pps: 'x' is no file descriptor" + PPS_USAGE +
                            "harbix-pps: more than one mount point given" + PPS_USAGE);
  const Outcome installer = run_on_host(
      "cd \"${device%/*}\"; ./harbix-installer --ready-fd; echo $?; ./harbix-installer x; echo $?");
  EXPECT_EQ(installer.output, "2\n2\n");
  EXPECT_EQ(installer.errors,
            "harbix-installer: option '--ready-fd' needs a value; usage: harbix-installer [--ready-fd N]\n"
            "harbix-installer: unknown operand 'x'; usage: harbix-installer [--ready-fd N]\n");
}

TEST(DeviceVersion, IsOneLine) {
  EXPECT_THAT(run_device({"--version"}).output, testing::MatchesRegex("harbix-device [0-9.]+\n"));
}

}  // namespace
}  // namespace harbix::test
