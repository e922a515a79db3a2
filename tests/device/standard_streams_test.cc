#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"

namespace harbix::test {
namespace {

using testing::HasSubstr;

const std::string SHARE = SHARED;

/// A share with something in it that a backup reports on standard error.
class StandardStreams : public testing::Test {
 protected:
  StandardStreams() { device_.write(SHARE + "/Music/song", "text"); }

  static std::string making_a_pipe(const std::string& command) {
    return "mkfifo " + SHARE + "/Music/pipe; chown media:1000_shared " + SHARE + "/Music/pipe; " + command;
  }

  Device device_;
};

TEST_F(StandardStreams, MayBeClosedWhereMessagesGo) {
  for (const char* command : {"harbix -f /tmp/a.tar media 2>&-", "harbix media 2>&- > /tmp/a.tar",
                              "harbix -f /tmp/a.tar media <&- >&- 2>&-"}) {
    const Outcome backup = device_.shell("rm -f " + SHARE + "/Music/pipe; " + making_a_pipe(command));
    EXPECT_EQ(backup.status, 0) << command;
    const Outcome list = device_.shell("tar -Ptf /tmp/a.tar");
    EXPECT_EQ(list.status, 0) << command << list.errors;
    EXPECT_THAT(list.output, HasSubstr("/media/Music/song\n")) << command;
    EXPECT_EQ(device_.shell("harbix -r -f /tmp/a.tar media <&- >&- 2>&-").status, 0) << command;
  }
}

TEST_F(StandardStreams, OfAnArchiveMustBeOpen) {
  const Outcome backup = device_.shell("harbix media >&-");
  EXPECT_EQ(backup.status, 2);
  EXPECT_THAT(backup.errors, HasSubstr("ERROR: Archive error: Write error: Bad file descriptor\n"));
  const Snapshot before = device_.snapshot(SHARE);
  const Outcome restore = device_.shell("harbix -r media <&-");
  EXPECT_EQ(restore.status, 2);
  EXPECT_THAT(restore.errors, HasSubstr("ERROR: Archive error: Read error: Bad file descriptor\n"));
  EXPECT_EQ(difference(before, device_.snapshot(SHARE)), "");
}

TEST_F(StandardStreams, AreNotReadByScriptsWhileTheArchiveComesThere) {
  const std::string folder = "/base/scripts/backup_and_restore/settings/";
  device_.write(folder + "greedy",
                "#!/bin/sh\ncat > /dev/null\n[ $1 = whitelist ] && echo whitelist /etc/setting\n", 0755);
  device_.own(folder + "greedy", "root", "root");
  // More than what is read ahead before the scripts are asked.
  const std::string old(std::size_t{2} << 20, 'o');
  device_.write("/etc/setting", old);
  device_.own("/etc/setting", "root", "root");
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "settings"}).status, 0);
  device_.write("/etc/setting", "changed");
  const Outcome restore = device_.shell("cat /tmp/a.tar | harbix -r settings");
  EXPECT_EQ(restore.status, 0) << restore.errors;
  EXPECT_TRUE(device_.read("/etc/setting") == old);
}

}  // namespace
}  // namespace harbix::test
