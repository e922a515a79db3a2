#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/application_device.h"
#include "tests/support/crafted_package.h"

namespace harbix::test {
namespace {

using testing::HasSubstr;

constexpr char SECRET[] = "only root may read this";
constexpr char VAULT[] = "/etc/vault";

/// When an owner acts between two calls of the program.
struct Moment {
  const char* name;  ///< as failing_calls names them
  std::string path;
  int nth = 1;
};

/// Whether the kernel opens below a folder at once. The program does it step by step where it does not.
enum class Kernel { NEW, WITHOUT_OPENAT2 };

/// Lets the owner of a folder swap it for a link while the program works in it. The link leads to a folder
/// that the owner cannot enter, but the program can; it holds a file of the same name.
class Race : public testing::TestWithParam<Kernel> {
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

  /// A folder of the loaded application's data while that is made: beside its place, where no owner comes.
  [[nodiscard]] std::string staged(const std::string& path) const {
    return "$(echo " + std::string(test::APPLICATION_DATA) + "/.harbix-*/" + loaded_.id + ")/" + path;
  }

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
    std::string script =
        "export ASAN_OPTIONS=verify_asan_link_order=0 LD_LIBRARY_PATH=/opt/harbix/bin/tests\n";
    script += "export HARBIX_ACT_AT=" + std::string(moment.name) + " HARBIX_ACT_PATH='" + moment.path + "'\n";
    script += "export HARBIX_ACT_NTH=" + std::to_string(moment.nth);
    script += " HARBIX_ACT_COMMAND='" + command + " && touch /tmp/acted'\n";
    if (GetParam() == Kernel::WITHOUT_OPENAT2) {
      script +=
          "export HARBIX_FAIL_CALL=openat2 HARBIX_FAIL_NTH=1 HARBIX_FAIL_ERRNO=" + std::to_string(ENOSYS) +
          "\n";
    }
    script += "LD_PRELOAD=libfailing_calls.so exec harbix " + arguments;
    Outcome outcome = device_.shell(script, input);
    EXPECT_TRUE(device_.exists("/tmp/acted")) << "the moment did not come";
    EXPECT_EQ(difference(before, device_.everything_but(changing)), "");
    return outcome;
  }

  [[nodiscard]] bool is_in_archive(const std::string& text) const {
    return device_.read(ARCHIVE).find(text) != std::string::npos;
  }

  static std::string next_data() { return std::string(test::APPLICATION_DATA) + "/next"; }

  static constexpr char ARCHIVE[] = "/tmp/a.tar";

  ApplicationDevice device_;
  InstalledApplication bought_ = bought_application();
  InstalledApplication loaded_ = loaded_application();
};

TEST_P(Race, PutsNoStrangersFileIntoABackupOfMedia) {
  device_.write(shared("Music/sub/file"), "music");
  const Outcome outcome =
      race({"closed", "Music/sub"}, swap_for_link(shared("Music/sub")), {SHARED}, "-f /tmp/a.tar media");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.errors,
              testing::MatchesRegex("Error: Error opening: Music/sub: another object took its "
                                    "place\nError: Error opening: Music/sub/file: .*\n"));
  EXPECT_FALSE(is_in_archive(SECRET));
}

TEST_P(Race, PutsNoStrangersFileIntoABackupOfApplicationData) {
  device_.add_data(loaded_, "data/sub/file", "data");
  const Outcome outcome = race({"closed", "data/sub"}, swap_for_link(loaded_.data() + "/data/sub"),
                               {loaded_.data()}, "-f /tmp/a.tar app");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.errors, HasSubstr("Error opening: " + loaded_.data() + "/data/sub/file: "));
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

TEST_P(SettingsRace, PutsNoStrangersFileIntoABackup) {
  const Outcome outcome = race({"closed", "settings/sub"}, swap_for_link(std::string(SETTINGS) + "/sub"),
                               {SETTINGS}, "-f /tmp/a.tar settings");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "");
  EXPECT_FALSE(is_in_archive(SECRET));
}

TEST_P(SettingsRace, WritesNoStrangersFile) {
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

TEST_P(Race, WritesNoStrangersMedia) {
  lock_vault("media");
  const std::string archive =
      TarBuilder().file("/media/M/sub/first", "1").file("/media/M/sub/second", "2").text();
  const Outcome outcome =
      race({"open", "sub/second"}, swap_for_link(shared("M/sub")), {SHARED}, "-r media", archive);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "");
  EXPECT_EQ(device_.read(shared("M/sub.aside/second")), "2");
}

TEST_P(Race, SaysThatAFolderOfMediaBecameALink) {
  lock_vault("media");
  const std::string archive = TarBuilder()
                                  .file("/media/M/sub/first", "1")
                                  .file("/media/M/other/between", "2")
                                  .file("/media/M/sub/file", "3")
                                  .text();
  const Outcome outcome =
      race({"open", "other/between"}, swap_for_link(shared("M/sub")), {SHARED}, "-r media", archive);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "Warning: " + shared("M/sub/file") + ": Not a directory\n");
}

