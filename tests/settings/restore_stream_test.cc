#include <filesystem>
#include <string>

#include "base/flags.h"
#include "tests/settings/restore_run.h"
#include "tests/settings/settings_device.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

/// How a restore ends, with good entries in the archive and with bad ones.
class SettingsRestoreStream : public SettingsDevice {
 protected:
  [[nodiscard]] ::testing::AssertionResult on_the_whitelisting_device(
      const std::function<void()>& body) const {
    return on_the_device([&body] {
      put_script("1", naming({"/w"}));
      std::filesystem::create_directory("/w");
      put_object("/pps/x", "old\n");
      body();
      // However the restore has ended.
      EXPECT_EQ(events_in_the_end("restore_start\nrestore_end\n"), "restore_start\nrestore_end\n");
      EXPECT_EQ(::geteuid(), 0U);
    });
  }
  static void expect_error(const Restored& restored, const std::string& message) {
    EXPECT_EQ(restored.status, 1);
    EXPECT_TRUE(restored.errors.ends_with("Error: " + message + "\n")) << restored.errors;
    ASSERT_FALSE(restored.log.empty());
    EXPECT_EQ(restored.log.back(), "2 ERROR: " + message);
  }
};

TEST_F(SettingsRestoreStream, EndsNormallyWithoutAnyPackage) {
  EXPECT_TRUE(on_the_whitelisting_device([] {
    const Restored restored = restore_settings(TarBuilder().text());
    EXPECT_EQ(restored.status, 0);
    EXPECT_EQ(restored.errors, "");
  }));
}

TEST_F(SettingsRestoreStream, EndsNormallyWhenEntriesAreFewerThanRecords) {
  EXPECT_TRUE(on_the_whitelisting_device([] {
    const Restored restored = restore_settings(package(5).file("/settings/w/a", "a").text());
    EXPECT_EQ(restored.status, 0);
    EXPECT_EQ(restored.errors, "Restore: /settings/w/a\n");
    EXPECT_TRUE((Tree{file("a", "a", 0660)}).matches("/w"));
  }));
}

TEST_F(SettingsRestoreStream, RestoresEntriesBeyondTheRecords) {
  EXPECT_TRUE(on_the_whitelisting_device([] {
    TarBuilder archive = package(1).file("/settings/w/a", "a").file("/settings/w/b", "b");
    add_package(archive, 0).file("/settings/w/c", "c");
    const Restored restored = restore_settings(archive.text());
    EXPECT_EQ(restored.status, 0);
    EXPECT_EQ(restored.errors, "Restore: /settings/w/a\nRestore: /settings/w/b\nRestore: /settings/w/c\n");
    EXPECT_TRUE((Tree{file("a", "a", 0660), file("b", "b", 0660), file("c", "c", 0660)}).matches("/w"));
  }));
}

TEST_F(SettingsRestoreStream, NeedsAPackageToBeginWith) {
  EXPECT_TRUE(on_the_whitelisting_device([] {
    expect_error(restore_settings(TarBuilder().file("/settings/w/a", "a").text()),
                 "Not meta file: /settings/w/a");
    EXPECT_TRUE(Tree{}.matches("/w"));
  }));
  EXPECT_TRUE(on_the_whitelisting_device(
      [] { expect_error(restore_settings(TarBuilder().file("top", "a").text()), "Error pathname"); }));
}

TEST_F(SettingsRestoreStream, GoesThroughAllPackages) {
  EXPECT_TRUE(on_the_whitelisting_device([] {
    harbix::verbose = true;
    // The first has fewer entries than records: it ends where the next one begins.
    TarBuilder archive = package(3).file("/settings/w/a", "a");
    add_package(archive, 2).file("/settings/w/b", "b").file("/settings/w/c", "c");
    add_package(archive, 0);
    add_package(archive, 1).file("/settings/w/a", "again");
    const Restored restored = restore_settings(archive.text());
    EXPECT_EQ(restored.status, 0);
    EXPECT_TRUE((Tree{file("a", "again", 0660), file("b", "b", 0660), file("c", "c", 0660)}).matches("/w"));
    const std::string name = "************* /settings/.backup.metadata ******************\n";
    EXPECT_TRUE(restored.errors.ends_with(
        "Required space on disk: 15 bytes, or 12288 real bytes or 3 blocks\n" + name +
        "Restore: /settings/w/a\nRequired space on disk: 10 bytes, or 8192 real bytes or 2 blocks\n" + name +
        "Restore: /settings/w/b\nRestore: /settings/w/c\n"
        "Required space on disk: 0 bytes, or 0 real bytes or 0 blocks\n" +
        name + "Required space on disk: 5 bytes, or 4096 real bytes or 1 blocks\n" + name +
        "Restore: /settings/w/a\nEOF reached\nEOF\n"))
        << restored.errors;
  }));
}

