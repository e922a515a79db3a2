#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device_process.h"

namespace harbix::test {
namespace {

using std::chrono::steady_clock;

class DeviceSignals : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_ROOT(); }
};

std::vector<std::string> shell(const std::string& script) { return {"--bare", "sh", "-c", script}; }

TEST_F(DeviceSignals, AreAnsweredByTheCommand) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    DeviceProcess device(
        shell("trap 'echo caught; exit 5' INT TERM HUP QUIT; echo up; while :; do sleep 0.05; done"));
    ASSERT_EQ(device.read_line(), "up");
    ASSERT_EQ(::kill(device.pid(), signal), 0);
    const Outcome result = device.wait();
    EXPECT_EQ(result.output, "caught\n") << signal;
    EXPECT_EQ(result.status, 5) << signal;
  }
}

TEST_F(DeviceSignals, EndACommandThatDoesNotCatchThem) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    // Without a child of the shell: a shell that is just starting one may lose a SIGINT and wait for its end.
    DeviceProcess device(shell("echo up; exec sleep 60"));
    ASSERT_EQ(device.read_line(), "up");
    ASSERT_EQ(::kill(device.pid(), signal), 0);
    const Outcome result = device.wait();
    EXPECT_EQ(result.output, "") << signal;
    EXPECT_EQ(result.status, 128 + signal);
  }
}

TEST_F(DeviceSignals, ReachTheCommandAsTheCallerHasSetThem) {
  // As nohup does.
  DeviceProcess device(shell("echo up; sleep 0.5; echo survived"), "", [] { ::signal(SIGHUP, SIG_IGN); });
  ASSERT_EQ(device.read_line(), "up");
  ASSERT_EQ(::kill(device.pid(), SIGHUP), 0);
  EXPECT_EQ(device.wait().output, "survived\n");
}

TEST_F(DeviceSignals, MayAllBeIgnoredByTheCaller) {
  DeviceProcess device(shell("exit 6"), "", [] { ::signal(SIGCHLD, SIG_IGN); });
  EXPECT_EQ(device.wait().status, 6);
}

TEST_F(DeviceSignals, WakeACommandThatIsStopped) {
  DeviceProcess device(shell("trap 'exit 8' TERM; echo up; kill -STOP $$; while :; do sleep 0.05; done"));
  ASSERT_EQ(device.read_line(), "up");
  ::usleep(100000);
  ASSERT_EQ(::kill(device.pid(), SIGTERM), 0);
  EXPECT_EQ(device.wait().status, 8);
}

TEST_F(DeviceSignals, ToTheCallersGroupArriveOnce) {
  DeviceProcess device(shell("trap 'echo caught' TERM; echo up; sleep 0.2; sleep 0.2; exit 0"), "",
                       [] { ::setpgid(0, 0); });
  ASSERT_EQ(device.read_line(), "up");
  ASSERT_EQ(::kill(-device.pid(), SIGTERM), 0);
  EXPECT_EQ(device.wait().output, "caught\n");
}

TEST_F(DeviceSignals, LeaveNoTimeToTheBackground) {
  EXPECT_TRUE(can_end_within(std::chrono::seconds(3), [] {
    DeviceProcess device(shell("sleep 60 & echo up; sleep 60"));
    ASSERT_EQ(device.read_line(), "up");
    ASSERT_EQ(::kill(device.pid(), SIGTERM), 0);
    EXPECT_EQ(device.wait().status, 128 + SIGTERM);
  }));
}

TEST_F(DeviceSignals, EndTheWaitForTheBackground) {
  EXPECT_TRUE(can_end_within(std::chrono::seconds(3), [] {
    DeviceProcess device(shell("sleep 60 & echo up; exit 9"));
    ASSERT_EQ(device.read_line(), "up");
    ::usleep(200000);
    ASSERT_EQ(::kill(device.pid(), SIGINT), 0);
    EXPECT_EQ(device.wait().status, 9);
  }));
}

class DeviceBackground : public DeviceSignals {};

TEST_F(DeviceBackground, HasTimeToEnd) {
  DeviceProcess device(shell("(sleep 0.5; echo finished) & echo up; exit 3"));
  ASSERT_EQ(device.read_line(), "up");
  const Outcome result = device.wait();
  EXPECT_EQ(result.output, "finished\n");
  EXPECT_EQ(result.status, 3);
}

TEST_F(DeviceBackground, HasTimeAlsoInASessionOfItsOwn) {
  EXPECT_EQ(run_device(shell("setsid sh -c 'sleep 0.5; echo finished' & exit 0")).output, "finished\n");
}

TEST_F(DeviceBackground, IsKilledAfterFiveSeconds) {
  const auto start = steady_clock::now();
  EXPECT_EQ(run_device(shell("sleep 60 & exit 3")).status, 3);
  EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(4900));
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(30));
}

}  // namespace
}  // namespace harbix::test
