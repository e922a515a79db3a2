#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/installer/requests.h"
#include "tests/installer/running_device.h"

namespace harbix::test {
namespace {

using testing::StartsWith;

class InstallerPersistence : public RunningDevice {};

TEST_F(InstallerPersistence, KeepsWhatIsRegistered) {
  make_application("D", "P");
  make_application("caf\xe9 E", "Q");
  const std::string first = exchange(enrollment("D", "source::x", "10777"));
  EXPECT_EQ(first, "actual_gid::10777\nactual_dname::D\nactual_extras::source::x\nresult::0\n");
  const std::string second = exchange(enrollment("caf\xe9 E", "source::x"));
  EXPECT_THAT(second, StartsWith("actual_gid::10000\n"));
  const std::string list = shell(LIST);
  EXPECT_EQ(list, "@.all\nD::P,1.0.0.1,source::x\ncaf\xe9 E::Q,1.0.0.1,source::x\n");
  stop();
  start();
  EXPECT_EQ(shell(LIST), list);
  EXPECT_EQ(exchange("action::query\npackage_path::/apps/D\n"), first);
  EXPECT_EQ(exchange("action::query\npackage_path::/apps/caf\xe9 E\n"), second);
}

TEST_F(InstallerPersistence, KeepsTheGroupOfWhatWasUninstalled) {
  make_application("D", "P");
  make_application("E", "Q");
  EXPECT_THAT(exchange(enrollment("D", "source::x")), StartsWith("actual_gid::10000\n"));
  EXPECT_EQ(exchange("action::uninstall\npackage_id::P\n"), "result::0\n");
  stop();
  start();
  EXPECT_EQ(shell(LIST), "@.all\n");
  EXPECT_THAT(exchange(enrollment("E", "source::x")), StartsWith("actual_gid::10004\n"));
  make_application("D", "P");
  EXPECT_THAT(exchange(enrollment("D", "source::x")), StartsWith("actual_gid::10000\n"));
}

TEST_F(InstallerPersistence, ForgetsRequestsFaultsAndLinesOfOthers) {
  make_application("D", "P");
  EXPECT_THAT(exchange(enrollment("D", "source::x")), StartsWith("actual_gid::10000\n"));
  control("refuse::all\n");
  EXPECT_EQ(shell("cd /pps/system/installer; kill -STOP $(pgrep harbix-inst); "
                  "printf 'action::uninstall\npackage_id::P\n' > upd/current/old; "
                  "echo by::hand >> registeredapps/.all"),
            "");
  stop();
  EXPECT_TRUE(std::filesystem::is_empty(outside("/var/pps/system")));
  start();
  EXPECT_EQ(shell(std::string("ls ") + REQUESTS), "");
  EXPECT_EQ(shell("ls /pps/system/installer"), "registeredapps\nstatus\nupd\n");
  EXPECT_EQ(shell(LIST), "@.all\nD::P,1.0.0.1,source::x\n");
}

}  // namespace
}  // namespace harbix::test
