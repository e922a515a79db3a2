// The scripts that say what the settings are, and what a run says of its work.

#include <cerrno>
#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/device/settings_device.h"
#include "tests/support/failing.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

TEST_F(Settings, ReportWhatScriptsSayAndGoOn) {
  add_script("bad",
             "echo 'whitelist relative/x'; echo whitelist; echo hello; echo oops >&2; "
             "head -c 3000 /dev/zero | tr '\\0' x; echo; exit 3\n");
  add_script("notexecutable", "echo whitelist /etc/passwd\n", 0644);
  device_.write("/etc/harbix-setting", "single file");
  const Outcome outcome = device_.harbix({"-f", "/tmp/a.tar", "settings"});
  EXPECT_EQ(outcome.status, 0);
  const std::string script = std::string(SETTINGS_SCRIPTS) + "/bad";
  EXPECT_THAT(outcome.errors,
              HasSubstr("Empty whitelist line or non-absolute path detected in " + script + "\n"));
  EXPECT_THAT(outcome.errors, HasSubstr("script log: " + script + ": hello\n"));
  EXPECT_THAT(outcome.errors, HasSubstr("script log: " + script + ": oops\n"));
  EXPECT_THAT(outcome.errors, HasSubstr("script log: " + script + ": " + std::string(1023, 'x')));
  EXPECT_THAT(outcome.errors, HasSubstr("script log: " + std::string(SETTINGS_SCRIPTS) + "/notexecutable: "));
  EXPECT_THAT(names(), IsSupersetOf({std::string("/settings/etc/harbix-setting")}));
  EXPECT_THAT(names(), Not(testing::Contains("/settings/etc/passwd")));
}

TEST_F(Settings, TellScriptsAndPathsWhenVerbose) {
  device_.write("/accounts/1000/settings/a", "a");
  const Outcome outcome = device_.harbix({"-v", "-f", "/tmp/a.tar", "settings"});
  const std::string script = std::string(SETTINGS_SCRIPTS) + "/lists";
  for (const std::string& line :
       {"System client b&r settings script:  " + script,
        std::string("Adding /accounts/1000/settings to the settings whitelist"),
        std::string("Adding /pps/hidden to the settings blacklist"),
        std::string("/pps/services/navigator/wallpaper"), std::string("Archive: /accounts/1000/settings/a"),
        std::string("Settings")}) {
    EXPECT_THAT(outcome.errors, HasSubstr(line + "\n"));
  }
}

TEST_F(Settings, AreNotBackedUpOrRestoredWhereAScriptCannotBeStarted) {
  device_.write("/accounts/1000/settings/secret", "blacklisted");
  const std::string script = std::string(SETTINGS_SCRIPTS) + "/lists";
  const std::string told = "Could not popen b&r settings script " + script + "\n";
  // Without memory the run is over; without a process the restore is.
  for (const auto& [nth, error] : {std::pair{"1", ENOMEM}, {"2", ENOMEM}, {"1", EAGAIN}, {"2", EAGAIN}}) {
    const std::string reason = "Settings script '" + script +
                               "' could not be started. [errno:" + std::to_string(error) + " '" +
                               std::strerror(error) + "']\n";
    const std::string failing = while_failing("popen", nth, error) + "harbix ";
    const Outcome backup = device_.shell(failing + "-f /tmp/a.tar settings");
    EXPECT_EQ(backup.status, 2) << nth;
    EXPECT_EQ(backup.errors, told + "ERROR: " + reason) << nth;
    EXPECT_EQ(device_.shell(failing + "-s settings").status, 2) << nth;
    const Outcome restore = device_.shell(failing + "-r settings",
                                          TarBuilder()
                                              .file("/settings/.backup.metadata", "File: 1\n/a\n\n", 0700)
                                              .file("/settings/accounts/1000/settings/secret", "overwritten")
                                              .text());
    EXPECT_EQ(restore.status, error == ENOMEM ? 2 : 1) << nth;
    EXPECT_EQ(restore.errors, told + (error == ENOMEM ? "ERROR: " : "Error: ") + reason) << nth;
    EXPECT_EQ(device_.read("/accounts/1000/settings/secret"), "blacklisted") << nth;
    EXPECT_FALSE(device_.exists("/tmp/events")) << nth;
  }
}

TEST_F(Settings, LeaveStandardInputToTheCaller) {
  add_script("reader", "cat > /dev/null\n");
  const Outcome outcome = device_.shell(
      "printf '1\\n2\\n' | while read turn; do harbix -f /tmp/a.tar settings; echo $turn; done");
  EXPECT_EQ(outcome.output, "1\n2\n") << outcome.errors;
}

TEST_F(Settings, SizeCountsItemsAndTellsNobody) {
  device_.write("/accounts/1000/settings/a", std::string(600, 'a'));
  device_.link("/accounts/1000/settings/b", "a");
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "settings"}).status, 0);
  std::filesystem::remove(device_.outside("/tmp/events"));
  const Outcome outcome = device_.harbix({"-s", "settings"});
  EXPECT_EQ(outcome.status, 0);
  const auto archive_size = static_cast<long>(std::filesystem::file_size(device_.outside("/tmp/a.tar")));
  EXPECT_EQ(outcome.output, "bytesize=" + std::to_string(archive_size + 1024) + "\ncount=2\n");
  EXPECT_FALSE(device_.exists("/tmp/events"));
}

TEST_F(Settings, ReportTheSpaceTheyNeedWhenVerbose) {
  device_.write("/accounts/1000/settings/a", std::string(5000, 'a'));
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "settings"}).status, 0);
  const Outcome outcome = device_.harbix({"-v", "-r", "-f", "/tmp/a.tar", "settings"});
  EXPECT_THAT(outcome.errors, HasSubstr("Required space on disk: 5000 bytes, or 8192 real bytes or 2 blocks\n"
                                        "************* /settings/.backup.metadata ******************\n"));
  EXPECT_THAT(outcome.errors, testing::EndsWith("EOF reached\nEOF\n"));
}

TEST_F(Settings, OnAFullDiskAreNeverASuccess) {
  device_.write("/accounts/1000/settings/a", "a");
  const Outcome outcome = device_.harbix({"-f", "/dev/full", "settings"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.errors, "ERROR: Archive error: Write error: No space left on device\n");
}

}  // namespace
}  // namespace harbix::test
