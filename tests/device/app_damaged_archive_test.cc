#include <sys/stat.h>

#include <chrono>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/application_device.h"
#include "tests/support/crafted_package.h"

namespace harbix::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::SizeIs;

constexpr std::size_t BLOCK = 512;

/// A bought application and one from elsewhere, both with data, and archives that are not whole.
class AppDamagedArchive : public testing::Test {
 protected:
  AppDamagedArchive() {
    for (const InstalledApplication& each : {bought_, loaded_}) {
      device_.install(each);
      device_.add_data(each, "data/state", "old");
    }
  }

  Outcome restore(const std::string& archive) { return device_.harbix({"-r", "app"}, archive); }

  /// What the installer set, however much was restored before the damage.
  void expect_right_owners() {
    const Snapshot folders = device_.snapshot("/apps");
    const auto installed = folders.find("shop.app");
    if (installed == folders.end()) return;
    const gid_t group = installed->second.group;
    EXPECT_GE(group, 10000U);
    for (const auto& [path, item] : device_.snapshot("/apps/shop.app")) {
      EXPECT_EQ(item.owner, device_.user("apps")) << path;
      EXPECT_EQ(item.group, group) << path;
      EXPECT_EQ(item.mode & 0027U, 0U) << path;
    }
    for (const auto& [path, item] : device_.snapshot(bought_.data())) {
      EXPECT_EQ(item.owner, group * 10000 + 1000) << path;
      EXPECT_EQ(item.group, group) << path;
    }
  }

  ApplicationDevice device_;
  InstalledApplication bought_ = bought_application();
  InstalledApplication loaded_ = loaded_application();
};

TEST_F(AppDamagedArchive, PairsRecordsWithEntriesByName) {
  const std::string root = "/accounts/1000/appdata/side.app/data/";
  const Outcome outcome =
      restore(archive_of({CraftedPackage::data("side.app")
                              .record(S_IFREG | 0660U, root + "vanished first", 5)
                              .folder("data")
                              .file("data/a", "a")
                              .record(S_IFREG | 0660U, root + "vanished", 5)
                              .file("data/b", "b")
                              .entry(TarBuilder::FILE, "/app/side.app.pkg/appdata/data/stranger", "s")
                              .entry(TarBuilder::FILE, "/app/other/appdata/data/stranger", "s")
                              .file("data/c", "c")
                              .record(S_IFREG | 0660U, root + "vanished last", 5)}));
  EXPECT_EQ(outcome.status, 1);
  const Snapshot data = device_.snapshot(root);
  EXPECT_THAT(data, SizeIs(3));
  for (const char* name : {"a", "b", "c"}) EXPECT_EQ(data.at(name).content, name);
  EXPECT_THAT(
      lines_of(outcome.errors),
      AllOf(Contains("Warning: No entry in the archive for " + root + "vanished first"),
            Contains("Warning: No entry in the archive for " + root + "vanished"),
            Contains("Skip: /app/side.app.pkg/appdata/data/stranger"),
            Contains("Error: No record in the manifest for '/app/side.app.pkg/appdata/data/stranger'"),
            Contains("Skip: /app/other/appdata/data/stranger")));
  EXPECT_THAT(device_.logged(LOG_PRIORITY_WARNING),
              Contains("No entry in the archive for '" + root + "vanished'"));
}

TEST_F(AppDamagedArchive, GoesOnAfterAnApplicationWithoutData) {
  CraftedPackage empty = CraftedPackage::data("shop.app");
  for (const char* name : {"data", "logs", "tmp"}) {
    empty.record(0, bought_.data() + "/" + name);
  }
  const Outcome outcome =
      restore(archive_of({CraftedPackage::binary("shop.app").file("main", "1"), empty,
                          CraftedPackage::data("side.app").folder("data").file("data/new", "new")}));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(device_.read("/apps/shop.app/main"), "1");
  EXPECT_EQ(device_.read(loaded_.data() + "/data/new"), "new");
  for (const char* name : {"data", "logs", "tmp"}) {
    EXPECT_THAT(lines_of(outcome.errors),
                Contains("Warning: No entry in the archive for " + bought_.data() + "/" + name));
  }
}

