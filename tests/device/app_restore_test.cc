#include <sys/stat.h>

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

/// A device with one application of each source, each with data.
class AppRestore : public testing::Test {
 protected:
  AppRestore() {
    for (const InstalledApplication& each : {bought_, loaded_, built_in_}) {
      device_.install(each);
      device_.add_data(each, "data/state", "old");
    }
  }

  void back_up() { ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "app"}).status, 0); }
  Outcome restore() { return device_.harbix({"-r", "-f", "/tmp/a.tar", "app"}); }
  Outcome restore(const std::vector<CraftedPackage>& packages) {
    return device_.harbix({"-r", "app"}, archive_of(packages));
  }

  ApplicationDevice device_;
  InstalledApplication bought_ = bought_application();
  InstalledApplication loaded_ = loaded_application();
  InstalledApplication built_in_ = built_in_application();
};

TEST_F(AppRestore, ReplacesStorefrontApplicationsAndLeavesOthersInstalled) {
  device_.add_file(bought_, "native/main", "program", 0750);
  const Snapshot applications = device_.snapshot("/apps");
  const Snapshot data = device_.snapshot(APPLICATION_DATA);
  back_up();
  const std::vector<std::string> registered = device_.registered();

  device_.add_file(bought_, "native/main", "changed", 0750);
  device_.add_file(bought_, "native/added", "added");
  device_.add_data(bought_, "data/added", "added");
  device_.add_data(loaded_, "data/state", "changed");
  device_.install({.id = "bought.later", .package = "later.pkg", .group = 10300});
  const Outcome outcome = restore();
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(difference(applications, device_.snapshot("/apps")), "");
  EXPECT_EQ(difference(data, device_.snapshot(APPLICATION_DATA)), "");
  std::vector<std::string> registered_again = device_.registered();
  EXPECT_THAT(registered_again, testing::UnorderedElementsAreArray(registered));
  EXPECT_THAT(registered_again, Contains("shop.app::shop.app.pkg,2.0.1.7,price:n:299,source::shopvale"));
  EXPECT_THAT(device_.requests_left(), ElementsAre());
  EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR), ElementsAre());
}

TEST_F(AppRestore, TakesPermissionsAwayAndGivesOwners) {
  struct Row {
    const char* path;
    unsigned mode;
    unsigned binary_mode;
    unsigned data_mode;
  };
  const std::vector<Row> rows{{"open", 0777, 0750, 0770},    {"private", 0600, 0600, 0600},
                              {"set-id", 06755, 0750, 0750}, {"read-only", 0444, 0440, 0440},
                              {"nothing", 0000, 0000, 0000}, {"folder/in", 0640, 0640, 0640},
                              {"sticky", 01666, 0640, 0660}};
  CraftedPackage binary = CraftedPackage::binary("shop.app");
  CraftedPackage data = CraftedPackage::data("shop.app");
  // Their modes must not be in force while they are being filled.
  binary.folder("folder", 0500).folder("wide", 07777).folder("lib", 0700).link("lib/link", "/etc/passwd");
  data.folder("data").folder("data/folder", 0500).folder("data/wide", 07777).link("data/link", "/etc/passwd");
  for (const Row& row : rows) {
    binary.file(row.path, "b", row.mode);
    data.file("data/" + std::string(row.path), "d", row.mode);
  }
  for (const char* mask : {"0", "077", "0777"}) {
    const Outcome outcome =
        device_.shell(std::string("umask ") + mask + "; harbix -r -f - app", archive_of({binary, data}));
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    const Snapshot installed = device_.snapshot("/apps/shop.app");
    const Snapshot restored = device_.snapshot(bought_.data());
    const gid_t group = installed.at("open").group;
    const uid_t owner = group * 10000 + 1000;
    EXPECT_GE(group, 10000U);
    for (const Row& row : rows) {
      EXPECT_EQ(installed.at(row.path), (Item{S_IFREG | row.binary_mode, device_.user("apps"), group, "b"}))
          << row.path;
      EXPECT_EQ(restored.at("data/" + std::string(row.path)),
                (Item{S_IFREG | row.data_mode, owner, group, "d"}))
          << row.path;
    }
    EXPECT_EQ(installed.at("folder"), (Item{S_IFDIR | 0500U, device_.user("apps"), group, ""}));
    EXPECT_EQ(installed.at("wide"), (Item{S_IFDIR | 0750U, device_.user("apps"), group, ""}));
    EXPECT_EQ(installed.at("lib"), (Item{S_IFDIR | 0700U, device_.user("apps"), group, ""}));
    EXPECT_EQ(installed.at("lib/link"), (Item{S_IFLNK | 0777U, device_.user("apps"), group, "/etc/passwd"}));
    EXPECT_EQ(restored.at("data/folder"), (Item{S_IFDIR | 0500U, owner, group, ""}));
    EXPECT_EQ(restored.at("data/wide"), (Item{S_IFDIR | 0770U, owner, group, ""}));
    EXPECT_EQ(restored.at("data/link"), (Item{S_IFLNK | 0777U, owner, group, "/etc/passwd"}));
    const Item folder = device_.snapshot("/apps").at("shop.app");
    EXPECT_EQ(folder, (Item{S_IFDIR | 0750U, device_.user("apps"), group, ""})) << mask;
  }
  EXPECT_EQ(device_.snapshot("/etc").at("passwd").owner, 0U);
}

