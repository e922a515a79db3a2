#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/device.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

/// A device with live PPS objects, one settings script and whitelisted files.
class Settings : public testing::Test {
 protected:
  Settings() {
    add_script("lists",
               "case $1 in\n"
               "whitelist) echo whitelist /accounts/1000/settings; echo whitelist /etc/harbix-setting;;\n"
               "blacklist) echo blacklist /accounts/1000/settings/secret; echo blacklist /pps/hidden;;\n"
               "*) echo $1 >> /tmp/events;;\n"
               "esac\n");
    device_.make_folder("/accounts/1000/settings", 0755);
  }

  void add_script(const std::string& name, const std::string& text, mode_t mode = 0755) {
    device_.write(std::string(SETTINGS_SCRIPTS) + "/" + name, "#!/bin/bash\n" + text, mode);
    device_.own(std::string(SETTINGS_SCRIPTS) + "/" + name, "root", "root");
  }

  static std::string publish(const std::string& object, const std::string& lines) {
    return "mkdir -p $(dirname " + object + "); printf '" + lines + "' >> " + object + "\n";
  }

  std::vector<std::string> names(const std::string& archive = "/tmp/a.tar") {
    const Outcome outcome = device_.shell("tar -Ptf " + archive);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    std::vector<std::string> all;
    std::istringstream lines(outcome.output);
    for (std::string line; std::getline(lines, line);) all.push_back(line);
    return all;
  }

  std::string object(const std::string& path) { return device_.shell("cat " + path).output; }

  Device device_;
};

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

TEST_F(Settings, RoundTripByTheHundredsWithAwkwardNames) {
  const std::vector<std::string> odd{
      "colon:", "a: b",   " blank ", "caf\xc3\xa9", "cafe\xcc\x81", "\xff", "new\nline", "File: 12",
      "end:",   "a:b:c:", "tab\t",   "back\\slash", "quote'\"",     ": ",   "File:"};
  for (int i = 0; i < 300; ++i) {
    const std::string name =
        odd[static_cast<std::size_t>(i) % odd.size()] + std::to_string(i) + (i % 7 == 0 ? ":" : "");
    device_.write("/accounts/1000/settings/d" + std::to_string(i % 5) + "/" + name, name,
                  i % 3 == 0 ? 0600 : 0644);
  }
  for (const char* folder : {"d0", "d3"}) {
    for (const auto& [path, item] : device_.snapshot("/accounts/1000/settings")) {
      if (path.starts_with(folder)) device_.own("/accounts/1000/settings/" + path, "apps", "root");
    }
  }
  std::string publishing;
  for (int i = 0; i < 100; ++i)
    publishing += publish("/pps/services/s" + std::to_string(i), "value::" + std::to_string(i) + "\\n");
  ASSERT_EQ(device_.shell(publishing + "harbix -f /tmp/a.tar settings").status, 0);
  Snapshot before = device_.snapshot("/accounts/1000/settings");
  for (auto& [path, item] : before) {
    if (S_ISREG(item.mode)) item.group = 0;
  }
  ASSERT_EQ(device_
                .shell("find /accounts/1000/settings -type f -delete; for o in /pps/services/s*; do echo "
                       "value::lost > $o; done")
                .status,
            0);
  const Outcome restore = device_.harbix({"-r", "-f", "/tmp/a.tar", "settings"});
  EXPECT_EQ(restore.status, 0);
  EXPECT_THAT(restore.errors, Not(HasSubstr("WARNING")));
  Snapshot after = device_.snapshot("/accounts/1000/settings");
  EXPECT_EQ(difference(before, after), "");
  for (const int i : {0, 50, 99}) {
    EXPECT_THAT(object("/pps/services/s" + std::to_string(i)),
                HasSubstr("value::" + std::to_string(i) + "\n"));
  }
}

