#include <signal.h>  // NOLINT(modernize-deprecated-headers): kill is POSIX's, not C's
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device_process.h"
#include "tests/support/folder.h"
#include "tests/support/text.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

constexpr const char* SERVICE = "$(pgrep harbix-pps)";

class DeviceServices : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_ROOT(); }

  static Outcome run(const std::string& script) { return run_device({"--bare", "sh", "-c", script}); }

  Outcome run_kept(const std::string& script) {
    return run_device({"--bare", "--state", state_, "sh", "-c", script});
  }

  /// Runs `command` on the host with a copy of the program in $copy that has `service`, a shell script,
  /// beside it instead of the file system's, and `installer`, which does nothing
  /// unless told otherwise. Nothing is beside it when `service` is empty.
  Outcome run_with(const std::string& service, const std::string& command,
                   const std::string& installer = "echo >&$2; exec sleep 60") {
    if (!service.empty()) {
      write_script("harbix-pps", service);
      write_script("harbix-installer", installer);
    }
    return run_on_host("cp \"$device\" \"$folder/harbix-device\"; copy=$folder/harbix-device; " + command,
                       folder_ / "");
  }

  void write_script(const std::string& name, const std::string& commands) {
    write_file(folder_ / name, "#!/bin/sh\n" + commands + "\n");
    EXPECT_EQ(::chmod((folder_ / name).c_str(), 0755), 0);
  }

  TemporaryFolder folder_;
  std::string state_ = folder_ / "state";
};

TEST_F(DeviceServices, KeepWhatIsPublishedInAKeptDevice) {
  EXPECT_EQ(run_kept("mkdir /pps/s; echo 'a::1\n[n]b::2' > /pps/s/o; cat /pps/s/o").output,
            "@o\na::1\n[n]b::2\n");
  EXPECT_EQ(read_file(state_ + "/var/pps/s/o"), "@o\na::1\n");
  EXPECT_EQ(run_kept("cat /pps/s/o; ls /var/pps").output, "@o\na::1\ns\nsystem\n");
}

TEST_F(DeviceServices, SaveWhatWasStillOpen) {
  EXPECT_EQ(run_kept("exec 5>/pps/o; echo a::1 >&5; kill -KILL $$").status, 128 + SIGKILL);
  EXPECT_EQ(read_file(state_ + "/var/pps/o"), "@o\na::1\n");
  // In a session of its own until it is ended with the device.
  EXPECT_EQ(
      run_kept("setsid sh -c 'exec 5>/pps/p; echo b::2 >&5; sleep 60' & sleep 0.3; kill -KILL $$").status,
      128 + SIGKILL);
  EXPECT_EQ(read_file(state_ + "/var/pps/p"), "@p\nb::2\n");
}

TEST_F(DeviceServices, AreNotWaitedForAsTheBackgroundIs) {
  EXPECT_TRUE(can_end_within(std::chrono::seconds(4), [] {
    const Outcome result = run("exit 4");
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.errors, "");
  }));
}

TEST_F(DeviceServices, HaveNeitherInputNorOutputOfTheCommandAndASessionOfTheirOwn) {
  const std::string service = SERVICE;
  const Outcome result = run("readlink /proc/" + service + "/fd/0 /proc/" + service +
                             "/fd/1; ps -o sid= -p " + service + " | tr -d ' '; echo " + service);
  EXPECT_EQ(result.output, "/dev/null\n/dev/null\n2\n2\n") << result.errors;
}

TEST_F(DeviceServices, AreReportedWhenTheyEndBeforeTheCommand) {
  const Outcome killed = run(std::string("kill -KILL ") + SERVICE + "; sleep 0.2; cat /pps/x 2>&1; exit 5");
  EXPECT_EQ(killed.status, 5);
  EXPECT_EQ(killed.output, "cat: /pps/x: Transport endpoint is not connected\n");
  // No service can be reached over /pps any more, so the installer gives up too, and stays away.
  EXPECT_THAT(
      lines_of(killed.errors),
      testing::UnorderedElementsAre("harbix-device: the service 'harbix-pps' was killed by signal 9",
                                    "harbix-device: the service 'harbix-installer' ended with status 0"));
  // It is busy, but taken from who serves it all the same.
  const Outcome unmounted = run("umount -f /pps 2>/dev/null; sleep 0.2; exit 6");
  EXPECT_EQ(unmounted.status, 6);
  EXPECT_THAT(
      lines_of(unmounted.errors),
      testing::UnorderedElementsAre("harbix-device: the service 'harbix-pps' ended with status 0",
                                    "harbix-device: the service 'harbix-installer' ended with status 0"));
}

