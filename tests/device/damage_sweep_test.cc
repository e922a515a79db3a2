#include <gtest/gtest.h>

#include "tests/support/everything.h"

namespace harbix::test {
namespace {

/// So few that the test stays short; damage_sweep itself tries all when it is asked to.
constexpr int SAMPLES = 60;

class DamageSweep : public testing::TestWithParam<const char*> {
 protected:
  DamageSweep() { add_a_little_of_everything(device_); }

  ApplicationDevice device_;
};

TEST_P(DamageSweep, FindsNoArchiveThatIsRestoredInPartWithoutAWord) {
  const Outcome outcome =
      device_.run({"/opt/harbix/bin/tests/damage_sweep", GetParam(), std::to_string(SAMPLES)});
  EXPECT_EQ(outcome.status, 0) << outcome.output << outcome.errors;
}

INSTANTIATE_TEST_SUITE_P(Keywords, DamageSweep, testing::Values("media", "settings", "app"),
                         [](const auto& keyword) { return std::string(keyword.param); });

}  // namespace
}  // namespace harbix::test