TEST_F(Settings, RefuseWhatThisDeviceWouldNotBackUp) {
  device_.write("/accounts/1000/settings/a/b", "old");
  device_.write("/tmp/victim/file", "untouched");
  const std::string manifest = [] {
    std::string text;
    for (int i = 0; i < 20; ++i) text += "File: 1\n/x" + std::to_string(i) + "\n";
    return text + "\n";
  }();
  const TarBuilder archive =
      TarBuilder()
          .file("/settings/.backup.metadata", manifest, 0700)
          .file("/settings/pps/services/unknown/object", "a::1\n")
          .file("/settings/tmp/victim/evil", "evil")
          .file("/settings/accounts/1000/settings/../../../tmp/victim/evil", "evil")
          .file("/settings/accounts/1000/settings/x/./y", "evil")
          .file("/settings/accounts/1000/settings//x", "evil")
          .file("/settings/accounts/1000/settings/x/..", "evil")
          .link("/settings/accounts/1000/settings/a/out", "/etc/passwd")
          .link("/settings/accounts/1000/settings/a/up", "../../../../etc/passwd")
          .link("/settings/accounts/1000/settings/a/sibling", "/accounts/1000/settings/ab")
          .link("/settings/accounts/1000/settings/a/inside", "/accounts/1000/settings/a/b")
          .link("/settings/accounts/1000/settings/a/through", "c/../b")
          .add(TarBuilder::HARD_LINK, "/settings/accounts/1000/settings/hard", "", 0660, "/etc/passwd")
          .add(TarBuilder::CHARACTER_DEVICE, "/settings/accounts/1000/settings/null", "", 0666)
          .file("/other/place", "evil")
          .file("/settings/accounts/1000/settings/secret", "blacklisted")
          .file("/settings/accounts/1000/settings/setid", "s", 06755);
  const Outcome outcome = device_.harbix({"-r", "settings"}, archive.text());
  EXPECT_EQ(outcome.status, 1);
  for (const char* line :
       {"Skip: /settings/pps/services/unknown/object\n", "Skip: /settings/tmp/victim/evil\n",
        "Path /accounts/1000/settings/../../../tmp/victim/evil failed verification for restore\n",
        "Path /accounts/1000/settings/x/./y failed verification for restore\n",
        "Path /accounts/1000/settings//x failed verification for restore\n",
        "Path /accounts/1000/settings/x/.. failed verification for restore\n",
        "Skip: /settings/accounts/1000/settings/a/out\n", "Skip: /settings/accounts/1000/settings/a/up\n",
        "Skip: /settings/accounts/1000/settings/a/sibling\n",
        "Restore: /settings/accounts/1000/settings/a/inside\n",
        "Skip: /settings/accounts/1000/settings/a/through\n", "Skip: /settings/accounts/1000/settings/hard\n",
        "Skip: /settings/accounts/1000/settings/null\n", "Skip: /settings/accounts/1000/settings/secret\n",
        // NOLINTNEXTLINE(bugprone-suspicious-missing-comma): one line of the program, broken to fit here
        "WARNING: File /other/place could not be restored due to Path '/other/place' is not subdirectory of "
        "'/settings'\n",
        "Restore: /settings/accounts/1000/settings/setid\n"}) {
    EXPECT_THAT(outcome.errors, HasSubstr(line));
  }
  EXPECT_FALSE(device_.exists("/tmp/victim/evil"));
  std::vector<std::string> left;
  for (const auto& [path, item] : device_.snapshot("/accounts/1000/settings")) left.push_back(path);
  // The entries belong to root, who may write here.
  EXPECT_THAT(left, ElementsAre("a", "a/b", "a/inside", "setid"));
  EXPECT_EQ(device_.snapshot("/accounts/1000/settings").at("setid").mode, S_IFREG | 0755U);
}

