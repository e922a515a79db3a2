#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device/application_device.h"
#include "device/crafted_package.h"

namespace {

using test::ApplicationDevice;
using test::archive_of;
using test::CraftedPackage;
using test::InstalledApplication;
using test::Outcome;
using test::Snapshot;
using test::TarBuilder;
using testing::HasSubstr;

constexpr char SECRET[] = "only root may read this";
constexpr char VAULT[] = "/etc/vault";
constexpr char SETTINGS[] = "/accounts/1000/settings";
constexpr char NAVIGATOR[] = "/accounts/1000/appdata/sys.navigator";

/// When an owner acts between two calls of the program.
struct Moment {
  const char* name;  ///< as acting_calls names them
  std::string path;
  int nth = 1;
};

/// Lets the owner of a folder swap it for a link while the program works in it. The link leads to a folder
/// that the owner cannot enter, but the program can; it holds a file of the same name.
class Race : public testing::Test {
 protected:
  Race() {
    lock_vault("root");
    device_.install(loaded_);
    device_.make_data(loaded_);
  }

  /// Makes the place that the link leads to, for the user as whom the program works.
  void lock_vault(const std::string& user) {
    device_.make_owned_folder(VAULT, 0700, 0, 0);
    device_.write_owned(file_in_vault(), SECRET, 0600, device_.user(user), 0);
    device_.own(VAULT, user, "root");
  }

  static std::string file_in_vault() { return std::string(VAULT) + "/file"; }
  static std::string shared(const std::string& path) { return std::string(test::SHARED) + "/" + path; }

  static std::string swap_for_link(const std::string& folder) {
    return "mv " + folder + " " + folder + ".aside && ln -s " + VAULT + " " + folder;
  }

  /// Runs harbix while an owner does `command` at a moment, and holds the whole device, but for what lies
  /// below `own`, against what it was.
  Outcome race(const Moment& moment, const std::string& command, const std::vector<std::string>& own,
               const std::string& arguments, const std::string& input = "") {
    std::vector<std::string> changing{ARCHIVE, "/tmp/acted"};
    changing.insert(changing.end(), own.begin(), own.end());
    const Snapshot before = device_.everything_but(changing);
    // The sanitizers want to come first, and do as well in second place.
    Outcome outcome = device_.shell(
        "export ASAN_OPTIONS=verify_asan_link_order=0 HARBIX_ACT_AT=" + std::string(moment.name) +
            " HARBIX_ACT_PATH='" + moment.path + "' HARBIX_ACT_NTH=" + std::to_string(moment.nth) +
            " HARBIX_ACT_COMMAND='" + command +
            " && touch /tmp/acted'\n"
            "LD_PRELOAD=/opt/harbix/bin/tests/libacting_calls.so exec harbix " +
            arguments,
        input);
    EXPECT_TRUE(device_.exists("/tmp/acted")) << "the moment did not come";
    EXPECT_EQ(difference(before, device_.everything_but(changing)), "");
    return outcome;
  }

  [[nodiscard]] bool is_in_archive(const std::string& text) const {
    return device_.read(ARCHIVE).find(text) != std::string::npos;
  }

  static constexpr char ARCHIVE[] = "/tmp/a.tar";

  ApplicationDevice device_;
  InstalledApplication bought_ = test::bought_application();
  InstalledApplication loaded_ = test::loaded_application();
};

TEST_F(Race, PutsNoStrangersFileIntoABackupOfMedia) {
  device_.write(shared("Music/sub/file"), "music");
  const Outcome outcome = race({"closed", "Music/sub"}, swap_for_link(shared("Music/sub")), {test::SHARED},
                               "-f /tmp/a.tar media");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "Error: Error opening: Music/sub\nError: Error opening: Music/sub/file\n");
  EXPECT_FALSE(is_in_archive(SECRET));
}

TEST_F(Race, PutsNoStrangersFileIntoABackupOfApplicationData) {
  device_.add_data(loaded_, "data/sub/file", "data");
  const Outcome outcome = race({"closed", "data/sub"}, swap_for_link(loaded_.data() + "/data/sub"),
                               {loaded_.data()}, "-f /tmp/a.tar app");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.errors, HasSubstr("Error opening: " + loaded_.data() + "/data/sub/file\n"));
  EXPECT_FALSE(is_in_archive(SECRET));
}

/// Settings of two owners: a whitelisted folder.
class SettingsRace : public Race {
 protected:
  SettingsRace() {
    device_.make_owned_folder("/base/scripts/backup_and_restore/settings", 0755, 0, 0);
    device_.write_owned("/base/scripts/backup_and_restore/settings/lists",
                        "#!/bin/sh\n[ $1 != whitelist ] || echo whitelist " + std::string(SETTINGS) + "\n",
                        0755, 0, 0);
    device_.write(std::string(SETTINGS) + "/sub/file", "setting");
  }
};

TEST_F(SettingsRace, PutsNoStrangersFileIntoABackup) {
  const Outcome outcome = race({"closed", "settings/sub"}, swap_for_link(std::string(SETTINGS) + "/sub"),
                               {SETTINGS}, "-f /tmp/a.tar settings");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "");
  EXPECT_FALSE(is_in_archive(SECRET));
}

