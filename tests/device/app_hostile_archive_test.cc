#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/application_device.h"
#include "tests/support/crafted_package.h"
#include "tests/support/hostile_archives.h"

namespace harbix::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::IsEmpty;
using testing::Key;
using testing::UnorderedElementsAre;

const std::string REFUSED = "Application binaries will not be restored.";
const std::string BINARY_MISFIT = "Error: The package '/app/a.pkg/bin' does not fit its description\n";
const std::string DATA_MISFIT = "Error: The package '/app/a.pkg/appdata' does not fit its description\n";

/// Restores crafted packages of the application "a", and holds everything outside of that application's
/// folders against what it was.
class AppHostileArchive : public testing::Test {
 protected:
  AppHostileArchive() {
    for (const InstalledApplication& each : {a_, neighbour_, other_}) {
      device_.install(each);
      device_.add_file(each, "main", "old");
      device_.add_data(each, "data/state", "old");
    }
    device_.write("/tmp/victim/file", "untouched");
  }

  Outcome restore(const std::vector<CraftedPackage>& packages,
                  const std::vector<std::string>& may_change = {"/apps/a", "/accounts/1000/appdata/a"}) {
    const Snapshot before = device_.everything_but(may_change);
    Outcome outcome = device_.harbix({"-r", "app"}, archive_of(packages));
    EXPECT_EQ(difference(before, device_.everything_but(may_change)), "");
    EXPECT_LT(outcome.status, 128) << outcome.errors;
    return outcome;
  }

  ApplicationDevice device_;
  InstalledApplication a_{.id = "a", .package = "a.pkg", .group = 10200, .extras = "source::sideload"};
  InstalledApplication neighbour_{
      .id = "abc", .package = "abc.pkg", .group = 10201, .extras = "source::sideload"};
  InstalledApplication other_{
      .id = "other", .package = "other.pkg", .group = 10202, .extras = "source::sideload"};
};

TEST_F(AppHostileArchive, NamesOnePlainFolderOrNone) {
  for (const std::string& folder : hostile::APPLICATION_FOLDERS) {
    const Outcome binaries = restore({hostile::binary_in(folder)}, {});
    EXPECT_EQ(binaries.status, 1) << folder << binaries.errors;
    EXPECT_EQ(binaries.errors, BINARY_MISFIT + REFUSED + "\n") << folder;
    const Outcome data = restore({hostile::data_in(folder)}, {});
    EXPECT_EQ(data.status, 1) << folder << data.errors;
    EXPECT_EQ(data.errors, DATA_MISFIT) << folder;
  }
}

TEST_F(AppHostileArchive, IsToldWhatIsWrongWithItsFolderWhenVerbose) {
  struct Row {
    const char* directory;
    const char* reason;
  };
  for (const Row& row :
       {Row{"", "Different basenames: '/apps' ''"}, Row{"a/b", "Not rooted at apps: '/apps/a/b'"}}) {
    const CraftedPackage package = CraftedPackage("/app/a.pkg/bin", "/apps/a")
                                       .attribute("Data-Directory", "/accounts/1000/appdata/a")
                                       .attribute("App-Directory", row.directory);
    const Outcome outcome = device_.harbix({"-v", "-r", "app"}, archive_of({package}));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(lines_of(outcome.errors), AllOf(Contains(row.reason), Contains(REFUSED)));
  }
}

TEST_F(AppHostileArchive, CannotInstallAPartOfTheHomeScreenAsAnApplication) {
  for (const std::string component : {"sys.navigator", "sys.systemtray"}) {
    device_.make_owned_folder("/accounts/1000/appdata/" + component + "/data", 0770, device_.user("apps"), 0);
    device_.write_owned("/accounts/1000/appdata/" + component + "/data/state", "old", 0600,
                        device_.user("apps"), 0);
    const Outcome outcome = restore(hostile::home_screen_part(component), {});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(lines_of(outcome.errors),
                AllOf(Contains(REFUSED),
                      Contains("Error: The package '/app/other.pkg/appdata' does not fit its description")));
  }
}

TEST_F(AppHostileArchive, IsRefusedForOneRecordThatLeavesTheApplication) {
  const auto expect_refusal = [this](const CraftedPackage& binary, const CraftedPackage& data,
                                     const std::string& path) {
    const Outcome binaries = restore({binary}, {});
    const Outcome own_data = restore({data}, {});
    if (path.ends_with('/')) return;  // the reader takes it for a folder, and its data for a damaged header
    EXPECT_EQ(binaries.errors, BINARY_MISFIT + REFUSED + "\n") << path;
    EXPECT_EQ(own_data.errors, DATA_MISFIT) << path;
    EXPECT_EQ(binaries.status + own_data.status, 2) << path;
  };
  for (const std::string& end : hostile::RECORD_ENDS)
    expect_refusal(hostile::binary_with("/apps/a" + end, "/app/a.pkg/bin" + end),
                   hostile::data_with(a_.data() + end, "/app/a.pkg/appdata" + end), end);
  for (const std::string& path : hostile::RECORD_PATHS)
    expect_refusal(hostile::binary_with(path, "/app/a.pkg/bin/" + path),
                   hostile::data_with(path, "/app/a.pkg/appdata/" + path), path);
}

TEST_F(AppHostileArchive, CannotCallAnotherFolderItsData) {
  for (const std::string& folder : hostile::DATA_FOLDERS) {
    EXPECT_EQ(restore({hostile::data_called(folder)}, {}).errors, DATA_MISFIT) << folder;
    EXPECT_EQ(restore({hostile::binary_with_data_called(folder)}, {}).errors, BINARY_MISFIT + REFUSED + "\n")
        << folder;
  }
}

