#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device_process.h"

namespace harbix::test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class Device : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_ROOT(); }

  static std::string output_of(const std::string& script) {
    const Outcome result = run_device({"--bare", "sh", "-c", script});
    EXPECT_EQ(result.status, 0) << script << ": " << result.errors;
    return result.output;
  }
};

TEST_F(Device, RunsTheCommandAsPlainRoot) {
  EXPECT_EQ(output_of("id -u; id -G; umask; pwd; echo $HOME"), "0\n0\n0022\n/\n/root\n");
}

TEST_F(Device, KeepsTheRestOfTheEnvironment) {
  EXPECT_EQ(run_on_host("KEPT='a b' \"$device\" --bare sh -c 'echo \"$KEPT\"'").output, "a b\n");
}

TEST_F(Device, MakesTemporaryFilesWhereverTheHostDoes) {
  EXPECT_THAT(run_on_host("TMPDIR=/only/on/the/host \"$device\" --bare mktemp --dry-run").output,
              StartsWith("/tmp/"));
}

TEST_F(Device, HasItsOwnProgramsFirstOnThePath) {
  EXPECT_THAT(output_of("echo $PATH; command -v harbix-device"),
              EndsWith("\n/opt/harbix/bin/harbix-device\n"));
}

TEST_F(Device, HasAccountsOfItsOwn) {
  EXPECT_EQ(output_of("stat -c %U:%G:%a /accounts/1000/shared /accounts/1000/sys/dtm"),
            "media:1000_shared:770\nroot:1000_sys:770\n");
  EXPECT_EQ(output_of("getent group 1000_shared protected_media; id -gn media"),
            "1000_shared:x:10001:\nprotected_media:x:10003:\nmedia\n");
}

TEST_F(Device, LetsTheMediaUserWriteToTheShareWithTheSharedGroup) {
  constexpr const char* AS_MEDIA =
      "setpriv --reuid media --regid 1000_shared --clear-groups sh -c "
      "'cd /accounts/1000/shared && mkdir d && echo x > d/f && rm d/f && rmdir d && echo done'";
  EXPECT_EQ(output_of(AS_MEDIA), "done\n");
  // With the media user's own group the owner's bits still count, but what is made does not get the shared
  // group.
  EXPECT_EQ(output_of("setpriv --reuid media --regid media --clear-groups sh -c "
                      "'cd /accounts/1000/shared && mkdir d && stat -c %G d'"),
            "media\n");
}

TEST_F(Device, SharesSystemFoldersReadOnly) {
  for (const char* folder : {"/usr", "/opt/harbix/bin", "/etc/alternatives"}) {
    const Outcome result = run_device({"--bare", "touch", folder + std::string("/x")});
    EXPECT_EQ(result.status, 1) << folder;
    EXPECT_THAT(result.errors, HasSubstr("Read-only file system")) << folder;
  }
}

TEST_F(Device, HasTheUsualDeviceNodes) {
  EXPECT_EQ(
      output_of("head -c 3 /dev/zero | wc -c; echo x > /dev/null; head -c 5 /dev/urandom | wc -c;"
                "echo out > /dev/stdout; test -e /dev/pts/ptmx && echo pts; stat -c %a /dev/shm /dev/log"),
      "3\n5\nout\npts\n1777\n666\n");
  EXPECT_EQ(run_device({"--bare", "sh", "-c", "echo x > /dev/full"}).status, 1);
}

TEST_F(Device, ServesThePublishSubscribeFileSystem) {
  EXPECT_EQ(output_of("echo state::on > /pps/radio; cat '/pps/radio?delta'; stat -f -c %T /pps"),
            "@radio\nstate::on\nfuseblk\n");
  EXPECT_EQ(output_of("grep ' /pps ' /etc/mtab | cut -d ' ' -f 1-3"), "pps /pps fuse.pps\n");
}

TEST_F(Device, SeesNeitherTheHostsProcessesNorItsFiles) {
  EXPECT_EQ(output_of("echo /proc/[0-9]*; ls /tmp /pps; test -e /home || test -e /srv || echo nothing"),
            "/proc/1 /proc/2 /proc/3 /proc/4\n/pps:\nsystem\n\n/tmp:\nnothing\n");
}

TEST_F(Device, HasAHostNameOfItsOwn) {
  EXPECT_EQ(output_of("hostname; hostname other; hostname"), "tablet\nother\n");
  EXPECT_THAT(run_on_host("hostname").output, testing::Not(testing::AnyOf("tablet\n", "other\n")));
}

TEST_F(Device, StartsALoginShellWithoutACommand) {
  const Outcome result = run_device({"--bare"}, "shopt -q login_shell && echo \"$PS1\"\nexit 3\n");
  EXPECT_EQ(result.output, "\\u@\\h:\\w\\$ \n");
  EXPECT_EQ(result.status, 3);
}

TEST_F(Device, HasTheManualPages) {
  const std::string program = run_on_host("command -v man").output;
  if (program.empty()) GTEST_SKIP() << "no man on this machine";
  const std::vector<std::pair<const char*, const char*>> pages{
      {"1", "harbix"}, {"1", "harbix-device"}, {"5", "harbix-archive"}};
  for (const auto& [section, page] : pages) {
    const Outcome result = run_device({"--bare", "man", section, page});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_THAT(result.output, HasSubstr(page));
    EXPECT_THAT(result.output, HasSubstr("DESCRIPTION"));
    EXPECT_EQ(result.errors, "");
  }
}

TEST_F(Device, TakesFilesBeyondTwoGiB) {
  EXPECT_EQ(output_of("truncate -s 5G /tmp/big; stat -c %s /tmp/big"), "5368709120\n");
}

TEST_F(Device, CanHoldAnotherDevice) {
  EXPECT_EQ(output_of("harbix-device --bare sh -c 'echo inner; exit 3'; echo $?"), "inner\n3\n");
}

}  // namespace
}  // namespace harbix::test
