#include <regex>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device/options.h"
#include "private_folder.h"

namespace {

std::set<std::string> matches(const std::string& text, const std::string& pattern) {
  const std::regex expression(pattern);
  std::set<std::string> found;
  for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end; ++match) {
    found.insert((*match)[1]);
  }
  return found;
}

TEST(DeviceManual, HasTheOptionsOfTheHelpText) {
  const std::set<std::string> help = matches(device::help_text(), "\n  --([a-z]+)");
  const std::set<std::string> manual =
      matches(device_test::content_of(HARBIX_DEVICE_MANUAL), R"(\n\.It Fl Fl ([a-z]+))");
  EXPECT_EQ(help, manual);
  EXPECT_EQ(help.size(), 5U);
}

}  // namespace