TEST_F(SettingsRestoreStream, GoesOnBehindAWarningWithTheNextPackage) {
  EXPECT_TRUE(on_the_whitelisting_device([] {
    std::filesystem::remove("/pps/x");
    TarBuilder archive = package(1).file("/settings/pps/x", "new");
    add_package(archive, 1).file("/settings/w/b", "b");
    const Restored restored = restore_settings(archive.text());
    EXPECT_EQ(restored.status, 1);
    EXPECT_TRUE((Tree{file("b", "b", 0660)}).matches("/w"));
  }));
}

TEST_F(SettingsRestoreStream, EndsWithAnErrorAtADamagedHeader) {
  EXPECT_TRUE(on_the_whitelisting_device([] {
    expect_error(
        restore_settings(package(2).file("/settings/w/a", "a").truncated_text() + std::string(4096, 'x')),
        "Could not read next archive header");
    EXPECT_TRUE((Tree{file("a", "a", 0660)}).matches("/w"));
  }));
}

TEST_F(SettingsRestoreStream, EndsWithAnErrorWhereTheArchiveIsCut) {
  const std::string whole = package(3)
                                .file("/settings/w/a", "a")
                                .file("/settings/pps/x", "new\n")
                                .file("/settings/w/b", "b")
                                .text();
  for (std::size_t size = 512; size + 1024 <= whole.size(); size += 512) {
    EXPECT_TRUE(on_the_whitelisting_device([&] {
      const Restored restored = restore_settings(whole.substr(0, size));
      EXPECT_EQ(restored.status, 1) << size << restored.errors;
      EXPECT_NE(std::string::npos, restored.errors.find("Error: ")) << size << restored.errors;
    })) << size;
  }
}

TEST_F(SettingsRestoreStream, EndsWithAnErrorInTheMiddleOfAnEntry) {
  struct Row {
    std::string name, warning;
  };
  for (const Row& row :
       {Row{"/settings/pps/x",
            "Error: Truncated tar archive\nWARNING: File /settings/pps/x could not be restored "
            "due to Error restore_pps\n"},
        Row{"/settings/w/a",
            "WARNING: File /settings/w/a could not be restored due to Extracting data for "
            "'/w/a' failed ('%s')\n"}}) {
    EXPECT_TRUE(on_the_whitelisting_device([&] {
      const TarBuilder archive = package(1).add(TarBuilder::FILE, row.name, "abc", 0660, "", 5000);
      const Restored restored = restore_settings(archive.truncated_text());
      EXPECT_EQ(restored.status, 1);
      EXPECT_TRUE(restored.errors.starts_with("Restore: " + row.name + "\n" + row.warning))
          << restored.errors;
      EXPECT_NE(std::string::npos, restored.errors.find("\nError: Could not read next archive header\n"))
          << restored.errors;
    }));
  }
}

TEST_F(SettingsRestoreStream, EndsWithAnErrorWhereTheSettingsCannotBeListed) {
  EXPECT_TRUE(on_the_whitelisting_device([] {
    std::filesystem::remove_all("/var/pps");
    const Restored restored = restore_settings(package(1).file("/settings/w/a", "a").text());
    EXPECT_EQ(restored.status, 1);
    EXPECT_TRUE(restored.errors.starts_with("Error: ")) << restored.errors;
    EXPECT_NE(std::string::npos, restored.errors.find("'/var/pps'")) << restored.errors;
    EXPECT_TRUE(Tree{}.matches("/w"));
  }));
}

}  // namespace
}  // namespace harbix::test
