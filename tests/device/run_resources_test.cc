// Lack of descriptors or memory is an error of the run, and not of the item that it shows at.

#include <cerrno>
#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/application_device.h"
#include "tests/support/crafted_package.h"
#include "tests/support/failing.h"
#include "tests/support/tar_builder.h"
#include "tests/support/test_name.h"

namespace harbix::test {
namespace {

/// A backup of one keyword on a device that has something of all three.
class RunResources : public testing::TestWithParam<const char*> {
 protected:
  RunResources() {
    for (const char* path : {"/Music/a", "/Music/sub/b", "/Photos/c"})
      device_.write(std::string(SHARED) + path, path);
    device_.write(std::string(DTM) + "/f/d", "d");
    device_.write("/base/scripts/backup_and_restore/settings/lists",
                  "#!/bin/sh\n[ $1 != whitelist ] || echo whitelist /accounts/1000/settings\n", 0755);
    device_.write("/accounts/1000/settings/sub/one", "1");
    for (const InstalledApplication& each : {bought_application(), loaded_application()}) {
      device_.install(each);
      device_.add_file(each, "native/main", "program");
      device_.add_data(each, "data/sub/state", "state");
    }
    device_.shell("mkdir -p /pps/services/x; echo a::1 > /pps/services/x/object");
    EXPECT_EQ(back_up("").status, 0);
    whole_ = names();
  }

  Outcome back_up(const std::string& before) {
    return device_.shell(before + "harbix -f /tmp/a.tar " + GetParam());
  }
  std::string names() { return device_.shell("tar -Ptf /tmp/a.tar | sort").output; }

  ApplicationDevice device_;
  std::string whole_;
};

TEST_P(RunResources, ThatAreTooFewDescriptorsEndABackupWithStatusTwo) {
  int failures = 0;
  int status = 2;
  for (int count = 5; count < 60 && status != 0; ++count) {
    const Outcome outcome = back_up(with_descriptors(count) + "exec ");
    status = outcome.status;
    // The program could not even be loaded.
    if (status == 127) continue;
    EXPECT_THAT(status, testing::AnyOf(0, 2)) << count << outcome.errors;
    if (status == 2) ++failures;
  }
  EXPECT_EQ(status, 0);
  EXPECT_GT(failures, 1);
  // The settings scripts have no more descriptors than the program, and may list nothing.
  if (GetParam() != std::string("settings")) {
    EXPECT_EQ(names(), whole_);
  }
}

TEST_P(RunResources, ThatAreMissingForOneCallEndABackupWithStatusTwo) {
  for (const auto& [call, error] :
       {std::pair{"readdir", ENOMEM}, {"openat", EMFILE}, {"openat2", ENFILE}, {"fstatat", ENOMEM}}) {
    int failures = 0;
    for (int nth = 1; nth < 200; ++nth) {
      const Outcome outcome = back_up(while_failing(call, std::to_string(nth), error));
      if (outcome.status == 2) {
        ++failures;
        EXPECT_THAT(outcome.errors, testing::ContainsRegex("ERROR: .*" + std::string(std::strerror(error))))
            << call << nth;
        continue;
      }
      EXPECT_EQ(outcome.status, 0) << call << nth << outcome.errors;
      EXPECT_EQ(names(), whole_) << call << nth << outcome.errors;
      if (device_
              .shell("! " + while_failing(call, std::to_string(nth) + "+", error) + "harbix -f /tmp/b.tar " +
                     GetParam())
              .status != 0)
        break;
    }
    EXPECT_GT(failures, 2) << call;
  }
}

// The sanitizers take terabytes of addresses.
#ifndef HARBIX_SANITIZED
/// Of a keyword, with a manifest that takes a restore some memory.
std::string demanding_archive(const std::string& keyword) {
  std::string ballast = "ballast";
  for (int i = 0; i < 20'000; ++i) ballast += "\nBallast: " + std::string(1000, 'b');
  if (keyword == "app")
    return archive_of({CraftedPackage::data("side.app").attribute("Ballast", ballast).folder("data")});
  if (keyword == "settings")
    return TarBuilder().file("/settings/.backup.metadata", "Ballast: " + ballast + "\n\n", 0700).text();
  std::string records;
  for (int i = 0; i < 1'000'000; ++i) records += "File: 1\nM/" + std::to_string(i) + '\n';
  return TarBuilder().file("/media/M/.backup.metadata", records + '\n').file("/media/M/1", "1").text();
}

TEST_P(RunResources, ThatAreTooLittleMemoryEndARestoreWithStatusTwo) {
  device_.write("/tmp/a.tar", demanding_archive(GetParam()));
  bool has_ended = false;
  int status = 2;
  for (int mebibytes = 10; mebibytes < 300 && status != 0; ++mebibytes) {
    const Outcome outcome = device_.shell("ulimit -v " + std::to_string(mebibytes << 10) +
                                          "; exec harbix -r -f /tmp/a.tar " + GetParam());
    status = outcome.status;
    // The program could not even be loaded, or the language's own start ended it.
    if (status == 127 || outcome.errors == "terminate called without an active exception\n") continue;
    EXPECT_THAT(status, testing::AnyOf(0, 2)) << mebibytes << outcome.errors;
    if (status == 0) continue;
    has_ended = true;
    // The system had none for one call, which is reported by what was called for.
    if (outcome.errors.ends_with("[errno:12 'Cannot allocate memory']\n")) continue;
    EXPECT_EQ(outcome.errors, "ERROR: Out of memory\n") << mebibytes;
    EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR), testing::Contains("ERROR: Out of memory")) << mebibytes;
  }
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(has_ended);
}
#endif

INSTANTIATE_TEST_SUITE_P(Keywords, RunResources, testing::Values("media", "settings", "app"), name_of);

}  // namespace
}  // namespace harbix::test