TEST_F(DeviceServices, AreStartedAgainWhenTheirClientsCanWait) {
  const Outcome result = run(R"sh(
    first=$(pgrep harbix-inst)
    kill -KILL $first
    until grep -q starts:n:2 /pps/system/installer/status; do sleep 0.02; done
    test $(pgrep harbix-inst) -ne $first && echo other)sh");
  EXPECT_EQ(result.output, "other\n");
  EXPECT_EQ(result.errors, "harbix-device: the service 'harbix-installer' was killed by signal 9\n");
}

TEST_F(DeviceServices, AreNotStartedAgainAndAgainWhenTheyCannotGetReady) {
  const Outcome result =
      run_with("echo >&$2; exec sleep 60", "\"$copy\" --bare sleep 1; echo $?",
               "if [ -e /tmp/before ]; then exit 3; fi; : > /tmp/before; echo >&$2; sleep 0.2; exit 4");
  EXPECT_EQ(result.output, "0\n");
  EXPECT_EQ(result.errors,
            "harbix-device: the service 'harbix-installer' ended with status 4\n"
            "harbix-device: the service 'harbix-installer' ended with status 3\n");
}

TEST_F(DeviceServices, EndAlsoWhenStoppedWithClientsThatWait) {
  const Outcome result = run_kept(std::string("echo a::1 > /pps/o; kill -STOP ") + SERVICE +
                                  "; cat /pps/o & sleep 0.2; kill -KILL $$");
  EXPECT_EQ(result.status, 128 + SIGKILL);
  // A service that had to be killed would be reported.
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(read_file(state_ + "/var/pps/o"), "@o\na::1\n");
}

TEST_F(DeviceServices, AreKilledWhenTheyDoNotEnd) {
  const Outcome result = run_with("trap '' TERM; echo >&$2; while :; do sleep 1; done",
                                  "\"$copy\" --bare sh -c 'exit 7'; echo $?");
  EXPECT_EQ(result.output, "7\n");
  EXPECT_EQ(result.errors, "harbix-device: the service 'harbix-pps' did not end in time and was killed\n");
}

TEST_F(DeviceServices, ThatDoNotStartLeaveNoDevice) {
  const Outcome none = run_with("", "\"$copy\" --bare echo never; echo $?");
  EXPECT_EQ(none.output, "70\n");
  EXPECT_EQ(none.errors,
            "harbix-device: cannot run '/opt/harbix/bin/harbix-pps': No such file or directory\n"
            "harbix-device: the service 'harbix-pps' ended with status 127 before it was ready\n");
  const Outcome failing = run_with("echo 'harbix-pps: no' >&2; exit 3",
                                   "\"$copy\" --bare --state \"$folder/state\" echo never; echo $?");
  EXPECT_EQ(failing.output, "70\n");
  EXPECT_EQ(
      failing.errors,
      "harbix-pps: no\nharbix-device: the service 'harbix-pps' ended with status 3 before it was ready\n");
}

TEST_F(DeviceServices, ThatAreNotReadyYetDoNotHoldUpASignal) {
  const Outcome result =
      run_with("exec sleep 60", "timeout --signal=TERM 1 \"$copy\" --bare echo never; echo $?");
  // What timeout says when the time was up, and it was not its own kill that was needed.
  EXPECT_EQ(result.output, "124\n");
  EXPECT_EQ(result.errors, "");
}

TEST_F(DeviceServices, LetASignalPassThatTheCallerIgnores) {
  const Outcome result = run_with(
      "sleep 0.5; echo >&$2; exec sleep 60",
      "trap '' HUP; \"$copy\" --bare sh -c 'echo started' & sleep 0.2; kill -HUP $!; wait $!; echo $?");
  EXPECT_EQ(result.output, "started\n0\n");
}

TEST_F(DeviceServices, NeedFuse) {
  const Outcome result =
      run_on_host("unshare -m sh -c 'mount -t tmpfs none /dev && \"$device\" --bare echo never'");
  EXPECT_EQ(result.status, 77);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.errors,
            "harbix-device: cannot open '/dev/fuse': No such file or directory; run 'modprobe fuse', "
            "and give /dev/fuse to a container\n");
}

}  // namespace
}  // namespace harbix::test