TEST_F(SettingsRace, WritesNoStrangersFile) {
  const std::string target = "/settings" + std::string(SETTINGS) + "/sub/";
  const std::string archive = TarBuilder()
                                  .file("/settings/.backup.metadata", "File: 1\n/a\nFile: 1\n/b\n\n", 0700)
                                  .file(target + "first", "1")
                                  .file(target + "second", "2")
                                  .text();
  const Outcome outcome = race({"open", "sub/second"}, swap_for_link(std::string(SETTINGS) + "/sub"),
                               {SETTINGS}, "-r settings", archive);
  EXPECT_EQ(outcome.status, 0);
  // It goes where it belonged when its folder was opened.
  EXPECT_EQ(device_.read(std::string(SETTINGS) + "/sub.aside/second"), "2");
}

TEST_F(Race, WritesNoStrangersMedia) {
  lock_vault("media");
  const std::string archive =
      TarBuilder().file("/media/M/sub/first", "1").file("/media/M/sub/second", "2").text();
  const Outcome outcome =
      race({"open", "sub/second"}, swap_for_link(shared("M/sub")), {test::SHARED}, "-r media", archive);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "");
  EXPECT_EQ(device_.read(shared("M/sub.aside/second")), "2");
}

TEST_F(Race, SaysThatAFolderOfMediaBecameALink) {
  lock_vault("media");
  const std::string archive = TarBuilder()
                                  .file("/media/M/sub/first", "1")
                                  .file("/media/M/other/between", "2")
                                  .file("/media/M/sub/file", "3")
                                  .text();
  const Outcome outcome =
      race({"open", "other/between"}, swap_for_link(shared("M/sub")), {test::SHARED}, "-r media", archive);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.errors, HasSubstr("/M/sub/file: Not a directory\n"));
}

TEST_F(Race, WritesNoStrangersApplicationData) {
  lock_vault("apps");
  const std::string archive = archive_of({CraftedPackage::data(loaded_.id)
                                              .folder("data")
                                              .folder("data/sub")
                                              .file("data/sub/first", "1")
                                              .file("data/sub/second", "2")});
  const Outcome outcome = race({"open", "sub/second"}, swap_for_link(loaded_.data() + "/data/sub"),
                               {loaded_.data()}, "-r app", archive);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(device_.read(loaded_.data() + "/data/sub.aside/second"), "2");
}

TEST_F(Race, RemovesNoStrangersFileWithTheMedia) {
  lock_vault("media");
  device_.write(shared("Music/sub/file"), "music");
  const Outcome outcome = race({"listed", "Music/sub/file"}, swap_for_link(shared("Music/sub")),
                               {test::SHARED}, "-r media", TarBuilder().text());
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "");
}

TEST_F(Race, RemovesNoStrangersFileWithOldApplicationData) {
  device_.add_data(loaded_, "data/sub/file", "data");
  const std::string archive =
      archive_of({CraftedPackage::data(loaded_.id).folder("data").file("data/new", "new")});
  const Outcome outcome = race({"closed", "data/sub"}, swap_for_link(loaded_.data() + "/data/sub"),
                               {loaded_.data()}, "-r app", archive);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(device_.read(loaded_.data() + "/data/new"), "new");
}

TEST_F(Race, RemovesNoStrangersFileWithOldNavigatorData) {
  lock_vault("apps");
  device_.make_owned_folder(std::string(NAVIGATOR) + "/data/sub", 0700, device_.user("apps"), 0);
  device_.write_owned(std::string(NAVIGATOR) + "/data/sub/file", "old", 0600, device_.user("apps"), 0);
  const std::string archive =
      archive_of({CraftedPackage("/app/sys.navigator/appdata", NAVIGATOR).file("data/new", "new")});
  const Outcome outcome = race({"closed", "data/sub"}, swap_for_link(std::string(NAVIGATOR) + "/data/sub"),
                               {NAVIGATOR}, "-r app", archive);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(device_.read(std::string(NAVIGATOR) + "/data/new"), "new");
}

TEST_F(Race, GivesNoStrangersFileToTheOwnerOfData) {
  const std::string archive = archive_of(
      {CraftedPackage::data(loaded_.id).folder("data").folder("data/sub").file("data/sub/file", "1")});
  const Outcome outcome = race({"closed", "data/sub"}, swap_for_link(loaded_.data() + "/data/sub"),
                               {loaded_.data()}, "-r app", archive);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr(loaded_.data() + "/data/sub"));
}

TEST_F(Race, GivesNoStrangersFileToTheOwnerOfPrograms) {
  const std::string archive =
      archive_of({CraftedPackage::binary(bought_.id).folder("native").file("native/file", "1", 0755)});
  const Outcome outcome = race({"closed", "native"}, swap_for_link(bought_.folder() + "/native"),
                               {bought_.folder(), bought_.data()}, "-r app", archive);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr(bought_.folder() + "/native"));
}

TEST_F(Race, GivesNoStrangersFileAwayThatTookTheNameOfAnother) {
  const std::string file = loaded_.data() + "/data/file";
  const std::string archive =
      archive_of({CraftedPackage::data(loaded_.id).folder("data").file("data/file", "1", 0600)});
  const Outcome outcome = race({"closed", loaded_.id + "/data", 2},
                               "mv " + file + " " + file + ".aside && ln " + file_in_vault() + " " + file,
                               {loaded_.data()}, "-r app", archive);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr(file));
}

}  // namespace
