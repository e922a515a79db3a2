#include <sys/stat.h>

#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/application_device.h"
#include "tests/support/crafted_package.h"

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

  /// Extras that make no storefront application of it: the next restore would uninstall it.
  static CraftedPackage binary() {
    return CraftedPackage::binary("a").attribute("Extras", "source::sideload");
  }
  static CraftedPackage data() { return CraftedPackage::data("a"); }

  /// A data package with a good file and one of this path.
  static CraftedPackage data_with(const std::string& path, const std::string& name) {
    return data()
        .folder("data")
        .file("data/good", "good")
        .record(S_IFREG | 0660U, path, 4)
        .entry(TarBuilder::FILE, name, "evil");
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
  for (const std::string directory : {"..", ".", "", "a/b", "/apps/a", "/", "a/..", "../apps/a", "a/", "//",
                                      "../accounts/1000/appdata/a", "../etc"}) {
    // The empty one stands last, or it would take the next line for its value.
    const auto named = [&](CraftedPackage package) {
      return package.without("App-Directory")
          .attribute("Data-Directory", "/accounts/1000/appdata/" + directory)
          .attribute("App-Directory", directory);
    };
    const Outcome binaries =
        restore({named(CraftedPackage("/app/a.pkg/bin", "/apps/" + directory)).file("evil", "evil")}, {});
    EXPECT_EQ(binaries.status, 1) << directory << binaries.errors;
    EXPECT_EQ(binaries.errors, BINARY_MISFIT + REFUSED + "\n") << directory;
    const Outcome data =
        restore({named(CraftedPackage("/app/a.pkg/appdata", "/accounts/1000/appdata/" + directory))
                     .file("data/evil", "evil")},
                {});
    EXPECT_EQ(data.status, 1) << directory << data.errors;
    EXPECT_EQ(data.errors, DATA_MISFIT) << directory;
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
    const auto named = [&](CraftedPackage package) {
      return package.attribute("App-Directory", component)
          .attribute("Data-Directory", "/accounts/1000/appdata/" + component);
    };
    const Outcome outcome =
        restore({named(CraftedPackage("/app/any.pkg/bin", "/apps/" + component)).file("main", "evil"),
                 named(CraftedPackage("/app/other.pkg/appdata", "/accounts/1000/appdata/" + component))
                     .folder("data")
                     .file("data/state", "evil")},
                {});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(lines_of(outcome.errors),
                AllOf(Contains(REFUSED),
                      Contains("Error: The package '/app/other.pkg/appdata' does not fit its description")));
  }
}

TEST_F(AppHostileArchive, IsRefusedForOneRecordThatLeavesTheApplication) {
  for (const std::string rest : {"/../other/evil", "//evil", "/./evil", "", "/", "/..", "/x/../../other/evil",
                                 "/evil/", "bc/evil", "/x//y"}) {
    const Outcome binaries = restore({binary()
                                          .file("good", "good")
                                          .record(S_IFREG | 0660U, "/apps/a" + rest, 4)
                                          .entry(TarBuilder::FILE, "/app/a.pkg/bin" + rest, "evil")},
                                     {});
    const Outcome data =
        restore({data_with("/accounts/1000/appdata/a" + rest, "/app/a.pkg/appdata" + rest)}, {});
    if (rest.ends_with('/')) continue;  // the reader takes it for a folder, and its data for a damaged header
    EXPECT_EQ(binaries.errors, BINARY_MISFIT + REFUSED + "\n") << rest;
    EXPECT_EQ(data.errors, DATA_MISFIT) << rest;
    EXPECT_EQ(binaries.status + data.status, 2) << rest;
  }
  for (const std::string path : {"/etc/evil", "/apps/other/evil", "apps/a/evil", "evil", "/",
                                 "/accounts/1000/appdata/other/data/evil", "/tmp/victim/file"}) {
    const Outcome binaries = restore({binary()
                                          .file("good", "good")
                                          .record(S_IFREG | 0660U, path, 4)
                                          .entry(TarBuilder::FILE, "/app/a.pkg/bin/" + path, "evil")},
                                     {});
    const Outcome data = restore({data_with(path, "/app/a.pkg/appdata/" + path)}, {});
    if (path.ends_with('/')) continue;
    EXPECT_EQ(binaries.errors, BINARY_MISFIT + REFUSED + "\n") << path;
    EXPECT_EQ(data.errors, DATA_MISFIT) << path;
  }
}

