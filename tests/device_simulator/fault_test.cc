#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "tests/support/device_process.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using testing::HasSubstr;

/// What SQLite says to a question that a library answers.
int query_result(const std::string& library) {
  sqlite3* database = nullptr;
  EXPECT_EQ(sqlite3_open_v2(library.c_str(), &database, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
  const int result = sqlite3_exec(database, "select * from files", nullptr, nullptr, nullptr);
  EXPECT_EQ(sqlite3_close(database), SQLITE_OK);
  return result;
}

class DeviceFault : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_ROOT(); }

  /// Runs `script` on a device with the fault.
  static Outcome run(const std::string& fault, const std::string& script) {
    return run_device({"--fault", fault, "sh", "-c", script});
  }

  TemporaryFolder folder_;
};

TEST_F(DeviceFault, FullShareTakesNothingMoreAndHasWhatItHad) {
  constexpr const char* LOOK =
      "cd /accounts/1000/shared && find . -printf '%p %y %m %U:%G %s %n %T@ %l\\n' | LC_ALL=C sort | md5sum";
  const Outcome sound = run_device({"sh", "-c", LOOK});
  const Outcome full = run(
      "full-share", LOOK + std::string("; echo x | cat >new; rm new; rm -r Music; echo x >new && echo room"));
  EXPECT_EQ(full.output, sound.output + "room\n");
  EXPECT_THAT(full.errors, HasSubstr("No space left on device\n"));
}

TEST_F(DeviceFault, FullShareHasTheRoomThatIsAskedFor) {
  const Outcome result = run("full-share=1000000",
                             "cd /accounts/1000/shared && head -c 900k /dev/zero >a && echo fits; head -c "
                             "200k /dev/zero >b || echo full");
  EXPECT_EQ(result.output, "fits\nfull\n");
}

TEST_F(DeviceFault, FullShareLeavesTheKeptOneAlone) {
  const std::string state = folder_ / "state";
  EXPECT_EQ(
      run_device({"--bare", "--state", state, "--fault", "full-share=5000", "sh", "-c",
                  "cd /accounts/1000/shared && echo x >new && cat new && stat -c '%a %U:%G' . && ls /tmp"})
          .output,
      "x\n770 media:1000_shared\n");
  EXPECT_EQ(run_device({"--state", state, "ls", "/accounts/1000/shared"}).output, "");
}

TEST_F(DeviceFault, UnreadableLibraryCannotBeOpened) {
  const Outcome result = run("unreadable-library", "cat /accounts/1000/db/mmlibrary.db");
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "cat: /accounts/1000/db/mmlibrary.db: Permission denied\n");
}

TEST_F(DeviceFault, CorruptLibraryIsOneUntilItIsRead) {
  const std::string state = folder_ / "state";
  const Outcome result = run_device({"--state", state, "--fault", "corrupt-library", "sh", "-c",
                                     "cat /accounts/1000/db/mmlibrary.db; stat -c '%a %U:%G' "
                                     "/accounts/1000/db/mmlibrary.db >&2"});
  EXPECT_EQ(result.errors, "644 root:1000_sys\n");
  EXPECT_THAT(result.output, testing::StartsWith("SQLite format 3"));
  write_file(folder_ / "library", result.output);
  EXPECT_EQ(query_result(folder_ / "library"), SQLITE_CORRUPT);
  // What is kept is sound.
  EXPECT_EQ(query_result(state + "/accounts/1000/db/mmlibrary.db"), SQLITE_OK);
}

TEST_F(DeviceFault, LibraryNeedsALibrary) {
  const Outcome result = run_device({"--bare", "--fault", "corrupt-library", "echo", "never"});
  EXPECT_EQ(result.status, 70);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors, "harbix-device: the device has no media library that could be spoiled\n");
}

TEST_F(DeviceFault, HangingObjectsHoldTheirReadersAndNoOthers) {
  const Outcome result = run_device(
      {"--bare", "--fault", "hanging-object=/pps/a/x", "--fault=hanging-object=/pps/y", "sh", "-c",
       "mkdir /pps/a; for o in a/x y x a/y; do echo v::1 >/pps/$o; timeout 0.5 cat /pps/$o; echo $?; done"});
  EXPECT_EQ(result.output, "124\n124\n@x\nv::1\n0\n@y\nv::1\n0\n");
  EXPECT_EQ(result.errors, "");
}

TEST_F(DeviceFault, HangingObjectDoesNotHoldUpTheEnd) {
  EXPECT_TRUE(can_end_within(std::chrono::seconds(4), [] {
    const Outcome result = run_device({"--bare", "--fault", "hanging-object=/pps/x", "sh", "-c",
                                       "echo v::1 >/pps/x; cat /pps/x & sleep 0.2; kill -KILL $$"});
    EXPECT_EQ(result.status, 128 + 9);
    EXPECT_EQ(result.errors, "");
  }));
}

