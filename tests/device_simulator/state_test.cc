#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device_process.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

class DeviceState : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_ROOT(); }

  Outcome run(const std::string& script) {
    return run_device({"--bare", "--state", state_, "sh", "-c", script});
  }

  TemporaryFolder folder_;
  std::string state_ = folder_ / "state";
};

TEST_F(DeviceState, IsTheDevicesRoot) {
  const Outcome result =
      run("echo kept > /accounts/1000/shared/a; chown media:1000_shared /accounts/1000/shared/a");
  EXPECT_EQ(result.status, 0) << result.errors;
  EXPECT_EQ(read_file(state_ + "/accounts/1000/shared/a"), "kept\n");
  struct stat status = {};
  ASSERT_EQ(::stat((state_ + "/accounts/1000/shared/a").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 10113U);
  EXPECT_EQ(status.st_gid, 10001U);
}

TEST_F(DeviceState, IsKeptBetweenStarts) {
  EXPECT_EQ(run("echo one > /tmp/a; mkdir -m 700 /apps/x; rm -r /base/bin").status, 0);
  EXPECT_EQ(run("cat /tmp/a; stat -c %a /apps/x; test -e /base/bin || echo gone").output, "one\n700\ngone\n");
}

TEST_F(DeviceState, FillsAnEmptyFolderAndMakesItPassable) {
  ASSERT_EQ(::mkdir(state_.c_str(), 0700), 0);
  const Outcome result =
      run("setpriv --reuid media --regid 1000_shared --clear-groups ls /accounts/1000/shared");
  EXPECT_EQ(result.status, 0) << result.errors;
}

TEST_F(DeviceState, HoldsNothingOfTheHostAtItsEnd) {
  EXPECT_EQ(run("true").status, 0);
  for (const char* name : {"usr", "dev", "proc", "opt/harbix/bin"}) {
    EXPECT_TRUE(std::filesystem::is_empty(std::filesystem::path(state_) / name)) << name;
  }
}

TEST_F(DeviceState, RefusesAFolderThatIsNoDevice) {
  ASSERT_EQ(::mkdir(state_.c_str(), 0711), 0);
  write_file(state_ + "/precious", "text");
  const std::string before = listing(folder_ / "");
  const Outcome result = run_device({"--state", state_, "--log", folder_ / "log", "true"});
  EXPECT_EQ(result.status, 70);
  EXPECT_EQ(result.errors, "harbix-device: '" + state_ +
                               "' is neither empty nor a device's folder; nothing was changed in it\n");
  EXPECT_EQ(listing(folder_ / ""), before);
}

TEST_F(DeviceState, RefusesADeviceOfAnotherLayout) {
  EXPECT_EQ(run("true").status, 0);
  write_file(state_ + "/.harbix-device", "harbix-device layout 99\n");
  const std::string before = listing(state_);
  const Outcome result = run("true");
  EXPECT_EQ(result.status, 70);
  EXPECT_EQ(result.errors,
            "harbix-device: '" + state_ + "' holds a device of another layout; nothing was changed in it\n");
  EXPECT_EQ(listing(state_), before);
}

TEST_F(DeviceState, RefusesASecondDeviceWhileOneRuns) {
  DeviceProcess first({"--bare", "--state", state_, "sh", "-c", "echo up; exec sleep 60"});
  ASSERT_EQ(first.read_line(), "up");
  const Outcome second = run("echo never");
  EXPECT_EQ(second.status, 70);
  EXPECT_EQ(second.output, "");
  EXPECT_EQ(second.errors, "harbix-device: a device is running in '" + state_ + "' already\n");
}

TEST_F(DeviceState, CanBeStartedRightAfterAKill) {
  for (int round = 0; round < 5; ++round) {
    DeviceProcess device({"--bare", "--state", state_, "sh", "-c", "echo up; exec sleep 60"});
    ASSERT_EQ(device.read_line(), "up");
    ::kill(device.pid(), SIGKILL);
    EXPECT_EQ(device.wait().status, -SIGKILL);
  }
  EXPECT_EQ(run("echo fine").output, "fine\n");
}

TEST_F(DeviceState, IsFilledAnewWhenItsFillingWasCutShort) {
  ASSERT_EQ(::mkdir(state_.c_str(), 0755), 0);
  write_file(state_ + "/.harbix-device", "harbix-device is being filled\n");
  write_file(state_ + "/half", "done");
  const Outcome result = run("test -e /half || echo fresh");
  EXPECT_EQ(result.output, "fresh\n") << result.errors;
  EXPECT_EQ(read_file(state_ + "/.harbix-device"), "harbix-device layout 1\n");
}

TEST_F(DeviceState, RefusesAPathThatIsNoFolder) {
  write_file(state_, "text");
  const Outcome result = run("true");
  EXPECT_EQ(result.status, 70);
  EXPECT_EQ(result.errors, "harbix-device: cannot open the folder '" + state_ + "': Not a directory\n");
  EXPECT_EQ(read_file(state_), "text");
}

TEST_F(DeviceState, RefusesAFolderThatCannotBeMade) {
  const Outcome result = run_device({"--state", "/no/such/parent", "true"});
  EXPECT_EQ(result.status, 70);
  EXPECT_EQ(result.errors,
            "harbix-device: cannot create the folder '/no/such/parent': No such file or directory\n");
}

TEST_F(DeviceState, LeavesNothingWhenTheDiskIsFull) {
  // The mount is in a namespace of the shell's own, and goes with it.
  const Outcome result = run_on_host(
      "unshare -m sh -c 'mount -t tmpfs -o size=1m none \"$folder\" && mkdir \"$folder/there\" && "
      "{ \"$device\" --state \"$folder/new\" true; echo $?; \"$device\" --state \"$folder/there\" true; echo "
      "$?; find "
      "\"$folder\"; }'",
      folder_ / "");
  EXPECT_EQ(result.output, "70\n70\n" + (folder_ / "") + "\n" + (folder_ / "there") + "\n");
  EXPECT_THAT(result.errors, testing::HasSubstr("': No space left on device\n"));
}

}  // namespace
}  // namespace harbix::test