TEST_F(AppHostileArchive, CannotCallAnotherFolderItsData) {
  for (const std::string folder :
       {"/etc", "/", "/accounts/1000/appdata/other", "/accounts/1000/appdata", "/accounts/1000/appdata/abc",
        "/accounts/1000/appdata/../appdata/a", "accounts/1000/appdata/a", "/apps/a", "/tmp/victim"}) {
    CraftedPackage package("/app/a.pkg/appdata", folder);
    package.attribute("App-Directory", "a").attribute("Data-Directory", folder).file("data/evil", "evil");
    EXPECT_EQ(restore({package}, {}).errors, DATA_MISFIT) << folder;
    EXPECT_EQ(restore({binary().attribute("Data-Directory", folder).file("evil", "evil")}, {}).errors,
              BINARY_MISFIT + REFUSED + "\n")
        << folder;
  }
}

TEST_F(AppHostileArchive, BringsOfItsDataTheThreeFoldersOnly) {
  const Outcome outcome = restore({data()
                                       .folder("data")
                                       .file("data/a", "1")
                                       .file("logs/b", "2")
                                       .file("tmp/c", "3")
                                       .file("database/d", "4")
                                       .file("top", "5")
                                       .folder("other")
                                       .link("data2", "/etc")});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(device_.snapshot(a_.data()), UnorderedElementsAre(Key("data"), Key("data/a"), Key("logs"),
                                                                Key("logs/b"), Key("tmp"), Key("tmp/c")));
  for (const char* name : {"database/d", "top", "other", "data2"}) {
    EXPECT_THAT(lines_of(outcome.errors), Contains("Skip: " + a_.data() + "/" + name));
  }
}

TEST_F(AppHostileArchive, CannotGoThroughItsOwnLinks) {
  const auto with_links = [](CraftedPackage package, const std::string& in) {
    return package.link(in + "out", "/tmp/victim")
        .file(in + "out/file", "evil")
        .file(in + "out/evil", "evil")
        .link(in + "up", "../../../../../tmp/victim")
        .file(in + "up/evil", "evil")
        .link(in + "first", "second")
        .link(in + "second", "/tmp/victim")
        .file(in + "first/evil", "evil")
        .link(in + "direct", "/tmp/victim/file")
        .file(in + "direct", "evil")
        .link(in + "alone", "/tmp/victim")
        .link(in + "folder", "/tmp/victim")
        .folder(in + "folder", 0777)
        .file(in + "last", "last");
  };
  const Outcome outcome = restore({with_links(binary(), ""), with_links(data().folder("data"), "data/")});
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
  const Outcome outcome =
      restore({binary().file("there/evil", "evil").file("there/file", "evil").file("last", "last"),
               data().folder("data").file("data/there/evil", "evil"),
               CraftedPackage::binary("link").file("evil", "evil").file("file", "evil"),
               CraftedPackage::data("link").file("data/evil", "evil"),
               CraftedPackage::binary("file").file("evil", "evil")});
  // What could not be written in full is no application.
  EXPECT_EQ(outcome.status, 1);
  EXPECT_FALSE(device_.exists("/apps/a"));
  EXPECT_THAT(lines_of(outcome.errors), Contains(REFUSED).Times(2));
  device_.make_owned_folder("/apps/a", 0750, device_.user("apps"), a_.group);

  std::filesystem::remove_all(device_.outside(a_.data()));
  device_.make_owned_link(a_.data(), "/tmp/victim", 0, 0);
  EXPECT_EQ(restore({data().folder("data").file("data/state", "new")}).status, 0);
  EXPECT_EQ(device_.read(a_.data() + "/data/state"), "new");
  EXPECT_TRUE(S_ISDIR(device_.snapshot(APPLICATION_DATA).at("a").mode));
}

