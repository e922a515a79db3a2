#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/everything.h"

namespace harbix::test {
namespace {

/// The environment's HARBIX_DAMAGED_PLACES: how many, "all" of them, or "all K/N" for one part of N. Without
/// it so few that the test stays short.
std::vector<std::string> places() {
  const char* const set = std::getenv("HARBIX_DAMAGED_PLACES");  // NOLINT(concurrency-mt-unsafe): one thread
  const std::string asked_for = set == nullptr ? "60" : set;
  if (!asked_for.starts_with("all")) return {asked_for};
  const std::size_t part = asked_for.find(' ');
  return part == std::string::npos ? std::vector<std::string>()
                                   : std::vector<std::string>{"--part", asked_for.substr(part + 1)};
}

class DamageSweep : public testing::TestWithParam<const char*> {
 protected:
  DamageSweep() { add_a_little_of_everything(device_); }

  ApplicationDevice device_;
};

TEST_P(DamageSweep, FindsNoArchiveThatIsRestoredInPartWithoutAWord) {
  std::vector<std::string> command{"/opt/harbix/bin/tests/damage_sweep", GetParam()};
  for (const std::string& word : places()) command.push_back(word);
  const Outcome outcome = device_.run(command);
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  std::cout << outcome.output;
}

INSTANTIATE_TEST_SUITE_P(Keywords, DamageSweep, testing::Values("media", "settings", "app"),
                         [](const auto& keyword) { return std::string(keyword.param); });

}  // namespace
}  // namespace harbix::test
