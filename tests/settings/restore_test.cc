#include "settings/restore.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "base/flags.h"
#include "tests/settings/restore_run.h"
#include "tests/settings/settings_device.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

constexpr unsigned OWNER = 4001;

/// A device whose whitelist names "/w", a folder that an ordinary user owns, and that has one object.
class SettingsRestore : public SettingsDevice {
 protected:
  [[nodiscard]] ::testing::AssertionResult on_the_whitelisting_device(
      const std::function<void()>& body) const {
    return on_the_device([&body] {
      put_script("1", naming({"/w"}, {"/w/black"}));
      std::filesystem::create_directory("/w");
      ASSERT_EQ(::chown("/w", OWNER, 100), 0);
      put_object("/pps/services/x", "old::1\n");
      body();
    });
  }
};

TEST_F(SettingsRestore, BringsBackObjectsAndFiles) {
  EXPECT_TRUE(on_the_whitelisting_device([] {
    const Restored restored = restore_settings(package(4)
                                                   .file("/settings/pps/services/x", "a::1\n[n]b::1\n-c\n")
                                                   .owner(OWNER)
                                                   .folder("/settings/w/d", 0750)
                                                   .file("/settings/w/d/f", "-text\n", 0604)
                                                   .file("/settings/w/g", "", 0777)
                                                   .text());
    EXPECT_EQ(restored.status, 0);
    EXPECT_EQ(restored.errors,
              "Restore: /settings/pps/services/x\nRestore: /settings/w/d\nRestore: /settings/w/d/f\n"
              "Restore: /settings/w/g\n");
    EXPECT_TRUE(restored.log.empty());
    EXPECT_EQ(read_file("/pps/services/x"), "old::1\na::1\n");
    const Tree expected{dir("d", {file("f", "-text\n", 0604).owned_by(OWNER, 0)}, 0750).owned_by(OWNER, 0),
                        file("g", "", 0777).owned_by(OWNER, 0)};
    EXPECT_TRUE(expected.matches("/w"));
    EXPECT_EQ(events_in_the_end("restore_start\nrestore_end\n"), "restore_start\nrestore_end\n");
    EXPECT_EQ(::geteuid(), 0U);
    EXPECT_EQ(::getegid(), 0U);
  }));
}

TEST_F(SettingsRestore, ActsAsTheOwnerOfEachEntry) {
  EXPECT_TRUE(on_the_whitelisting_device([] {
    put("/w/private/kept", "old");
    ASSERT_EQ(::chmod("/w/private", 0700), 0);
    const Restored restored = restore_settings(package(4)
                                                   .owner(OWNER)
                                                   .file("/settings/w/a", "a")
                                                   .owner(4002)
                                                   .file("/settings/w/b", "b")
                                                   .owner(OWNER)
                                                   .file("/settings/w/private/kept", "new")
                                                   .owner(0)
                                                   .file("/settings/w/c", "c")
                                                   .text());
    EXPECT_EQ(restored.status, 1);
    const Tree expected{file("a", "a", 0660).owned_by(OWNER, 0), file("c", "c", 0660).owned_by(0, 0),
                        dir("private", {file("kept", "old")}, 0700)};
    EXPECT_TRUE(expected.matches("/w"));
    EXPECT_NE(std::string::npos, restored.errors.find("Restore: /settings/w/b\nWarning: "))
        << restored.errors;
    EXPECT_NE(std::string::npos, restored.errors.find("Restore: /settings/w/private/kept\nWarning: "))
        << restored.errors;
  }));
}

TEST_F(SettingsRestore, SkipsWhatTheDeviceDoesNotBackUp) {
  EXPECT_TRUE(on_the_whitelisting_device([] {
    put("/pps/not_stored", "old");
    put("/etc/passwd", "root");
    put("/w/folder/x", "x");
    put_object("/pps/control", "old");
    TarBuilder archive = package(14);
    std::string expected;
    for (const char* name :
         {"/settings/pps/unknown", "/settings/pps/not_stored", "/settings/pps/services/x/y", "/settings/pps",
          "/settings/pps/control", "/settings/etc/passwd", "/settings/other", "/settings/w/black",
          "/settings/w/black2/x", "/settings/", "/settings", "/settings/v/w", "/settings/w"}) {
      // A name that ends in a separator is a folder's, which has no data.
      archive.file(name, std::string(name).ends_with('/') ? "" : "new");
      expected += "Skip: " + std::string(name == std::string("/settings/") ? "/settings" : name) + "\n";
    }
    archive.file("/settings/w/last", "last");
    const Restored restored = restore_settings(archive.text());
    EXPECT_EQ(restored.status, 0);
    EXPECT_EQ(restored.errors, expected + "Restore: /settings/w/last\n");
    EXPECT_EQ(read_file("/pps/not_stored"), "old");
    EXPECT_EQ(read_file("/pps/control"), "old");
    EXPECT_EQ(read_file("/etc/passwd"), "root");
    EXPECT_FALSE(std::filesystem::exists("/pps/unknown"));
    const Tree tree{file("last", "last", 0660), dir("folder", {file("x", "x")})};
    EXPECT_TRUE(tree.matches("/w"));
  }));
}

