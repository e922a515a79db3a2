#include <set>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device/options.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

/// The word of small letters and dashes that follows `start` in each line that begins with it.
std::set<std::string> words_after(const std::string& start, const std::string& text) {
  std::set<std::string> found;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(start)) continue;
    const std::string rest = line.substr(start.size());
    found.insert(rest.substr(0, rest.find_first_not_of("abcdefghijklmnopqrstuvwxyz-")));
  }
  return found;
}

TEST(DeviceManual, HasTheOptionsOfTheHelpText) {
  const std::set<std::string> help = words_after("  --", device::help_text());
  const std::set<std::string> manual = words_after(".It Fl Fl ", read_file(HARBIX_DEVICE_MANUAL));
  EXPECT_EQ(help, manual);
  EXPECT_GE(help.size(), 9U);
}

/// The paths on the tablet that begin a line after `start`.
std::set<std::string> paths_after(const std::string& start, const std::string& text) {
  std::set<std::string> found;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(start + "/")) continue;
    const std::string rest = line.substr(start.size());
    found.insert(rest.substr(0, rest.find(' ')));
  }
  return found;
}

TEST(DeviceManual, HasTheFilesOfTheHelpText) {
  const std::set<std::string> help = paths_after("  ", device::help_text());
  EXPECT_EQ(help, paths_after(".It Pa ", read_file(HARBIX_DEVICE_MANUAL)));
  EXPECT_GE(help.size(), 18U);
}

TEST(DeviceManual, HasTheFaultsOfTheHelpText) {
  std::set<std::string> help = words_after("    ", device::help_text());
  // Lines of the other parts are indented more or less, or begin with another sign.
  help.erase("");
  const std::set<std::string> manual = words_after(".It Cm ", read_file(HARBIX_DEVICE_MANUAL));
  EXPECT_EQ(help, manual);
  EXPECT_EQ(manual.size(), 6U);
}

TEST(DeviceManual, NamesThePrograms) {
  for (const char* program : {"harbix", "harbix-device", "harbix-pps", "harbix-installer", "use"}) {
    EXPECT_THAT(device::help_text(), testing::ContainsRegex(std::string("[ \n]") + program + "[ ,.\n]"));
  }
}

}  // namespace
}  // namespace harbix::test
