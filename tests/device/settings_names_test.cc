// Settings by their names: what an archive calls them, and which of these a restore takes.

#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/device/settings_device.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

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

TEST_F(Settings, FailWhereMoreFollowsTheEndMark) {
  const std::string target = "/settings/accounts/1000/settings/";
  const TarBuilder first =
      TarBuilder().file("/settings/.backup.metadata", "File: 1\n/a\n\n", 0700).file(target + "a", "a");
  device_.write("/tmp/a.tar", first.text() + TarBuilder().file(target + "b", "b").text());
  const Outcome outcome = device_.harbix({"-r", "-f", "/tmp/a.tar", "settings"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors,
            "Restore: " + target + "a\nError: Something follows the end mark, which is not read\n");
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

}  // namespace
}  // namespace harbix::test