TEST_P(Race, WritesNoStrangersApplicationData) {
  lock_vault("apps");
  const std::string archive = archive_of({CraftedPackage::data(loaded_.id)
                                              .folder("data")
                                              .folder("data/sub")
                                              .file("data/sub/first", "1")
                                              .file("data/sub/second", "2")});
  const Outcome outcome =
      race({"open", "sub/second"}, swap_for_link(staged("data/sub")), {loaded_.data()}, "-r app", archive);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(device_.read(loaded_.data() + "/data/sub.aside/second"), "2");
}

TEST_P(Race, RemovesNoStrangersFileWithTheMedia) {
  lock_vault("media");
  device_.write(shared("Music/sub/file"), "music");
  const Outcome outcome = race({"listed", "Music/sub/file"}, swap_for_link(shared("Music/sub")), {SHARED},
                               "-r media", TarBuilder().text());
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "");
}

TEST_P(Race, RemovesNoStrangersFileWithOldApplicationData) {
  device_.add_data(loaded_, "data/sub/file", "data");
  const std::string archive =
      archive_of({CraftedPackage::data(loaded_.id).folder("data").file("data/new", "new")});
  // It goes with the folder in which the new data was made.
  const std::string old = staged("data/sub");
  const Outcome outcome =
      race({"closed", "data/sub"}, swap_for_link(old), {loaded_.data()}, "-r app", archive);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(device_.read(loaded_.data() + "/data/new"), "new");
}

TEST_P(Race, RemovesNoStrangersFileWithOldNavigatorData) {
  lock_vault("apps");
  device_.make_owned_folder(std::string(NAVIGATOR_DATA) + "/data/sub", 0700, device_.user("apps"), 0);
  device_.write_owned(std::string(NAVIGATOR_DATA) + "/data/sub/file", "old", 0600, device_.user("apps"), 0);
  const std::string archive =
      archive_of({CraftedPackage("/app/sys.navigator/appdata", NAVIGATOR_DATA).file("data/new", "new")});
  const Outcome outcome =
      race({"closed", "data/sub"}, swap_for_link(std::string(NAVIGATOR_DATA) + "/data/sub"), {NAVIGATOR_DATA},
           "-r app", archive);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(device_.read(std::string(NAVIGATOR_DATA) + "/data/new"), "new");
}

TEST_P(Race, GivesNoStrangersFileToTheOwnerOfData) {
  const std::string archive = archive_of(
      {CraftedPackage::data(loaded_.id).folder("data").folder("data/sub").file("data/sub/file", "1"),
       CraftedPackage::binary("next").attribute("Extras", "source::sideload").file("main", "next")});
  const Outcome outcome = race({"closed", "data/sub"}, swap_for_link(staged("data/sub")),
                               {loaded_.data(), "/apps/next", next_data()}, "-r app", archive);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(device_.read("/apps/next/main"), "next");
  EXPECT_THAT(outcome.errors, HasSubstr(loaded_.data() + "/data/sub"));
}

TEST_P(Race, GivesNoStrangersFileToTheOwnerOfPrograms) {
  const std::string archive = archive_of(
      {CraftedPackage::binary(bought_.id).folder("native").file("native/file", "1", 0755),
       CraftedPackage::binary("next").attribute("Extras", "source::sideload").file("main", "next")});
  const Outcome outcome =
      race({"closed", "native"}, swap_for_link(bought_.folder() + "/native"),
           {bought_.folder(), bought_.data(), "/apps/next", next_data()}, "-r app", archive);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(device_.read("/apps/next/main"), "next");
  EXPECT_THAT(outcome.errors, HasSubstr(bought_.folder() + "/native"));
}

TEST_P(Race, GivesNoStrangersFileAwayThatTookTheNameOfAnother) {
  const std::string file = staged("data/file");
  const std::string archive =
      archive_of({CraftedPackage::data(loaded_.id).folder("data").file("data/file", "1", 0600)});
  const Outcome outcome = race({"closed", loaded_.id + "/data"},
                               "mv " + file + " " + file + ".aside && ln " + file_in_vault() + " " + file,
                               {loaded_.data()}, "-r app", archive);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr(loaded_.data() + "/data/file"));
}

TEST_P(Race, GivesNoStrangersFileAwayThatWasThereUnderAnotherName) {
  const std::string archive =
      archive_of({CraftedPackage::data(loaded_.id).folder("data").file("data/file", "1", 0600)});
  const Outcome outcome = race({"open", "data/file"}, "ln " + file_in_vault() + " " + staged("data/added"),
                               {loaded_.data()}, "-r app", archive);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr(loaded_.data() + "/data/added"));
}

std::string name_of_kernel(const testing::TestParamInfo<Kernel>& kernel) {
  return kernel.param == Kernel::NEW ? "NewKernel" : "WithoutOpenat2";
}

INSTANTIATE_TEST_SUITE_P(Kernels, Race, testing::Values(Kernel::NEW, Kernel::WITHOUT_OPENAT2),
                         name_of_kernel);
INSTANTIATE_TEST_SUITE_P(Kernels, SettingsRace, testing::Values(Kernel::NEW, Kernel::WITHOUT_OPENAT2),
                         name_of_kernel);

}  // namespace
}  // namespace harbix::test
