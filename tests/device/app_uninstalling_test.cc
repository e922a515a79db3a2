#include <sys/stat.h>

#include <csignal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/application_device.h"
#include "tests/support/crafted_package.h"

namespace harbix::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

/// A bought application and one from elsewhere: when a restore uninstalls the first, and when it must not.
class AppUninstalling : public testing::Test {
 protected:
  AppUninstalling() {
    for (const InstalledApplication& each : {bought_, loaded_}) {
      device_.install(each);
      device_.add_file(each, "main", "old");
      device_.add_data(each, "data/state", "old");
    }
  }

  static CraftedPackage new_data(const std::string& id) {
    return CraftedPackage::data(id).folder("data").file("data/state", "new");
  }

  /// Restores from a plain file, and from a pipe.
  std::vector<Outcome> restore(const std::string& archive) {
    device_.write("/tmp/a.tar", archive);
    return {device_.harbix({"-r", "-f", "/tmp/a.tar", "app"}), device_.harbix({"-r", "app"}, archive)};
  }

  void expect_nothing_uninstalled(const std::string& what) {
    EXPECT_THAT(device_.registered(), SizeIs(2)) << what;
    for (const InstalledApplication& each : {bought_, loaded_}) {
      EXPECT_EQ(device_.read(each.folder() + "/main"), "old") << what;
      EXPECT_EQ(device_.read(each.data() + "/data/state"), "old") << what;
    }
  }

  ApplicationDevice device_;
  InstalledApplication bought_ = bought_application();
  InstalledApplication loaded_ = loaded_application();
};

TEST_F(AppUninstalling, NeedsAnApplicationInTheArchive) {
  TarBuilder media;
  media.file("/media/M/.backup.metadata", "File: 1\nM/a\n\n").file("/media/M/a", "1");
  TarBuilder foreign;
  foreign.file("documents/letter", "text").file("documents/other", "text");
  TarBuilder top;
  top.file("letter", "text").file("documents/other", "text");
  TarBuilder entries;
  entries.file("/app/side.app.pkg/appdata/data/state", "new").file("/app/x", "new");
  const std::string none = "Error: The archive holds no applications\n";
  struct Row {
    const char* name;
    std::string archive;
    std::string errors;
  };
  for (const Row& row : {Row{"media", media.text(), "Path /media/M/.backup.metadata not recognized\n"},
                         Row{"documents", foreign.text(), none},
                         Row{"a file at the top", top.text(), "Error: Error pathname\n"},
                         Row{"entries alone", entries.text(), none}}) {
    for (const Outcome& outcome : restore(row.archive)) {
      EXPECT_EQ(outcome.status, 1) << row.name;
      EXPECT_EQ(outcome.errors, row.errors) << row.name;
      expect_nothing_uninstalled(row.name);
    }
  }
  // With the other keyword selected as well, the media are an end of the part of the applications.
  const Outcome both = device_.harbix({"-r", "app_media"}, media.text());
  EXPECT_EQ(both.errors, none);
  expect_nothing_uninstalled("app_media");
}

TEST_F(AppUninstalling, IsDoneForTheBackupOfNothing) {
  for (const bool is_file : {true, false}) {
    device_.write("/tmp/a.tar", TarBuilder().text());
    const Outcome outcome =
        device_.shell(is_file ? "harbix -r -f /tmp/a.tar app" : "harbix -r app < /tmp/a.tar");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(device_.registered(), Not(Contains(StartsWith("shop.app"))));
  }
}

