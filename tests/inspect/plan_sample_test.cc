#include <string>

#include <gmock/gmock.h>

#include "tests/inspect/plan_fixture.h"

namespace harbix::test {
namespace {

using ::testing::Contains;
using ::testing::StartsWith;

/// The sample device, kept in a folder of the test's own.
class SampleDevice {
 public:
  Outcome shell(const std::string& script) {
    return run_program({HARBIX_DEVICE_PROGRAM, "--state", folder_ / "device", "--log", folder_ / "log",
                        "bash", "-c", script});
  }

  [[nodiscard]] std::filesystem::path outside(const std::string& path) const {
    return folder_ / "device" + path;
  }

 private:
  TemporaryFolder folder_;
};

/// A function of the shell.
const std::string UNINSTALL = R"(
uninstall() {
  exec 3<>"/pps/system/installer/upd/current/test?wait,delta"
  printf 'action::uninstall\npackage_id::%s\n' "$1" >&3
  while read -r line <&3; do if [[ $line == result::* ]]; then break; fi; done
  exec 3>&-
  rm -f /pps/system/installer/upd/current/test
}
)";

class PlanOfSample : public Plan {
 protected:
  PlanOfSample() {
    EXPECT_EQ(device_.shell("harbix -f /tmp/a.tar app_media_settings 2>/dev/null").status, 0);
  }

  SampleDevice device_;
};

TEST_F(PlanOfSample, AgreesWithTheRestoreOfEverything) {
  const Foreseen all = expect_agreement(device_, "app media settings");
  EXPECT_GE(all.fates.size(), 25U);
  EXPECT_FALSE(all.removed.empty());
}

TEST_F(PlanOfSample, AgreesWithTheRestoreAfterALoss) {
  ASSERT_EQ(
      device_
          .shell(UNINSTALL + "for package in $(sed -n 's/^[^:]*::\\([^,]*\\),.*source::shopvale.*/\\1/p' "
                             "/pps/system/installer/registeredapps/.all); do uninstall $package; done\n"
                             "find /accounts/1000/appdata/*/data -mindepth 1 -delete\n"
                             "find /accounts/1000/shared /accounts/1000/sys/dtm -mindepth 1 -delete\n"
                             "find /accounts/1000/settings -type f -delete")
          .status,
      0);
  expect_agreement(device_, "app media settings");
}

TEST_F(PlanOfSample, AgreesWithTheRestoreWhereAnApplicationIsGone) {
  // One that no archive brings back: it was not bought.
  const Outcome gone = device_.shell(
      UNINSTALL +
      "id=$(sed -n 's/^\\([^:]*\\)::.*source::sideload.*/\\1/p' /pps/system/installer/registeredapps/.all | "
      "head -n 1)\n"
      "package=$(sed -n \"s/^$id::\\([^,]*\\),.*/\\1/p\" /pps/system/installer/registeredapps/.all)\n"
      "uninstall $package; echo $package");
  ASSERT_EQ(gone.status, 0) << gone.errors;
  const std::string package = lines_of(gone.output).back();
  const Foreseen all = expect_agreement(device_, "app");
  EXPECT_EQ(all.fates.at("/app/" + package + "/appdata"), "skipped");
}

TEST_F(PlanOfSample, AgreesWithTheRestoreWhereTheScriptsSayOtherwise) {
  ASSERT_EQ(device_
                .shell("printf '#!/bin/sh\\n[ $1 = blacklist ] && echo blacklist /accounts/1000/settings\\n"
                       "[ $1 = blacklist ] && echo blacklist /pps/services/d\\nexit 0\\n' > "
                       "/base/scripts/backup_and_restore/settings/zz; chmod 755 "
                       "/base/scripts/backup_and_restore/settings/zz")
                .status,
            0);
  const Foreseen all = expect_agreement(device_, "settings");
  EXPECT_EQ(all.status, 1);
  EXPECT_THAT(all.left_out, Contains(StartsWith("/accounts/1000/settings/")));
}

TEST_F(PlanOfSample, IsReadFromAPipeAsWell) {
  const std::string from_file = device_.shell("harbix-inspect plan --json /tmp/a.tar").output;
  const std::string from_pipe = device_.shell("cat /tmp/a.tar | harbix-inspect plan --json -").output;
  const auto fates = [](const std::string& output) { return foreseen(output).fates; };
  EXPECT_EQ(fates(from_pipe), fates(from_file));
  EXPECT_EQ(foreseen(from_pipe).left_out, foreseen(from_file).left_out);
}

}  // namespace
}  // namespace harbix::test
