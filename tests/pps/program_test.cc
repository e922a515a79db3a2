// The program itself: arguments, readiness, ends.

#include <csignal>
#include <string>
#include <vector>

#include "tests/support/mounted_pps.h"

namespace harbix::test {
namespace {

class Program : public MountedPps {
 protected:
  void SetUp() override {}

  int run_program(const std::vector<std::string>& arguments) {
    server_ = launch(arguments);
    return wait_for_end();
  }
};

TEST_F(Program, RefusesArgumentsThatDoNotFit) {
  const std::vector<std::vector<std::string>> rows{{},
                                                   {"--store"},
                                                   {mount(), "--passing"},
                                                   {"--store", "x"},
                                                   {"--ready-fd", "x", mount()},
                                                   {"--ready-fd", "-1", mount()},
                                                   {"--unheard-of", mount()},
                                                   {mount(), mount()},
                                                   {""}};
  for (const auto& arguments : rows)
    EXPECT_EQ(run_program(arguments), 2) << testing::PrintToString(arguments);
}

TEST_F(Program, FailsWhereItCannotMountOrStore) {
  EXPECT_EQ(run_program({folder_ / "missing"}), 1);
  EXPECT_EQ(run_program({"--store", folder_ / "missing/store", mount()}), 1);
  EXPECT_EQ(run_program({"--ready-fd", "999", mount()}), 1);
  EXPECT_EQ(shell("mountpoint -q .").status, 32) << "nothing may stay mounted";
}

TEST_F(Program, EndsWellWhenTheMountGoesAway) {
  start();
  run("echo a::1 >obj");
  unmount();
  EXPECT_EQ(wait_for_end(), 0);
}

TEST_F(Program, EndsWellOnEverySignalThatStopsIt) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    start();
    EXPECT_EQ(shell("mountpoint -q .").status, 0);
    EXPECT_EQ(stop(signal), 0) << signal;
    EXPECT_EQ(shell("mountpoint -q .").status, 32) << signal;
  }
}

TEST_F(Program, TakesADeadMountAway) {
  start();
  run("echo a::1 >obj");
  static_cast<void>(stop(SIGKILL));
  start();
  EXPECT_EQ(cat("obj"), "@obj\na::1\n");
}

}  // namespace
}  // namespace harbix::test