TEST_F(AppUninstalling, IsNotDoneForAFileThatBeginsWithAnEndMark) {
  device_.write("/tmp/a.tar", std::string(1024, '\0') + archive_of({new_data("shop.app")}));
  const Outcome outcome = device_.harbix({"-r", "-f", "/tmp/a.tar", "app"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors,
              HasSubstr("Error: The archive is damaged, so that no application is uninstalled: "
                        "Something follows the end mark, which is not read\n"));
  EXPECT_THAT(device_.registered(), IsSupersetOf({StartsWith("shop.app::"), StartsWith("side.app::")}));
}

TEST_F(AppUninstalling, IsNotDoneForADamagedFileAndTheRestComesBack) {
  const std::string archive = archive_of({CraftedPackage::binary("shop.app").file("main", "new"),
                                          new_data("shop.app"), new_data("side.app"),
                                          CraftedPackage::binary("fresh")
                                              .attribute("Extras", "source::sideload")
                                              .file("main", "fresh")
                                              .file("last", std::string(3000, 'x'))});
  const std::size_t last_header = archive.rfind("/app/fresh.pkg/bin/last");
  std::string flipped = archive;
  flipped[last_header + 5] ^= 1;
  std::string ended = archive;
  ended.insert(last_header, 1024, '\0');
  for (const std::string& damaged :
       {archive.substr(0, archive.size() - 1024), archive.substr(0, last_header + 1000), flipped, ended}) {
    device_.write("/tmp/a.tar", damaged);
    const Outcome outcome = device_.harbix({"-r", "-f", "/tmp/a.tar", "app"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(
        lines_of(outcome.errors),
        AllOf(Contains(StartsWith("Error: The archive is damaged, so that no application is uninstalled: ")),
              Contains("Application binaries will not be restored.")));
    // The application that is there keeps its programs; its data, which is whole in the archive, is back.
    EXPECT_THAT(device_.registered(), IsSupersetOf({StartsWith("shop.app::"), StartsWith("side.app::")}));
    EXPECT_EQ(device_.read(bought_.folder() + "/main"), "old");
    EXPECT_EQ(device_.read(bought_.data() + "/data/state"), "new");
    EXPECT_EQ(device_.read(loaded_.data() + "/data/state"), "new");
    for (const InstalledApplication& each : {bought_, loaded_}) device_.add_data(each, "data/state", "old");
  }
}

TEST_F(AppUninstalling, IsNotDoneForWhatCannotFit) {
  device_.write(
      "/tmp/a.tar",
      archive_of(
          {CraftedPackage::binary("shop.app").file("main", "new").file("large", std::string(900000, 'x')),
           new_data("side.app")}));
  const std::string small =
      "mount -t tmpfs -o size=256k,mode=755 none /apps; mkdir -m 750 /apps/shop.app; chown -R apps /apps\n"
      "echo old > /apps/shop.app/main\n"
      "mount -t tmpfs -o size=256k,mode=755 none /accounts/1000/appdata; chown apps /accounts/1000/appdata\n"
      "harbix -r -f /tmp/a.tar app; echo status $?; cat /apps/shop.app/main; umount /apps "
      "/accounts/1000/appdata";
  const Outcome outcome = device_.shell(small);
  EXPECT_EQ(outcome.output, "status 1\nold\n");
  EXPECT_THAT(outcome.errors,
              testing::ContainsRegex("^Error: The applications need 900006 bytes, and there is room for "
                                     "[0-9]+: nothing is uninstalled or restored\n$"));
  EXPECT_THAT(device_.registered(), SizeIs(2));
}

TEST_F(AppUninstalling, IsDoneBeforeTheListIsReadAgain) {
  device_.write(
      "/tmp/a.tar",
      archive_of(
          {CraftedPackage::data("side.app").folder("data").file("data/large", std::string(2000000, 'x')),
           CraftedPackage::binary("shop.app").file("main", "new")}));
  // What an application leaves behind where it was is not registered any more.
  const Outcome outcome = device_.shell(
      "{ head -c 1000000; while [ -e /apps/shop.app ]; do sleep 0.05; done\n"
      "mkdir -m 750 /apps/shop.app; chown apps /apps/shop.app; cat; } < /tmp/a.tar | harbix -r app");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(device_.read(bought_.folder() + "/main"), "new");
}

TEST_F(AppUninstalling, LosesNoDataInSilenceThatStandsBeforeItsBinaries) {
  const Outcome outcome = device_.harbix(
      {"-r", "app"},
      archive_of({new_data("shop.app"), CraftedPackage::binary("shop.app").file("main", "new")}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(lines_of(outcome.errors),
              Contains("Error: The data of '/apps/shop.app' stands before its binaries "
                       "in the archive: it was not restored"));
  EXPECT_EQ(device_.read(bought_.folder() + "/main"), "new");
}

TEST_F(AppUninstalling, LeavesNoRequestWhenASignalComesRightBehindItsCreation) {
  device_.write("/tmp/a.tar", archive_of({new_data("side.app")}));
  for (const char* signal : {"TERM", "INT", "HUP"}) {
    const Outcome outcome = device_.shell(
        "export ASAN_OPTIONS=verify_asan_link_order=0 LD_LIBRARY_PATH=/opt/harbix/bin/tests\n"
        "export HARBIX_ACT_AT=opened HARBIX_ACT_PATH='?wait,delta' HARBIX_ACT_NTH=1\n"
        "export HARBIX_ACT_COMMAND='kill -" +
        std::string(signal) + " $PPID; touch /tmp/acted'\n" +
        "(trap - INT; LD_PRELOAD=libfailing_calls.so exec harbix -r -f /tmp/a.tar app)");
    EXPECT_TRUE(device_.exists("/tmp/acted"));
    EXPECT_GT(outcome.status, 128) << signal;
    EXPECT_THAT(device_.requests_left(), ElementsAre()) << signal;
    std::filesystem::remove(device_.outside("/tmp/acted"));
  }
}

TEST_F(AppUninstalling, LeavesNoRequestWhereAStatusCannotBeTaken) {
  device_.write("/tmp/a.tar",
                archive_of({CraftedPackage::binary("shop.app").file("main", "new"), new_data("side.app")}));
  for (const char* call : {"lstat", "fstatat"}) {
    for (int nth = 1; nth < 25; ++nth) {
      const Outcome outcome = device_.shell(
          "export ASAN_OPTIONS=verify_asan_link_order=0 LD_LIBRARY_PATH=/opt/harbix/bin/tests\n"
          "export HARBIX_FAIL_CALL=" +
          std::string(call) + " HARBIX_FAIL_ERRNO=5 HARBIX_FAIL_NTH=" + std::to_string(nth) +
          "\nLD_PRELOAD=libfailing_calls.so exec harbix -r -f /tmp/a.tar app");
      EXPECT_LT(outcome.status, 128);
      EXPECT_THAT(device_.requests_left(), ElementsAre()) << call << " " << nth;
    }
  }
}

}  // namespace
}  // namespace harbix::test
