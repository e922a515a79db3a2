#include <cerrno>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"
#include "tests/support/tar_builder.h"
#include "tests/support/test_name.h"

namespace harbix::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr int MOST_SWITCHES = 60;

/// Work for other users, on a device that does not let the program become them.
class Identity : public testing::Test {
 protected:
  Identity() {
    device_.write(shared("Music/a"), "music");
    device_.write(shared("Music/locked"), "only root may read this", 0600);
    device_.own(shared("Music/locked"), "root", "root");
    device_.write(std::string(SETTINGS_SCRIPTS) + "/lists",
                  "#!/bin/bash\n[ $1 != whitelist ] || echo whitelist " + std::string(SETTINGS) + "\n", 0755);
    device_.make_folder(SETTINGS, 0777);
  }

  /// Runs harbix with one call failing that changes who it is.
  Outcome run(const std::string& call, int nth, int error, const std::string& arguments,
              const std::string& input = "") {
    return device_.shell(
        "export ASAN_OPTIONS=verify_asan_link_order=0 HARBIX_FAIL_CALL=" + call +
            " HARBIX_FAIL_NTH=" + std::to_string(nth) + " HARBIX_FAIL_ERRNO=" + std::to_string(error) +
            "; LD_PRELOAD=/opt/harbix/bin/tests/libfailing_calls.so exec harbix " + arguments,
        input);
  }

  Device device_;
};

class LostIdentity : public Identity, public testing::WithParamInterface<const char*> {};

TEST_P(LostIdentity, PutsNothingIntoABackupThatAnotherUserWouldNotHaveRead) {
  int failures = 0;
  for (const int error : {EAGAIN, EPERM}) {
    for (int nth = 1; nth < MOST_SWITCHES; ++nth) {
      std::filesystem::remove(device_.outside("/tmp/a.tar"));
      const Outcome outcome = run(GetParam(), nth, error, "-f /tmp/a.tar media");
      if (device_.exists("/tmp/a.tar")) {
        EXPECT_THAT(device_.read("/tmp/a.tar"), Not(HasSubstr("only root"))) << nth;
      }
      if (outcome.status == 0) {
        EXPECT_EQ(outcome.errors, "") << nth;
        EXPECT_THAT(device_.read("/tmp/a.tar"), HasSubstr("music")) << nth;
      } else {
        ++failures;
        EXPECT_THAT(outcome.errors, HasSubstr("Could not ")) << nth;
      }
    }
  }
  EXPECT_GT(failures, 1);
}

TEST_P(LostIdentity, RestoresNothingForAnotherUser) {
  const std::string archive = TarBuilder()
                                  .file("/media/Music/new", "new")
                                  .file("/settings/.backup.metadata", "File: 1\n/a\nFile: 1\n/b\n\n", 0700)
                                  .owner(device_.user("apps"))
                                  .file("/settings" + std::string(SETTINGS) + "/one", "1")
                                  .owner(device_.user("media"))
                                  .file("/settings" + std::string(SETTINGS) + "/two", "2")
                                  .text();
  int failures = 0;
  for (int nth = 1; nth < MOST_SWITCHES; ++nth) {
    for (const std::string& restored :
         {shared("Music/new"), std::string(SETTINGS) + "/one", std::string(SETTINGS) + "/two"}) {
      std::filesystem::remove(device_.outside(restored));
    }
    const Outcome outcome = run(GetParam(), nth, EAGAIN, "-r media_settings", archive);
    const Snapshot media = device_.snapshot(SHARED);
    if (const auto found = media.find("Music/new"); found != media.end()) {
      EXPECT_EQ(found->second.owner, device_.user("media")) << nth;
      EXPECT_EQ(found->second.group, device_.group("1000_shared")) << nth;
    }
    for (const auto& [path, item] : device_.snapshot(SETTINGS)) {
      EXPECT_EQ(item.owner, device_.user(path == "one" ? "apps" : "media")) << nth << path;
      EXPECT_EQ(item.group, 0U) << nth << path;
    }
    if (!outcome.errors.starts_with("Restore: ")) ++failures;
    EXPECT_TRUE(media.contains("Music/new") || outcome.errors.find("Could not ") != std::string::npos) << nth;
  }
  EXPECT_GT(failures, 1);
}

INSTANTIATE_TEST_SUITE_P(Calls, LostIdentity, testing::Values("setresuid", "setresgid"), name_of);

TEST_F(Identity, MayBeThatOfALauncherWhoseRealUserIsAnother) {
  const Outcome backup = device_.shell("setpriv --ruid=1234 harbix -f /tmp/a.tar media");
  EXPECT_EQ(backup.status, 0) << backup.errors;
  const Snapshot before = device_.snapshot(SHARED);
  const Outcome restore = device_.shell("setpriv --ruid=1234 harbix -r -f /tmp/a.tar media");
  EXPECT_EQ(restore.status, 0) << restore.errors;
  EXPECT_EQ(difference(before, device_.snapshot(SHARED)), "");
}

TEST_F(Identity, OfALauncherIsNotHandedToScripts) {
  // A shell whose real user is another than its effective one gives the rights of the latter up.
  device_.write(std::string(SETTINGS_SCRIPTS) + "/who",
                "#!/bin/bash\n[ $1 != whitelist ] || id -ru > /tmp/who; id -u >> /tmp/who\n", 0755);
  const Outcome outcome = device_.shell("setpriv --ruid=1234 harbix -f /tmp/a.tar settings; cat /tmp/who");
  EXPECT_THAT(outcome.output, testing::StartsWith("0\n0\n")) << outcome.errors;
}

TEST_F(Identity, IsFoundAmongGroupsOfManyMembers) {
  std::string crowd = "user0";
  for (int i = 1; i < 2000; ++i) crowd += ",user" + std::to_string(i);
  std::ifstream file(device_.outside("/etc/group"));
  std::string groups = "crowd:x:7777:" + crowd + "\n";
  for (std::string line; std::getline(file, line);) {
    groups += line + (line.starts_with("1000_shared:") ? crowd : "") + "\n";
  }
  std::ofstream(device_.outside("/etc/group")) << groups;
  const Outcome outcome = device_.harbix({"-f", "/tmp/a.tar", "media"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_THAT(device_.read("/tmp/a.tar"), HasSubstr("music"));
}

}  // namespace
}  // namespace harbix::test
