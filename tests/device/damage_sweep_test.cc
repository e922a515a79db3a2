#include <gtest/gtest.h>

#include "tests/support/application_device.h"

namespace harbix::test {
namespace {

/// So few that the test stays short; damage_sweep itself tries all when it is asked to.
constexpr int SAMPLES = 60;

/// A device with a little of everything that is backed up.
class DamageSweep : public testing::TestWithParam<const char*> {
 protected:
  DamageSweep() {
    for (const std::string folder : {"/Music", "/Photos/2024"}) {
      device_.write(SHARED + folder + "/a file", "text");
      device_.write(SHARED + folder + "/l\xc3\xa4nger " + std::string(120, 'n'), std::string(2000, 'b'));
    }
    device_.link(std::string(SHARED) + "/Music/link", "a file");
    device_.write(std::string(DTM) + "/folder/file", "dtm");
    for (const InstalledApplication& each : {bought_application(), loaded_application()}) {
      device_.install(each);
      device_.add_file(each, "native/main", "program", 0750);
      device_.add_data(each, "data/folder/state", "state");
      device_.make_owned_link(each.data() + "/data/link", "folder", each.data_user(), each.group);
    }
    device_.make_folder("/accounts/1000/settings", 0755);
    for (const std::string name : {"colour", "l\xc3\xa4nge", "sound"})
      device_.write("/accounts/1000/settings/" + name, "value of " + name);
    const std::string script = "/base/scripts/backup_and_restore/settings/list";
    device_.write(script, "#!/bin/sh\n[ $1 != whitelist ] || echo whitelist /accounts/1000/settings\n", 0755);
    device_.own(script, "root", "root");
  }

  ApplicationDevice device_;
};

TEST_P(DamageSweep, FindsNoArchiveThatIsRestoredInPartWithoutAWord) {
  const Outcome outcome =
      device_.run({"/opt/harbix/bin/tests/damage_sweep", GetParam(), std::to_string(SAMPLES)});
  EXPECT_EQ(outcome.status, 0) << outcome.output << outcome.errors;
}

INSTANTIATE_TEST_SUITE_P(Keywords, DamageSweep, testing::Values("media", "settings", "app"),
                         [](const auto& keyword) { return std::string(keyword.param); });

}  // namespace
}  // namespace harbix::test