TEST_F(AppRestore, ListsWhatChangesHandsAndTellsMoreWhenVerbose) {
  const std::string archive =
      archive_of({CraftedPackage::binary("shop.app").file("main", "12345", 0777),
                  CraftedPackage::data("shop.app").folder("data").file("data/a", "1")});
  const Outcome quiet = device_.harbix({"-r", "app"}, archive);
  EXPECT_EQ(quiet.errors,
            "Archive errno at this point: 0\n/apps/shop.app/main\n"
            "Archive errno at this point: 0\n/accounts/1000/appdata/shop.app/data\n"
            "/accounts/1000/appdata/shop.app/data/a\n");
  const Outcome verbose = device_.harbix({"-v", "-r", "app"}, archive);
  EXPECT_EQ(verbose.status, 0);
  EXPECT_EQ(verbose.output, "");
  const std::string group = std::to_string(device_.snapshot("/apps").at("shop.app").group);
  EXPECT_THAT(lines_of(verbose.errors),
              IsSupersetOf({"Required space on disk: 5 bytes, or 4096 real bytes or 1 blocks",
                            "************* /app/shop.app.pkg/bin/.backup.metadata ******************",
                            "=>app:=>shop.app.pkg:=>bin:=>.backup.metadata:", "Bin Package shop.app.pkg",
                            "Extracting as 10089:0/apps/shop.app/main", "Registered '/apps/shop.app'"}));
  EXPECT_THAT(
      lines_of(verbose.errors),
      IsSupersetOf({"Actual GID: " + group, "Applying ownership 10089:" + group + " to /apps/shop.app/main",
                    std::string("Data Package shop.app.pkg"), std::string("Extras: source::shopvale"),
                    std::string("Data dir: /accounts/1000/appdata/shop.app"),
                    std::string("REMOVE_DIR /accounts/1000/appdata/shop.app"),
                    "Extracting as 10089:" + group + "/accounts/1000/appdata/shop.app/data/a"}));
  EXPECT_THAT(verbose.errors, testing::EndsWith("EOF reached\nEOF\n"));
}

TEST_F(AppRestore, LeavesTheDataOfAnApplicationThatIsNotInstalledOut) {
  const std::string data = std::string(APPLICATION_DATA) + "/absent";
  device_.write(data + "/data/old", "old");
  const Outcome outcome = restore({CraftedPackage::data("absent").folder("data").file("data/new", "new"),
                                   CraftedPackage::data("side.app").folder("data").file("data/new", "new")});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(lines_of(outcome.errors),
              Contains("Warning: Could not determine actual_gid. Skipping data.").Times(1));
  EXPECT_THAT(device_.logged(LOG_PRIORITY_WARNING), ElementsAre("Application '/apps/absent' does not exist"));
  EXPECT_THAT(device_.snapshot(data), testing::SizeIs(2));
  EXPECT_EQ(device_.read(data + "/data/old"), "old");
  EXPECT_EQ(device_.read(loaded_.data() + "/data/new"), "new");
  EXPECT_FALSE(device_.exists(loaded_.data() + "/data/state"));
}