TEST_F(SettingsRestore, RefusesTricksInPaths) {
  EXPECT_TRUE(on_the_whitelisting_device([] {
    TarBuilder archive = package(7);
    std::string expected;
    for (const char* target : {"/w/../etc/x", "/w/a/../../etc/x", "/w/./x", "/w//x", "/w/x/..", "/w/x/."}) {
      archive.file("/settings" + std::string(target), "new");
      expected +=
          "Path " + std::string(target) + " failed verification for restore\nSkip: /settings" + target + "\n";
    }
    archive.file("/settings/w/.../x", "fine");
    const Restored restored = restore_settings(archive.text());
    EXPECT_EQ(restored.errors, expected + "Restore: /settings/w/.../x\n");
    EXPECT_EQ(restored.status, 0);
    EXPECT_FALSE(std::filesystem::exists("/etc"));
    EXPECT_TRUE((Tree{dir("...", {file("x", "fine", 0660)}, ANY_MODE)}).matches("/w"));
  }));
}

TEST_F(SettingsRestore, WarnsOfOneEntryAndGoesOn) {
  EXPECT_TRUE(on_the_whitelisting_device([] {
    put("/var/pps/gone");
    put("/var/pps/full");
    const Restored restored = restore_settings(package(4)
                                                   .file("/settings/pps/gone", "new")
                                                   .file("/media/x", "new")
                                                   .file("/settingsX/w/x", "new")
                                                   .file("/settings/w/a", "a")
                                                   .text());
    EXPECT_EQ(restored.status, 1);
    EXPECT_EQ(
        restored.errors,
        "Restore: /settings/pps/gone\nWARNING: File /settings/pps/gone could not be restored due to "
        "restore_pps failed [errno:2 'No such file or directory']\n"
        "WARNING: File /media/x could not be restored due to Path '/media/x' is not subdirectory of "
        "'/settings'\n"
        "WARNING: File /settingsX/w/x could not be restored due to Path '/settingsX/w/x' is not subdirectory "
        "of '/settings'\n"
        "Restore: /settings/w/a\n");
    EXPECT_TRUE((Tree{file("a", "a", 0660)}).matches("/w"));
  }));
}

TEST_F(SettingsRestore, NeverMakesSetIdOrStickyFiles) {
  EXPECT_TRUE(on_the_whitelisting_device([] {
    put("/w/old", "old");
    const Restored restored = restore_settings(package(4)
                                                   .owner(OWNER)
                                                   .file("/settings/w/f", "f", 07755)
                                                   .folder("/settings/w/d", 07750)
                                                   .owner(0)
                                                   .file("/settings/w/root", "r", 06711)
                                                   .file("/settings/w/old", "new", 04644)
                                                   .text());
    EXPECT_EQ(restored.status, 0);
    const Tree expected{file("f", "f", 0755), dir("d", {}, 0750), file("root", "r", 0711),
                        file("old", "new", 0644)};
    EXPECT_TRUE(expected.matches("/w"));
  }));
}

TEST_F(SettingsRestore, SkipsHardLinksDevicesAndFifos) {
  EXPECT_TRUE(on_the_whitelisting_device([] {
    put("/secret", "secret");
    const Restored restored =
        restore_settings(package(6)
                             .add(TarBuilder::HARD_LINK, "/settings/w/hard", "", 0666, "/secret")
                             .add(TarBuilder::CHARACTER_DEVICE, "/settings/w/character")
                             .add(TarBuilder::BLOCK_DEVICE, "/settings/w/block")
                             .add(TarBuilder::FIFO, "/settings/w/fifo")
                             .add(TarBuilder::HARD_LINK, "/settings/pps/services/x", "", 0666, "/secret")
                             .file("/settings/w/a", "a")
                             .text());
    EXPECT_EQ(restored.status, 0);
    EXPECT_EQ(restored.errors,
              "Skip: /settings/w/hard\nSkip: /settings/w/character\nSkip: /settings/w/block\nSkip: "
              "/settings/w/fifo\nSkip: /settings/pps/services/x\nRestore: /settings/w/a\n");
    EXPECT_TRUE((Tree{file("a", "a", 0660)}).matches("/w"));
    struct ::stat record {};
    ASSERT_EQ(::stat("/secret", &record), 0);
    EXPECT_EQ(record.st_nlink, 1U);
  }));
}

TEST_F(SettingsRestore, ReportsWithMuchOutput) {
  EXPECT_TRUE(on_the_whitelisting_device([] {
    harbix::verbose = true;
    const Restored restored = restore_settings(package(1).file("/settings/w/a", "a").text());
    EXPECT_EQ(restored.status, 0);
    EXPECT_TRUE(
        restored.errors.ends_with("Required space on disk: 5 bytes, or 4096 real bytes or 1 blocks\n"
                                  "************* /settings/.backup.metadata ******************\nRestore: "
                                  "/settings/w/a\nEOF reached\nEOF\n"))
        << restored.errors;
  }));
}

TEST_F(SettingsRestore, AsksForTheListsBeforeItTellsOfItsStart) {
  EXPECT_TRUE(on_the_device([] {
    put_script("1", "echo $1 >> /events\n");
    EXPECT_EQ(restore_settings(package(0).text()).status, 0);
    const std::string events = events_in_the_end("");
    EXPECT_TRUE(events.starts_with("whitelist\nblacklist\nrestore_start\nwhitelist\nblacklist\n")) << events;
    const std::string all =
        "whitelist\nblacklist\nrestore_start\nwhitelist\nblacklist\nwhitelist\nblacklist\nrestore_end\n";
    EXPECT_EQ(events_in_the_end(all), all);
  }));
}

}  // namespace
}  // namespace harbix::test