TEST_F(AppHostileArchive, BringsOfItsDataTheThreeFoldersOnly) {
  const Outcome outcome = restore({hostile::data_beside_the_three_folders()});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(device_.snapshot(a_.data()), UnorderedElementsAre(Key("data"), Key("data/a"), Key("logs"),
                                                                Key("logs/b"), Key("tmp"), Key("tmp/c")));
  for (const char* name : {"database/d", "top", "other", "data2"}) {
    EXPECT_THAT(lines_of(outcome.errors), Contains("Skip: " + a_.data() + "/" + name));
  }
}

TEST_F(AppHostileArchive, CannotGoThroughItsOwnLinks) {
  const Outcome outcome = restore(hostile::through_own_links());
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(device_.read("/tmp/victim/file"), "untouched");
  EXPECT_EQ(device_.read("/apps/a/last"), "last");
  EXPECT_EQ(device_.read(a_.data() + "/data/last"), "last");
  EXPECT_EQ(device_.snapshot("/apps/a").at("alone"),
            (Item{S_IFLNK | 0777U, device_.user("apps"), a_.group, "/tmp/victim"}));
}

TEST_F(AppHostileArchive, CannotGoThroughLinksThatWereThere) {
  device_.make_owned_link("/apps/a/there", "/tmp/victim", device_.user("apps"), a_.group);
  device_.write_owned("/apps/file", "a file", 0640, device_.user("apps"), 0);
  device_.make_owned_link("/apps/link", "/tmp/victim", device_.user("apps"), a_.group);
  device_.make_owned_link("/accounts/1000/appdata/a/data/there", "/tmp/victim", a_.data_user(), a_.group);
  const Outcome outcome = restore(hostile::through_links_that_were_there());
  // What could not be written in full is no application.
  EXPECT_EQ(outcome.status, 1);
  EXPECT_FALSE(device_.exists("/apps/a"));
  EXPECT_THAT(lines_of(outcome.errors), Contains(REFUSED).Times(2));
  device_.make_owned_folder("/apps/a", 0750, device_.user("apps"), a_.group);

  std::filesystem::remove_all(device_.outside(a_.data()));
  device_.make_owned_link(a_.data(), "/tmp/victim", 0, 0);
  EXPECT_EQ(restore({hostile::data().folder("data").file("data/state", "new")}).status, 0);
  EXPECT_EQ(device_.read(a_.data() + "/data/state"), "new");
  EXPECT_TRUE(S_ISDIR(device_.snapshot(APPLICATION_DATA).at("a").mode));
}

TEST_F(AppHostileArchive, BringsNoHardLinksDevicesOrFifos) {
  const std::string base = a_.data() + "/data/";
  const Outcome outcome = restore(hostile::other_kinds());
  EXPECT_EQ(outcome.status, 1) << outcome.errors;
  EXPECT_THAT(device_.snapshot(base), UnorderedElementsAre(Key("last")));
  EXPECT_THAT(device_.snapshot("/apps/a"),
              UnorderedElementsAre(Key("META-INF"), Key("META-INF/MANIFEST.MF"), Key("main"), Key("last")));
  EXPECT_THAT(lines_of(outcome.errors), Contains("Skip: /apps/a/hard" + std::to_string(S_IFREG)));
  EXPECT_THAT(lines_of(outcome.errors), Contains("Skip: " + base + "link" + std::to_string(S_IFREG)));
  EXPECT_THAT(lines_of(outcome.errors),
              Contains("Error: The record of '" + base + "link" + std::to_string(S_IFREG) +
                       "' describes another kind of item than its entry"));
  struct ::stat victim {};
  ASSERT_EQ(::lstat(device_.outside("/tmp/victim/file").c_str(), &victim), 0);
  EXPECT_EQ(victim.st_nlink, 1U);
}

TEST_F(AppHostileArchive, BringsNoSetIdBits) {
  ASSERT_EQ(restore(hostile::set_id_bits()).status, 0);
  EXPECT_EQ(device_.snapshot("/apps/a").at("s").mode, S_IFREG | 0750U);
  EXPECT_EQ(device_.snapshot("/apps/a").at("d").mode, S_IFDIR | 0750U);
  EXPECT_EQ(device_.snapshot(a_.data()).at("data/s").mode, S_IFREG | 0770U);
}

TEST_F(AppHostileArchive, ExtractsNothingUnderAnotherRecordsName) {
  const std::string base = a_.data() + "/data/";
  const Outcome outcome = restore({hostile::other_records_names()});
  EXPECT_EQ(outcome.status, 1) << outcome.errors;
  EXPECT_THAT(device_.snapshot(base), IsEmpty());
}

TEST_F(AppHostileArchive, MayCallItsPackageAnything) {
  for (const std::string& name : hostile::PACKAGE_NAMES) {
    const Outcome outcome = restore({hostile::package_called(name)}, {});
    EXPECT_LT(outcome.status, 2) << name;
  }
}

TEST_F(AppHostileArchive, WithFlippedBitsStaysInApplicationFolders) {
  const std::vector<std::string> folders{"/apps", "/accounts/1000/appdata"};
  const Snapshot before = device_.everything_but(folders);
  for (const hostile::Archive& each : hostile::flipped_archives(hostile::good_application_archive(), 40)) {
    const Outcome outcome = device_.harbix({"-r", "app"}, each.bytes);
    EXPECT_LE(outcome.status, 2) << each.what;
  }
  EXPECT_EQ(difference(before, device_.everything_but(folders)), "");
  for (const InstalledApplication& each : {neighbour_, other_}) {
    EXPECT_EQ(device_.read(each.folder() + "/main"), "old");
    EXPECT_EQ(device_.read(each.data() + "/data/state"), "old");
  }
}

}  // namespace
}  // namespace harbix::test