TEST_F(AppRestore, RefusesBuiltInBinariesAndSkipsTheNextDataOfThatPackageOnce) {
  device_.add_file(built_in_, "native/main", "original", 0750);
  const Snapshot before = device_.snapshot("/apps/sys.app");
  const CraftedPackage first = CraftedPackage::data("sys.app").folder("data").file("data/state", "first");
  const CraftedPackage second = CraftedPackage::data("sys.app").folder("data").file("data/state", "second");
  const CraftedPackage binary =
      CraftedPackage::binary("sys.app").folder("native").file("native/main", "evil");
  Outcome outcome = restore({binary, first});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.errors, "Application binaries will not be restored.\nSkipping package: sys.app.pkg\n");
  EXPECT_EQ(difference(before, device_.snapshot("/apps/sys.app")), "");
  EXPECT_EQ(device_.read(built_in_.data() + "/data/state"), "old");

  outcome = restore({binary, first, second});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(device_.read(built_in_.data() + "/data/state"), "second");
  // An application that is not built in is no obstacle, and neither is one between them.
  outcome =
      restore({binary, CraftedPackage::data("side.app").folder("data").file("data/state", "new"), first});
  EXPECT_EQ(device_.read(loaded_.data() + "/data/state"), "new");
  EXPECT_EQ(device_.read(built_in_.data() + "/data/state"), "second");
  const Outcome verbose = device_.harbix({"-v", "-r", "app"}, archive_of({binary}));
  EXPECT_THAT(lines_of(verbose.errors), Contains("ERROR: Attempt to restore 1st or 2nd party app. "));
}

TEST_F(AppRestore, NeedsTheAttributesThatSayWhereThingsGo) {
  struct Row {
    CraftedPackage package;
    std::string key;
  };
  for (const Row& row :
       {Row{CraftedPackage::binary("shop.app").file("main", "1").without("App-Directory"), "App-Directory"},
        Row{CraftedPackage::binary("shop.app").file("main", "1").without("Data-Directory"), "Data-Directory"},
        Row{CraftedPackage::data("side.app").file("data/a", "1").without("App-Directory"), "App-Directory"},
        Row{CraftedPackage::data("side.app").file("data/a", "1").without("Data-Directory"),
            "Data-Directory"}}) {
    const Outcome outcome = restore({row.package});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, "Error: Key " + row.key + " not found.\n");
    EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR), ElementsAre("ERROR: Key " + row.key + " not found."));
    EXPECT_EQ(device_.read(loaded_.data() + "/data/state"), "old");
  }
  const Outcome plain = restore({CraftedPackage::binary("shop.app").file("main", "1").without("Extras")});
  EXPECT_EQ(plain.status, 0) << plain.errors;
  EXPECT_THAT(device_.registered(), Contains("shop.app::shop.app,0.0.0.0,"));
}

TEST_F(AppRestore, EndsAtAnotherKeywordsPackageAndKeepsWhatCameBefore) {
  for (const char* name : {"/media/Music", "/dtm/x", "/settings"}) {
    device_.add_data(loaded_, "data/state", "old");
    const Outcome outcome =
        restore({CraftedPackage::binary("shop.app").file("main", name),
                 CraftedPackage(name, "/apps/x").file("a", "1"),
                 CraftedPackage::data("side.app").folder("data").file("data/state", "new")});
    EXPECT_EQ(outcome.status, 0) << name << outcome.errors;
    EXPECT_EQ(device_.read("/apps/shop.app/main"), name);
    EXPECT_EQ(device_.read(loaded_.data() + "/data/state"), "old");
  }
}

TEST_F(AppRestore, BringsBackItsPartOfAnArchiveOfEverything) {
  device_.write(std::string(SHARED) + "/Music/a.mp3", "music");
  device_.make_folder("/accounts/1000/settings", 0755);
  device_.write("/accounts/1000/settings/a", "setting");
  device_.write("/base/scripts/backup_and_restore/settings/lists",
                "#!/bin/sh\n[ $1 = whitelist ] && echo whitelist /accounts/1000/settings\n", 0755);
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "settings_app_media"}).status, 0);
  const auto change = [&] {
    device_.write(std::string(SHARED) + "/Music/a.mp3", "changed");
    device_.write("/accounts/1000/settings/a", "changed");
    device_.add_data(loaded_, "data/state", "changed");
    device_.add_data(bought_, "data/state", "changed");
  };
  const auto state = [&] {
    return std::vector<std::string>{
        device_.read(std::string(SHARED) + "/Music/a.mp3"), device_.read("/accounts/1000/settings/a"),
        device_.read(loaded_.data() + "/data/state"), device_.read(bought_.data() + "/data/state")};
  };
  const std::string archive = device_.read("/tmp/a.tar");
  struct Row {
    std::string keywords;
    int status;
    std::vector<std::string> restored;
  };
  for (const Row& row : {Row{"app_media_settings", 0, {"music", "setting", "old", "old"}},
                         Row{"settings_app", 0, {"changed", "setting", "old", "old"}},
                         Row{"app_media", 0, {"music", "changed", "old", "old"}}}) {
    change();
    const Outcome file = device_.harbix({"-r", "-f", "/tmp/a.tar", row.keywords});
    EXPECT_EQ(file.status, row.status) << file.errors;
    EXPECT_EQ(state(), row.restored) << row.keywords;
    change();
    const Outcome stream = device_.harbix({"-r", row.keywords}, archive);
    EXPECT_EQ(stream.status, row.status) << stream.errors;
    EXPECT_EQ(state(), row.restored) << row.keywords;
  }
  change();
  EXPECT_EQ(restore().status, 0);
  EXPECT_EQ(state(), (std::vector<std::string>{"changed", "changed", "old", "old"}));
}