TEST_F(Settings, EndAsTheArchiveDoes) {
  struct Row {
    std::string archive;
    int status;
    std::string errors;
  };
  const std::string one_record = "File: 1\n/a\n\n";
  const std::string two_records = "File: 1\n/a\nFile: 1\n/b\n\n";
  const std::string target = "/settings/accounts/1000/settings/";
  const auto start = [](const std::string& manifest) {
    return TarBuilder().file("/settings/.backup.metadata", manifest, 0700);
  };
  const std::string restored = "Restore: " + target + "a\n";
  const std::string both_restored = restored + "Restore: " + target + "c\n";
  const std::string extra_restored = restored + "Restore: " + target + "extra\n";
  for (const Row& row : {
           Row{TarBuilder().text(), 0, ""},
           Row{start(two_records).file(target + "a", "a").text(), 0, restored},
           Row{start(two_records)
                   .file(target + "a", "a")
                   .file("/settings/.backup.metadata", one_record, 0700)
                   .file(target + "c", "c")
                   .text(),
               0, both_restored},
           Row{start(one_record).file(target + "a", "a").file(target + "extra", "e").text(), 0,
               extra_restored},
           Row{TarBuilder().file(target + "a", "a").text(), 1, "Error: Not meta file: " + target + "a\n"},
           Row{TarBuilder().file("top", "a").text(), 1, "Error: Error pathname\n"},
           Row{start(two_records).file(target + "a", "a").truncated_text(), 1,
               restored + "Error: Could not read next archive header\n"},
       }) {
    std::filesystem::remove(device_.outside("/tmp/events"));
    const Outcome outcome = device_.harbix({"-r", "settings"}, row.archive);
    EXPECT_EQ(outcome.status, row.status) << row.errors;
    EXPECT_EQ(outcome.errors, row.errors);
    EXPECT_EQ(device_.read("/tmp/events"), "restore_start\nrestore_end\n") << row.errors;
  }
}

TEST_F(Settings, ComeBackWhateverTheirNamesAre) {
  // In the list at the front of the package these names look like records of their own, or swallow the next.
  for (const char* name : {"1\n", "2:\n", "3\nFile:::\n\nFile", "4: File", "5\n1:", "6:\n:\n",
                           "7\nFile:\nFile:\n: ", "8:\na", "b\nFile: 3\n/x"})
    device_.write("/accounts/1000/settings/" + std::string(name), name);
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "settings"}).status, 0);
  Snapshot before = device_.snapshot("/accounts/1000/settings");
  for (auto& [path, item] : before) {
    if (S_ISREG(item.mode)) item.group = 0;
  }
  ASSERT_EQ(device_.shell("find /accounts/1000/settings -type f -delete").status, 0);
  const Outcome restore = device_.harbix({"-r", "-f", "/tmp/a.tar", "settings"});
  EXPECT_EQ(restore.status, 0);
  EXPECT_THAT(restore.errors, Not(HasSubstr("Not meta file")));
  EXPECT_EQ(difference(before, device_.snapshot("/accounts/1000/settings")), "");
}

TEST_F(Settings, AreNotBackedUpOrRestoredWhereAScriptCannotBeStarted) {
  device_.write("/accounts/1000/settings/secret", "blacklisted");
  const std::string script = std::string(SETTINGS_SCRIPTS) + "/lists";
  const std::string told = "Could not popen b&r settings script " + script + "\n";
  const std::string reason =
      "Settings script '" + script + "' could not be started. [errno:12 'Cannot allocate memory']\n";
  for (const char* nth : {"1", "2"}) {
    const std::string failing =
        "export ASAN_OPTIONS=verify_asan_link_order=0 HARBIX_FAIL_CALL=popen HARBIX_FAIL_ERRNO=12 "
        "HARBIX_FAIL_NTH=" +
        std::string(nth) + " LD_PRELOAD=/opt/harbix/bin/tests/libfailing_calls.so; exec harbix ";
    const Outcome backup = device_.shell(failing + "-f /tmp/a.tar settings");
    EXPECT_EQ(backup.status, 2) << nth;
    EXPECT_EQ(backup.errors, told + "ERROR: " + reason) << nth;
    EXPECT_EQ(device_.shell(failing + "-s settings").status, 2) << nth;
    const Outcome restore = device_.shell(failing + "-r settings",
                                          TarBuilder()
                                              .file("/settings/.backup.metadata", "File: 1\n/a\n\n", 0700)
                                              .file("/settings/accounts/1000/settings/secret", "overwritten")
                                              .text());
    EXPECT_EQ(restore.status, 1) << nth;
    EXPECT_EQ(restore.errors, told + "Error: " + reason) << nth;
    EXPECT_EQ(device_.read("/accounts/1000/settings/secret"), "blacklisted") << nth;
    EXPECT_FALSE(device_.exists("/tmp/events")) << nth;
  }
}