TEST_F(AppDamagedArchive, PassesOverEntriesBehindAPackage) {
  const Outcome outcome =
      restore(archive_of({CraftedPackage::binary("shop.app")
                              .file("main", "1")
                              .entry(TarBuilder::FILE, "/app/other.pkg/bin/extra", "extra")
                              .entry(TarBuilder::FILE, "/apps/shop.app/extra", "extra"),
                          CraftedPackage::data("side.app").folder("data").file("data/new", "new")}));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(device_.snapshot("/apps/shop.app"), ElementsAre(testing::Key("main")));
  EXPECT_EQ(device_.read(loaded_.data() + "/data/new"), "new");
}

TEST_F(AppDamagedArchive, UninstallsNothingWhenItIsNone) {
  const std::string good = archive_of({CraftedPackage::binary("shop.app").file("main", "1")});
  std::string bad_header = good;
  bad_header[10] ^= 1;
  struct Row {
    const char* name;
    std::string archive;
    int status;
  };
  for (const Row& row :
       {Row{"empty", "", 2}, Row{"text", "hello\n", 2}, Row{"noise", std::string(4096, 'x'), 2},
        Row{"first header cut", good.substr(0, 300), 2}, Row{"first header damaged", bad_header, 2},
        Row{"first manifest cut", good.substr(0, BLOCK), 1},
        Row{"first manifest cut inside", good.substr(0, BLOCK + 20), 1}}) {
    const Snapshot before = device_.everything_but({});
    const Outcome outcome = restore(row.archive);
    EXPECT_NE(outcome.status, 0) << row.name;
    EXPECT_EQ(outcome.status, row.status) << row.name;
    EXPECT_THAT(lines_of(outcome.errors), SizeIs(1)) << row.name;
    EXPECT_EQ(difference(before, device_.everything_but({})), "") << row.name;
    EXPECT_THAT(device_.registered(), SizeIs(2)) << row.name;
  }
  const Outcome missing = device_.harbix({"-r", "-f", "/tmp/missing.tar", "app"});
  EXPECT_EQ(missing.status, 2);
  EXPECT_THAT(device_.registered(), SizeIs(2));
}

TEST_F(AppDamagedArchive, UninstallsNothingForTheArchiveOfSomethingElse) {
  const Snapshot before = device_.everything_but({});
  const std::string media = TarBuilder()
                                .file("/media/Music/.backup.metadata", "File: 1\nMusic/a.mp3\n\n")
                                .file("/media/Music/a.mp3", "a")
                                .text();
  const Outcome outcome = restore(media);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors, "Path /media/Music/.backup.metadata not recognized\n");
  EXPECT_EQ(difference(before, device_.everything_but({})), "");
  EXPECT_THAT(device_.registered(), SizeIs(2));
}

TEST_F(AppDamagedArchive, LeavesRightOwnersWhenTheDiskIsFull) {
  device_.write("/tmp/a.tar", archive_of({CraftedPackage::data("side.app")
                                              .folder("data")
                                              .file("data/before", "1", 0666)
                                              .file("data/too large", std::string(300000, 'x'))
                                              .file("data/after", "2", 0666)}));
  // What is mounted is gone after the run, so that it is looked at from inside.
  const Outcome outcome = device_.shell(
      "mount -t tmpfs -o size=128k,mode=755 none /accounts/1000/appdata\n"
      "chown apps:apps /accounts/1000/appdata\n"
      "harbix -r -f /tmp/a.tar app; echo status $?\n"
      "cd /accounts/1000/appdata/side.app/data; stat -c '%n %u %g %a' before after; cat before\n"
      "cd /; umount /accounts/1000/appdata");
  const std::string owner = std::to_string(loaded_.data_user()) + " " + std::to_string(loaded_.group);
  EXPECT_EQ(outcome.output, "status 1\nbefore " + owner + " 660\nafter " + owner + " 660\n1");
  EXPECT_THAT(lines_of(outcome.errors), Contains("HERE"));
  EXPECT_THAT(outcome.errors, testing::ContainsRegex("Warning: .*\n"));
}