TEST_F(AppRestore, GoesOnPastAnApplicationThatHadLostItsFolder) {
  const InstalledApplication lost{.id = "lost", .package = "lost.pkg", .group = 10300};
  device_.enter(lost);
  device_.add_data(lost, "data/state", "old");
  back_up();
  device_.add_data(loaded_, "data/state", "changed");
  const Outcome outcome = restore();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(
      lines_of(outcome.errors),
      AllOf(Contains("Error: Installer request for '/apps/lost' failed: Attribute actual_gid not found"),
            Contains("Warning: Could not determine actual_gid. Skipping data.")));
  EXPECT_FALSE(device_.exists("/apps/lost"));
  EXPECT_TRUE(device_.exists("/apps/shop.app/META-INF/MANIFEST.MF"));
  EXPECT_EQ(device_.read(loaded_.data() + "/data/state"), "old");
}

TEST_F(AppRestore, ReadsWhatOtherProgramsHavePackedAgain) {
  device_.add_file(bought_, "native/caf\xc3\xa9 " + std::string(200, 'l'), "program", 0750);
  const Snapshot applications = device_.snapshot("/apps");
  const Snapshot data = device_.snapshot(APPLICATION_DATA);
  back_up();
  ASSERT_EQ(device_
                .shell("mkdir /tmp/x; cd /tmp/x; tar -xf ../a.tar 2> /dev/null; tar --quoting-style=literal "
                       "-tf ../a.tar 2> /dev/null "
                       "| sed 's,/$,,; s,^/,,' > ../names")
                .status,
            0);
  for (const char* packing :
       {"tar --format=gnu -cf", "tar --format=pax -czf", "LC_ALL=C.UTF-8 bsdtar --format=cpio -cf"}) {
    device_.add_file(bought_, "native/added", "added");
    device_.add_data(loaded_, "data/state", "changed");
    const Outcome outcome =
        device_.shell("cd /tmp/x; " + std::string(packing) +
                      " ../again --no-recursion -T ../names && harbix -r -f /tmp/again app");
    EXPECT_EQ(outcome.status, 0) << packing << outcome.errors;
    EXPECT_EQ(difference(applications, device_.snapshot("/apps")), "") << packing;
    EXPECT_EQ(difference(data, device_.snapshot(APPLICATION_DATA)), "") << packing;
  }
}

TEST_F(AppRestore, NeedsTheAccountAndTheListBeforeItRemovesAnything) {
  back_up();
  const Outcome no_list = device_.shell(
      "mount -t tmpfs none /pps; harbix -r -f /tmp/a.tar app; status=$?; umount /pps; exit $status");
  EXPECT_EQ(no_list.status, 1);
  EXPECT_EQ(no_list.errors,
            "Failed to open /pps/system/installer/registeredapps/.all\n"
            "Error reading registered apps\n");
  const Outcome no_user = device_.shell("sed -i /^apps:/d /etc/passwd; harbix -r -f /tmp/a.tar app");
  EXPECT_EQ(no_user.status, 1);
  EXPECT_THAT(no_user.errors, HasSubstr("apps"));
  EXPECT_EQ(lines_of(no_user.errors).size(), 1U) << no_user.errors;
  EXPECT_TRUE(device_.exists("/apps/shop.app/META-INF/MANIFEST.MF"));
  EXPECT_THAT(device_.registered(), testing::SizeIs(3));
}

}  // namespace
}  // namespace harbix::test