TEST_F(AppHostileArchive, BringsNoHardLinksDevicesOrFifos) {
  const auto with_kinds = [](CraftedPackage package, const std::string& base, const std::string& name) {
    // Whether the record is honest about it or not.
    for (const mode_t type :
         std::initializer_list<mode_t>{S_IFREG, S_IFCHR, S_IFBLK, S_IFIFO, S_IFSOCK, S_IFDIR, S_IFLNK}) {
      const std::string number = std::to_string(type);
      const auto add = [&](const std::string& kind, char entry_type, const std::string& target = "") {
        std::string item = kind;
        item += number;
        package.record(type | 0666U, base + item).entry(entry_type, name + item, "", 0666, target);
      };
      add("hard", TarBuilder::HARD_LINK, "/tmp/victim/file");
      add("character", TarBuilder::CHARACTER_DEVICE);
      add("block", TarBuilder::BLOCK_DEVICE);
      add("fifo", TarBuilder::FIFO);
      // Records of another kind than their entries.
      if (type != S_IFREG) add("file", TarBuilder::FILE);
      if (type != S_IFDIR) add("folder", TarBuilder::FOLDER);
      if (type != S_IFLNK) add("link", TarBuilder::SYMBOLIC_LINK, "/tmp/victim/file");
    }
    return package;
  };
  const std::string base = a_.data() + "/data/";
  const Outcome outcome = restore(
      {with_kinds(binary(), "/apps/a/", "/app/a.pkg/bin/").file("last", "last"),
       with_kinds(data().folder("data"), base, "/app/a.pkg/appdata/data/").file("data/last", "last")});
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
  ASSERT_EQ(restore({binary().file("s", "s", 06777).folder("d", 07777),
                     data().folder("data").file("data/s", "s", 07777)})
                .status,
            0);
  EXPECT_EQ(device_.snapshot("/apps/a").at("s").mode, S_IFREG | 0750U);
  EXPECT_EQ(device_.snapshot("/apps/a").at("d").mode, S_IFDIR | 0750U);
  EXPECT_EQ(device_.snapshot(a_.data()).at("data/s").mode, S_IFREG | 0770U);
}

TEST_F(AppHostileArchive, ExtractsNothingUnderAnotherRecordsName) {
  const std::string base = a_.data() + "/data/";
  const Outcome outcome = restore({data()
                                       .folder("data")
                                       .record(S_IFREG | 0660U, base + "a", 4)
                                       .entry(TarBuilder::FILE, "/app/a.pkg/appdata/data/b", "evil")
                                       .entry(TarBuilder::FILE, "/app/a.pkg/bin/data/a", "evil")
                                       .entry(TarBuilder::FILE, "/app/other.pkg/appdata/data/a", "evil")
                                       .entry(TarBuilder::FILE, base + "a", "evil")
                                       .entry(TarBuilder::FILE, "data/a", "evil")
                                       .entry(TarBuilder::FILE, "/app/a.pkg/appdata/data/../data/a", "evil")
                                       .entry(TarBuilder::FILE, "/etc/evil", "evil")});
  EXPECT_EQ(outcome.status, 1) << outcome.errors;
  EXPECT_THAT(device_.snapshot(base), IsEmpty());
}

TEST_F(AppHostileArchive, MayCallItsPackageAnything) {
  for (const std::string name : {"/app/../bin", "/app/./appdata", "/app/%s%n/bin", "/app/ÿ/appdata"}) {
    const Outcome outcome = restore({CraftedPackage(name, "/apps/x")
                                         .attribute("App-Directory", "../etc")
                                         .attribute("Data-Directory", "/etc")},
                                    {});
    EXPECT_LT(outcome.status, 2) << name;
  }
}

TEST_F(AppHostileArchive, WithFlippedBitsStaysInApplicationFolders) {
  const std::string archive =
      archive_of({binary().folder("lib").link("lib/link", "../main").file("main", "1"),
                  data().folder("data").file("data/state", "2")});
  std::mt19937 random(20);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same damage every time
  const std::vector<std::string> folders{"/apps", "/accounts/1000/appdata"};
  const Snapshot before = device_.everything_but(folders);
  for (int round = 0; round < 40; ++round) {
    std::string damaged = archive;
    const std::size_t position = random() % (archive.size() - 1024);
    damaged[position] = static_cast<char>(damaged[position] ^ (1 << (random() % 8)));
    const Outcome outcome = device_.harbix({"-r", "app"}, damaged);
    EXPECT_LE(outcome.status, 2) << "byte " << position;
  }
  EXPECT_EQ(difference(before, device_.everything_but(folders)), "");
  for (const InstalledApplication& each : {neighbour_, other_}) {
    EXPECT_EQ(device_.read(each.folder() + "/main"), "old");
    EXPECT_EQ(device_.read(each.data() + "/data/state"), "old");
  }
}

}  // namespace
}  // namespace harbix::test