TEST_F(AppDamagedArchive, CutAnywhereIsNeverASuccessAndLeavesRightOwners) {
  const std::string archive = archive_of({CraftedPackage::binary("shop.app")
                                              .folder("native", 0777)
                                              .file("native/first", std::string(600, '1'), 0777)
                                              .file("second", std::string(600, '2'), 0666),
                                          CraftedPackage::data("shop.app")
                                              .folder("data", 0777)
                                              .file("data/third", std::string(600, '3'), 0666)
                                              .file("data/fourth", std::string(600, '4'), 0666)});
  const std::size_t end_mark = 2 * BLOCK;
  for (std::size_t length = BLOCK; length <= archive.size() - end_mark; length += BLOCK) {
    const std::size_t cut = length % (2 * BLOCK) == 0 ? length : length - 100;
    const Outcome outcome = restore(archive.substr(0, cut));
    EXPECT_NE(outcome.status, 0) << cut;
    EXPECT_LT(outcome.status, 128) << cut;
    EXPECT_NE(outcome.errors, "") << cut;
    expect_right_owners();
    // The application is back where all of its files are, and nothing of it where one is cut.
    const bool has_all_files = cut >= 9 * BLOCK;
    EXPECT_EQ(device_.exists("/apps/shop.app/native"), has_all_files) << cut;
    if (!has_all_files) continue;
    EXPECT_EQ(device_.read("/apps/shop.app/native/first"), std::string(600, '1')) << cut;
  }
  EXPECT_EQ(restore(archive).status, 0);
  expect_right_owners();
  EXPECT_EQ(device_.read(bought_.data() + "/data/fourth"), std::string(600, '4'));
}

TEST_F(AppDamagedArchive, CutBeforeTheFirstEntryOfADataPackageLeavesTheOldData) {
  const CraftedPackage data = CraftedPackage::data("side.app").folder("data").file("data/state", "new");
  const std::size_t metadata = 2 * BLOCK;
  for (const std::size_t length : {metadata - 1, metadata, metadata + 100}) {
    const Outcome outcome = restore(data.text().substr(0, length));
    EXPECT_EQ(outcome.status, 1) << length;
    EXPECT_EQ(device_.read(loaded_.data() + "/data/state"), "old") << length;
  }
}

TEST_F(AppDamagedArchive, MayEndWithAPackageWithoutRecords) {
  const Outcome outcome = restore(archive_of({CraftedPackage::data("side.app")}));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(lines_of(outcome.errors), ElementsAre("Archive errno at this point: 0"));
}

TEST_F(AppDamagedArchive, MeetsAFolderThatCannotBeEntered) {
  const Snapshot before = device_.snapshot(loaded_.data());
  const std::string archive = archive_of(
      {CraftedPackage::data("side.app").folder("data").file("data/state", "new"),
       CraftedPackage::binary("fresh").attribute("Extras", "source::sideload").file("main", "new")});
  const Outcome outcome = device_.shell(
      "chmod 0700 /accounts/1000/appdata; chown root /accounts/1000/appdata; harbix -r app", archive);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(lines_of(outcome.errors),
              Contains("Error: Failed to chdir to '/accounts/1000/appdata' [errno:13 'Permission denied']"));
  EXPECT_EQ(difference(before, device_.snapshot(loaded_.data())), "");
  EXPECT_EQ(device_.read("/apps/fresh/main"), "new");
}

TEST_F(AppDamagedArchive, MayClaimSizesBeyondItsEnd) {
  TarBuilder huge;
  huge.add(TarBuilder::FILE, "/app/side.app.pkg/appdata/data/huge", "short", 0660, "",
           (std::uint64_t{1} << 33) - 1);
  const Outcome outcome =
      restore(cut_archive_of({CraftedPackage::data("side.app")
                                  .folder("data")
                                  .file("data/first", "first")
                                  .record(S_IFREG | 0660U, loaded_.data() + "/data/huge", 5)}) +
              huge.text());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(lines_of(outcome.errors),
              Contains("Error: Extracting data for '" + loaded_.data() + "/data/huge' failed ('%s')"));
  EXPECT_EQ(device_.read(loaded_.data() + "/data/state"), "old");
  EXPECT_FALSE(device_.exists(loaded_.data() + "/data/first"));
}

TEST_F(AppDamagedArchive, MayHaveManyRecordsAndNoEntries) {
  CraftedPackage package = CraftedPackage::data("side.app");
  for (int i = 0; i < 200000; ++i) {
    package.record(S_IFREG | 0660U, loaded_.data() + "/data/" + std::to_string(i));
  }
  const auto start = std::chrono::steady_clock::now();
  const Outcome outcome = device_.shell(
      "harbix -d 0 -r app 2> /tmp/errors",
      archive_of({package, CraftedPackage::data("side.app").folder("data").file("data/last", "last")}));
  // A search through all records for each of them would take longer by far.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(device_.read(loaded_.data() + "/data/last"), "last");
}

}  // namespace
}  // namespace harbix::test