TEST_F(Settings, WithAChangedByteInALongNameAreNeverASuccess) {
  const std::string name = "/accounts/1000/settings/" + std::string(120, 'f');
  device_.write(name, "text");
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "settings"}).status, 0);
  std::string bytes = device_.read("/tmp/a.tar");
  EXPECT_EQ(device_.harbix({"-r", "settings"}, bytes).status, 0);
  const std::size_t at = bytes.rfind("path=/settings" + name);
  ASSERT_NE(at, std::string::npos);
  bytes[at + std::string("path=/settings/").size()] = 'b';
  const Outcome outcome = device_.harbix({"-r", "settings"}, bytes);
  EXPECT_EQ(outcome.status, 1);
  const std::string changed = "/settings/b" + name.substr(2);
  EXPECT_EQ(outcome.errors,
            "Skip: " + changed + "\nWarning: /settings: holds items under names that it does not list\n");
}

TEST_F(Settings, LeaveStandardInputToTheCaller) {
  add_script("reader", "cat > /dev/null\n");
  const Outcome outcome = device_.shell(
      "printf '1\\n2\\n' | while read turn; do harbix -f /tmp/a.tar settings; echo $turn; done");
  EXPECT_EQ(outcome.output, "1\n2\n") << outcome.errors;
}

TEST_F(Settings, FindTheirPartInAnArchiveThatHoldsMore) {
  device_.write(std::string(SHARED) + "/Music/a.mp3", "music");
  device_.write("/accounts/1000/settings/a", "a");
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "settings_media"}).status, 0);
  EXPECT_EQ(names().front(), "/media/Music/.backup.metadata");

  device_.write("/accounts/1000/settings/a", "changed");
  device_.write(std::string(SHARED) + "/Music/a.mp3", "changed");
  ASSERT_EQ(device_.harbix({"-r", "-f", "/tmp/a.tar", "settings"}).status, 0);
  EXPECT_EQ(device_.read("/accounts/1000/settings/a"), "a");
  EXPECT_EQ(device_.read(std::string(SHARED) + "/Music/a.mp3"), "changed");

  device_.write("/accounts/1000/settings/a", "changed");
  ASSERT_EQ(device_.harbix({"-r", "media_settings"}, device_.read("/tmp/a.tar")).status, 0);
  EXPECT_EQ(device_.read("/accounts/1000/settings/a"), "a");
  EXPECT_EQ(device_.read(std::string(SHARED) + "/Music/a.mp3"), "music");
}

TEST_F(Settings, ReportTheSpaceTheyNeedWhenVerbose) {
  device_.write("/accounts/1000/settings/a", std::string(5000, 'a'));
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "settings"}).status, 0);
  const Outcome outcome = device_.harbix({"-v", "-r", "-f", "/tmp/a.tar", "settings"});
  EXPECT_THAT(outcome.errors, HasSubstr("Required space on disk: 5000 bytes, or 8192 real bytes or 2 blocks\n"
                                        "************* /settings/.backup.metadata ******************\n"));
  EXPECT_THAT(outcome.errors, testing::EndsWith("EOF reached\nEOF\n"));
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

TEST_F(Settings, OnAFullDiskAreNeverASuccess) {
  device_.write("/accounts/1000/settings/a", "a");
  const Outcome outcome = device_.harbix({"-f", "/dev/full", "settings"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.errors, "ERROR: Archive error: Write error: No space left on device\n");
}

}  // namespace
}  // namespace harbix::test
