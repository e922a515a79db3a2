#include <unistd.h>

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device/content/random.h"
#include "tests/support/device_process.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

class DeviceExit : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_ROOT(); }
};

TEST_F(DeviceExit, IsTheStatusOfTheCommand) {
  for (const int status : {0, 1, 2, 64, 70, 77, 255}) {
    const Outcome result = run_device({"--bare", "sh", "-c", "exit " + std::to_string(status)});
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.errors, "");
  }
}

TEST_F(DeviceExit, NamesTheSignalThatEndedTheCommand) {
  EXPECT_EQ(run_device({"--bare", "sh", "-c", "kill -SEGV $$"}).status, 128 + 11);
  EXPECT_EQ(run_device({"--bare", "sh", "-c", "kill -KILL $$"}).status, 128 + 9);
}

TEST_F(DeviceExit, Is127ForACommandThatDoesNotExist) {
  const Outcome result = run_device({"--bare", "no-such-command"});
  EXPECT_EQ(result.status, 127);
  EXPECT_EQ(result.errors, "harbix-device: cannot run 'no-such-command': No such file or directory\n");
}

TEST_F(DeviceExit, Is126ForACommandThatCannotBeExecuted) {
  const Outcome result = run_device({"--bare", "/etc/passwd"});
  EXPECT_EQ(result.status, 126);
  EXPECT_EQ(result.errors, "harbix-device: cannot run '/etc/passwd': Permission denied\n");
}

TEST_F(DeviceExit, Is64ForAWrongCommandLine) {
  const Outcome result = run_device({"--nonsense"});
  EXPECT_EQ(result.status, 64);
  EXPECT_EQ(result.errors, "harbix-device: unknown option '--nonsense'; 'harbix-device --help' explains\n");
}

TEST_F(DeviceExit, Is77ForOthersThanRoot) {
  // A copy where everybody can reach it.
  const TemporaryFolder folder;
  const Outcome result = run_on_host(
      "chmod 755 \"$folder\"; cp \"$device\" \"$folder/program\"; setpriv --reuid 65534 --regid 65534 "
      "--clear-groups "
      "\"$folder/program\" true",
      folder / "");
  EXPECT_EQ(result.status, 77);
  EXPECT_EQ(result.errors, "harbix-device: only root can start a device\n");
}

/// Runs the device in a chroot, which has what is needed of the host. `before` is run when all but that is
/// mounted.
Outcome run_in_chroot(const std::string& before) {
  const TemporaryFolder folder;
  return run_on_host(
      "cd \"$folder\" && mkdir usr etc dev proc tmp programs && ln -s usr/bin usr/sbin usr/lib usr/lib64 . "
      "&& "
      "cp \"${device%/*}\"/harbix* programs && unshare -m sh -c '" +
          before +
          "for name in usr etc dev proc; do mount --rbind /$name $name || exit; done; "
          "chroot . /programs/harbix-device --bare sh -c \"exit 3\"'",
      folder / "");
}

TEST_F(DeviceExit, IsTheCommandsInAChrootThatIsAMountPoint) {
  const Outcome result = run_in_chroot("mount --bind . . && cd \"$folder\" && ");
  EXPECT_EQ(result.status, 3) << result.errors;
}

TEST_F(DeviceExit, TellsWhatAPlainChrootLacks) {
  const Outcome result = run_in_chroot("");
  EXPECT_EQ(result.status, 77);
  EXPECT_EQ(
      result.errors,
      "harbix-device: / is not a mount point; run 'mount --bind FOLDER FOLDER' before 'chroot FOLDER'\n");
}

TEST_F(DeviceExit, Is77WhereNamespacesAreForbidden) {
  const Outcome result = run_on_host("setpriv --bounding-set -sys_admin \"$device\" --bare true");
  EXPECT_EQ(result.status, 77);
  EXPECT_EQ(result.errors, "harbix-device: cannot make a process namespace: Operation not permitted\n");
}

TEST_F(DeviceExit, Is70WithOneLineWhenTheLogCannotBeOpened) {
  const Outcome result = run_device({"--bare", "--log", "/no/such/folder/log", "true"});
  EXPECT_EQ(result.status, 70);
  EXPECT_EQ(result.errors,
            "harbix-device: cannot open the log file '/no/such/folder/log': No such file or directory\n");
}

TEST_F(DeviceExit, LeavesInputAndOutputAsTheyAre) {
  const TemporaryFolder folder;
  write_file(folder / "in", device::Random("binary").bytes(3000000));
  const Outcome result = run_on_host(
      "cat \"$folder/in\" | \"$device\" --bare cat | cat > \"$folder/out\"; cmp \"$folder/in\" "
      "\"$folder/out\"",
      folder / "");
  EXPECT_EQ(result.status, 0) << result.output << result.errors;
}

}  // namespace
}  // namespace harbix::test
