// Settings that are live objects of PPS.

#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/device/settings_device.h"

namespace harbix::test {
namespace {

using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

TEST_F(Settings, ComeBackIntoTheLiveObjectAndTheFiles) {
  device_.write("/accounts/1000/settings/a.conf", "colour=red", 0640);
  ASSERT_EQ(device_.shell(publish("/pps/services/display/mode", "brightness::70\\nvolume:n:3\\n")).status, 0);
  const Outcome backup = device_.harbix({"-f", "/tmp/a.tar", "settings"});
  EXPECT_EQ(backup.status, 0) << backup.errors;
  EXPECT_THAT(names(), IsSupersetOf({"/settings/.backup.metadata", "/settings/pps/services/display/mode",
                                     "/settings/accounts/1000/settings/a.conf"}));

  device_.write("/accounts/1000/settings/a.conf", "colour=blue", 0600);
  const Outcome restore =
      device_.shell("echo brightness::10 > /pps/services/display/mode; harbix -r -f /tmp/a.tar settings");
  EXPECT_EQ(restore.status, 0);
  EXPECT_THAT(restore.errors, HasSubstr("Restore: /settings/pps/services/display/mode\n"));
  EXPECT_THAT(restore.errors, HasSubstr("Restore: /settings/accounts/1000/settings/a.conf\n"));
  EXPECT_THAT(object("/pps/services/display/mode"), HasSubstr("brightness::70\n"));
  EXPECT_EQ(device_.read("/accounts/1000/settings/a.conf"), "colour=red");
  const Item file = device_.snapshot("/accounts/1000/settings").at("a.conf");
  EXPECT_EQ(file.mode, S_IFREG | 0640U);
  EXPECT_EQ(file.owner, device_.user("media"));
  EXPECT_EQ(file.group, 0U);
  EXPECT_EQ(device_.read("/tmp/events"), "backup_start\nbackup_end\nrestore_start\nrestore_end\n");
}

TEST_F(Settings, AreSeenByAWaitingSubscriberWhenTheyComeBack) {
  ASSERT_EQ(
      device_
          .shell(publish("/pps/services/display/mode", "brightness::70\\n") + "harbix -f /tmp/a.tar settings")
          .status,
      0);
  const Outcome outcome = device_.shell(
      "echo brightness::10 > /pps/services/display/mode\n"
      "exec 3< '/pps/services/display/mode?wait,delta'\n"
      "head -c 1000 <&3 > /dev/null & sleep 0.1; kill $! 2> /dev/null; wait\n"
      "(dd bs=4096 count=1 status=none <&3 > /tmp/seen) & sleep 0.2\n"
      "harbix -r -f /tmp/a.tar settings 2> /dev/null; wait; cat /tmp/seen");
  EXPECT_THAT(outcome.output, HasSubstr("brightness::70\n")) << outcome.errors;
}

TEST_F(Settings, LeaveOutControlObjectsAndTheBlacklist) {
  device_.write("/accounts/1000/settings/control", "kept");
  device_.write("/accounts/1000/settings/secret", "blacklisted");
  device_.write("/accounts/1000/settings/secrets/deep", "blacklisted by characters");
  ASSERT_EQ(device_
                .shell(publish("/pps/services/x/control", "a::1\\n") +
                       publish("/pps/hidden/object", "a::1\\n") + publish("/pps/hiddenX", "a::1\\n") +
                       publish("/pps/services/x/shown", "a::1\\n") + "harbix -f /tmp/a.tar settings")
                .status,
            0);
  EXPECT_THAT(names(),
              IsSupersetOf({"/settings/accounts/1000/settings/control", "/settings/pps/services/x/shown"}));
  for (const std::string& name : names()) {
    EXPECT_THAT(name, Not(testing::ContainsRegex("hidden|secret|pps/.*/control")));
  }
}

TEST_F(Settings, NeverCarryLinesThatAreNotPersistent) {
  ASSERT_EQ(device_
                .shell(publish("/pps/services/x/object", "kept::1\\n[n]transient::2\\n") +
                       "harbix -f /tmp/a.tar settings")
                .status,
            0);
  EXPECT_EQ(device_.shell("tar -PxOf /tmp/a.tar /settings/pps/services/x/object").output,
            "@object\nkept::1\n");
}

TEST_F(Settings, GoOnPastAnObjectThatCannotBeRestored) {
  ASSERT_EQ(
      device_.shell(publish("/pps/services/x/object", "a::1\\n") + "harbix -f /tmp/a.tar settings").status,
      0);
  // Still in the store's list, but not live: the store is read before the restore, the object is gone.
  const Outcome outcome = device_.shell(
      "rm /pps/services/x/object; touch /var/pps/services/x/object; harbix -r -f /tmp/a.tar settings");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors,
              HasSubstr("WARNING: File /settings/pps/services/x/object could not be restored due to "
                        "restore_pps failed [errno:2 'No such file or directory']\n"));
}

TEST_F(Settings, FailWithoutTheStoreOfObjects) {
  const Outcome outcome = device_.shell("mount -t tmpfs none /var; harbix -f /tmp/a.tar settings");
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.errors, HasSubstr("ERROR: Failed to chdir to '/var/pps'"));
  EXPECT_EQ(device_.read("/tmp/events"), "backup_start\nbackup_end\n");
}

}  // namespace
}  // namespace harbix::test
