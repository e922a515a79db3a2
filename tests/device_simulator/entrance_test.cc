#include <unistd.h>

#include <csignal>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device_process.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using testing::HasSubstr;

class DeviceEntrance : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_ROOT(); }

  /// Starts the device that is entered; it ends at the end of its input.
  DeviceProcess& start() {
    device_ = std::make_unique<DeviceProcess>(
        std::vector<std::string>{"--bare", "--state", state_, "sh", "-c", "echo up; exec sleep 60"});
    EXPECT_EQ(device_->read_line(), "up");
    return *device_;
  }

  [[nodiscard]] std::vector<std::string> enter(const std::string& script) const {
    return {"--state", state_, "--enter", "sh", "-c", script};
  }

  TemporaryFolder folder_;
  std::string state_ = folder_ / "state";
  std::unique_ptr<DeviceProcess> device_;
};

TEST_F(DeviceEntrance, SharesAllWithWhatRunsThere) {
  start();
  const Outcome result =
      run_device(enter("ps -o args= -C sleep; hostname; ls -d /pps/system; echo x >/dev/shm/x; id -u; id -G; "
                       "umask; pwd; echo $HOME;"
                       "command -v harbix-device; exit 3"));
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.output,
            "sleep 60\ntablet\n/pps/system\n0\n0\n0022\n/\n/root\n/opt/harbix/bin/harbix-device\n");
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(run_device(enter("cat /dev/shm/x")).output, "x\n");
}

TEST_F(DeviceEntrance, IsALoginShellWithoutACommand) {
  start();
  const Outcome result = run_on_host(
      "echo 'shopt -q login_shell && echo login as $(whoami)@$(hostname)' | "
      "\"$device\" --state \"$folder/state\" --enter",
      folder_ / "");
  EXPECT_EQ(result.output, "login as root@tablet\n") << result.errors;
}

TEST_F(DeviceEntrance, LeadsToADeviceThatWasStartedBelowAnotherRootFolder) {
  const Outcome result = run_program(
      {"unshare", "--mount", "--propagation", "private", "bash", "-c",
       "mkdir \"$1/root\" && mount --rbind / \"$1/root\" && exec chroot \"$1/root\" bash -c '"
       "\"$0\" --bare --state \"$1/state\" sleep 60 & "
       "until \"$0\" --state \"$1/state\" --enter true; do sleep 0.1; done; "
       "\"$0\" --state \"$1/state\" --enter sh -c \"ls -d /pps/system; pwd\"; kill %%; wait' \"$0\" \"$1\"",
       HARBIX_DEVICE_PROGRAM, folder_ / ""});
  EXPECT_THAT(result.output, testing::EndsWith("/pps/system\n/\n")) << result.errors;
}

TEST_F(DeviceEntrance, HasTheExitStatusesOfADevice) {
  start();
  EXPECT_EQ(run_device(enter("kill -SEGV $$")).status, 128 + SIGSEGV);
  const Outcome result = run_device({"--state", state_, "--enter", "no-such-command"});
  EXPECT_EQ(result.status, 127);
  EXPECT_EQ(result.errors, "harbix-device: cannot run 'no-such-command': No such file or directory\n");
}

TEST_F(DeviceEntrance, PassesSignalsOn) {
  start();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    DeviceProcess visitor(
        enter("trap 'echo caught; exit 5' INT TERM HUP QUIT; echo up; while :; do sleep 0.05; done"));
    ASSERT_EQ(visitor.read_line(), "up");
    ASSERT_EQ(::kill(visitor.pid(), signal), 0);
    const Outcome result = visitor.wait();
    EXPECT_EQ(result.output, "caught\n") << signal;
    EXPECT_EQ(result.status, 5) << signal;
  }
}

TEST_F(DeviceEntrance, EndsItsCommandWhenItIsKilled) {
  start();
  DeviceProcess visitor(enter("echo $$; exec sleep 61"));
  const std::string process = visitor.read_line();
  ASSERT_EQ(::kill(visitor.pid(), SIGKILL), 0);
  visitor.wait();
  // It is gone as soon as the device's first process has taken it in.
  EXPECT_EQ(
      run_device(enter("while kill -0 " + process + " 2>/dev/null; do sleep 0.05; done; echo gone")).output,
      "gone\n");
}