class DevicePowerLoss : public DeviceFault {
 protected:
  void SetUp() override {
    DeviceFault::SetUp();
    if (IsSkipped()) return;
    if (::access("/dev/loop-control", W_OK) == -1) GTEST_SKIP() << "no loop devices on this machine";
    ASSERT_EQ(run_device({"--bare", "--state", state_, "sh", "-c", "echo old >/tmp/old"}).status, 0);
  }

  Outcome lose(const std::string& script) {
    return run_device({"--state", state_, "--fault", "power-loss", "sh", "-c", script});
  }
  Outcome look(const std::string& script) { return run_device({"--state", state_, "sh", "-c", script}); }

  std::string state_ = folder_ / "state";
};

TEST_F(DevicePowerLoss, KeepsWhatWasSyncedAndLosesTheRest) {
  const Outcome result =
      lose("cd /tmp; cat old; echo text >synced; sync -f .; echo more >>old; echo text >unsynced; exit 4");
  EXPECT_EQ(result.output, "old\n");
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.status, 4);
  EXPECT_EQ(look("cd /tmp; cat old synced; ! [ -s unsynced ] && echo lost").output, "old\ntext\nlost\n");
}

TEST_F(DevicePowerLoss, IsOfNoUseToServicesThatSaveAtTheEnd) {
  EXPECT_EQ(lose("exec 3>/pps/o; echo v::1 >&3; kill -KILL $$").status, 128 + 9);
  EXPECT_EQ(look("cat /pps/o").status, 1);
}

TEST_F(DevicePowerLoss, LeavesTheRestOfTheDeviceAsItWas) {
  constexpr const char* LOOK =
      "cd $folder/state && find . -path ./tmp -prune -o -path ./var -prune -o -printf '%p %y %m %U:%G %s %n "
      "%T@ %l\\n' | "
      "LC_ALL=C sort";
  const std::string before = run_on_host(LOOK, folder_ / "").output;
  EXPECT_EQ(lose("true").status, 0);
  EXPECT_EQ(run_on_host(LOOK, folder_ / "").output, before);
  EXPECT_FALSE(std::filesystem::exists(state_ + ".snapshots"));
}

TEST_F(DevicePowerLoss, IsNoneWhenTheDeviceIsKilled) {
  DeviceProcess device({"--state", state_, "--fault", "power-loss", "sh", "-c",
                        "echo new >/tmp/old; sync; echo up; sleep 60"});
  ASSERT_EQ(device.read_line(), "up");
  EXPECT_EQ(run_device({"--state", state_, "--enter", "cat", "/tmp/old"}).output, "new\n");
  ::kill(device.pid(), SIGKILL);
  device.wait();
  EXPECT_EQ(look("cat /tmp/old").output, "old\n");
}

TEST_F(DevicePowerLoss, LeavesNoLoopDevice) {
  constexpr const char* COUNT = "grep -ls memfd:disk /sys/block/loop*/loop/backing_file; true";
  EXPECT_EQ(lose("true").status, 0);
  std::string left;
  for (int wait = 0; wait < 200; ++wait) {
    left = run_on_host(COUNT).output;
    if (left.empty()) break;
    ::usleep(20000);
  }
  EXPECT_EQ(left, "");
}

TEST_F(DeviceFault, DyingInstallerDiesOnceAndComesBack) {
  constexpr const char* ASK =
      "object=/pps/system/installer/upd/current/test; exec 3<>\"$object?wait,delta\"; printf "
      "'action::uninstall\\npackage_id::none\\n' >&3; while read -r line <&3; do case $line in result::*) "
      "echo "
      "\"$line\"; break;; esac; done; grep -o 'starts:n:.*' /pps/system/installer/status";
  const Outcome sound = run_device({"--bare", "sh", "-c", ASK});
  EXPECT_THAT(sound.output, testing::EndsWith("\nstarts:n:1\n"));
  for (const char* fault : {"dying-installer", "dying-installer=uninstall"}) {
    const Outcome dying = run_device({"--bare", "--fault", fault, "sh", "-c", ASK});
    EXPECT_EQ(dying.output, sound.output.substr(0, sound.output.size() - 2) + "2\n");
    EXPECT_EQ(dying.errors, "harbix-device: the service 'harbix-installer' was killed by signal 9\n");
  }
  EXPECT_EQ(run_device({"--bare", "--fault", "dying-installer=register", "sh", "-c", ASK}).output,
            sound.output);
}

}  // namespace
}  // namespace harbix::test