TEST_F(DeviceEntrance, EndsWithTheDevice) {
  start();
  DeviceProcess visitor(enter("echo up; exec sleep 61"));
  ASSERT_EQ(visitor.read_line(), "up");
  ASSERT_EQ(::kill(device_->pid(), SIGTERM), 0);
  EXPECT_EQ(device_->wait().status, 128 + SIGTERM);
  const Outcome result = visitor.wait();
  EXPECT_EQ(result.status, 128 + SIGKILL);
  EXPECT_EQ(result.errors, "harbix-device: the device has ended\n");
}

TEST_F(DeviceEntrance, DoesNotHoldUpTheEndWhenItIsStopped) {
  start();
  DeviceProcess visitor(enter("echo up; exec sleep 61"));
  ASSERT_EQ(visitor.read_line(), "up");
  ASSERT_EQ(::kill(visitor.pid(), SIGSTOP), 0);
  ASSERT_EQ(::kill(device_->pid(), SIGTERM), 0);
  EXPECT_EQ(device_->wait().status, 128 + SIGTERM);
  ASSERT_EQ(::kill(visitor.pid(), SIGCONT), 0);
  EXPECT_EQ(visitor.wait().status, 128 + SIGKILL);
}

TEST_F(DeviceEntrance, WaitsForADeviceThatIsBeingStarted) {
  for (int round = 0; round < 5; ++round) {
    DeviceProcess device({"--bare", "--state", state_, "sleep", "60"});
    ::usleep(static_cast<useconds_t>(round) * 10000 + 5000);
    const Outcome result = run_device(enter("ls -d /pps/system"));
    // It had not even begun, or it was waited for.
    EXPECT_THAT(result.output + result.errors,
                testing::AnyOf("/pps/system\n", HasSubstr("no device is running in"),
                               HasSubstr("cannot use the folder")));
  }
}

TEST_F(DeviceEntrance, RefusesWhereNoDeviceRuns) {
  const Outcome missing = run_device({"--state", state_, "--enter", "true"});
  EXPECT_EQ(missing.status, 70);
  EXPECT_EQ(missing.errors,
            "harbix-device: cannot use the folder '" + state_ + "': No such file or directory\n");
  EXPECT_EQ(run_device({"--bare", "--state", state_, "true"}).status, 0);
  const std::string before = listing(folder_ / "");
  const Outcome idle = run_device({"--state", state_, "--enter", "true"});
  EXPECT_EQ(idle.status, 70);
  EXPECT_EQ(idle.errors, "harbix-device: no device is running in '" + state_ + "'\n");
  EXPECT_EQ(listing(folder_ / ""), before);
}

TEST_F(DeviceEntrance, RefusesADeviceOfAnotherLayout) {
  EXPECT_EQ(run_device({"--bare", "--state", state_, "true"}).status, 0);
  write_file(state_ + "/.harbix-device", "harbix-device layout 99\n");
  const Outcome result = run_device({"--state", state_, "--enter", "true"});
  EXPECT_EQ(result.status, 70);
  EXPECT_EQ(result.errors,
            "harbix-device: '" + state_ + "' holds a device of another layout; nothing was changed in it\n");
}

TEST_F(DeviceEntrance, NeedsRoot) {
  const TemporaryFolder folder;
  const Outcome result = run_on_host(
      "chmod 755 \"$folder\"; cp \"$device\" \"$folder/program\"; setpriv --reuid 65534 --regid 65534 "
      "--clear-groups "
      "\"$folder/program\" --state / --enter true; echo $?; setpriv --reuid 65534 --regid 65534 "
      "--clear-groups "
      "\"$folder/program\" --state / --reset",
      folder / "");
  EXPECT_EQ(result.output, "77\n");
  EXPECT_EQ(result.status, 77);
  EXPECT_EQ(result.errors,
            "harbix-device: only root can start a device\nharbix-device: only root can start a device\n");
}

}  // namespace
}  // namespace harbix::test
