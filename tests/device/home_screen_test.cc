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
using testing::IsEmpty;
using testing::Key;
using testing::Not;
using testing::SizeIs;
using testing::UnorderedElementsAre;

const std::string NAVIGATOR = NAVIGATOR_DATA;
const std::string TRAY = "/accounts/1000/appdata/sys.systemtray";
const std::string OBJECTS = "/pps/system/navigator/applications";

/// A device with both components' data, and programs in the place of those that stop them: they write down
/// what they were called with, and what the navigator's data was then.
class HomeScreen : public testing::Test {
 protected:
  HomeScreen() {
    for (const std::string& component : {NAVIGATOR, TRAY}) {
      for (const char* name : {"", "/data", "/logs", "/tmp"}) {
        device_.make_owned_folder(component + name, 0770, device_.user("apps"), 0);
      }
    }
    add(NAVIGATOR + "/data/state", "old", 0600);
  }

  void add(const std::string& path, const std::string& content, mode_t mode) {
    device_.make_owned_folder(std::filesystem::path(path).parent_path(), 0700, device_.user("apps"), 0);
    device_.write_owned(path, content, mode, device_.user("apps"), 0);
  }

  void add_programs(const std::string& ending = "") {
    const std::string note =
        "cat " + NAVIGATOR + "/data/state >> /tmp/calls; echo >> /tmp/calls; echo printed\n";
    device_.write("/base/bin/slay", "#!/bin/sh\necho \"$0 $*\" >> /tmp/calls\n" + note + ending, 0755);
    device_.write("/base/scripts/startup.sh", "echo \"$0 $*\" >> /tmp/calls\n" + note + ending, 0644);
    device_.link("/base/bin/sh", "/bin/sh");
  }

  static CraftedPackage navigator() { return {"/app/sys.navigator/appdata", NAVIGATOR}; }
  static CraftedPackage tray() { return {"/app/sys.systemtray/appdata", TRAY}; }
  static CraftedPackage objects() { return {"/app/sys.navigator/pps", ""}; }

  Outcome restore(const std::vector<CraftedPackage>& packages, const std::string& before = "true") {
    return device_.shell(before + "; harbix -r app", archive_of(packages));
  }

  [[nodiscard]] Item folder(mode_t mode) const { return {S_IFDIR | mode, device_.user("apps"), 0, ""}; }
  [[nodiscard]] Item file(mode_t mode, const std::string& content) const {
    return {S_IFREG | mode, device_.user("apps"), 0, content};
  }

  ApplicationDevice device_;
};

TEST_F(HomeScreen, IsStoppedOnceBeforeItsDataChanges) {
  for (const char* ending : {"", "exit 3\n", "kill -9 $$\n"}) {
    add(NAVIGATOR + "/data/state", "old", 0600);
    add_programs(ending);
    const Outcome outcome = restore({navigator().file("data/state", "new"), tray().file("data/a", "a"),
                                     navigator().file("data/more", "more")});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(
        lines_of(device_.read("/tmp/calls")),
        ElementsAre("/base/bin/slay -f navigator", "old", "/base/scripts/startup.sh launcher stop", "old"));
    EXPECT_THAT(lines_of(outcome.errors),
                AllOf(Contains("printed").Times(2), Contains("HMI component (sys.navigator)").Times(2),
                      Contains("HMI component (sys.systemtray)").Times(1)));
    EXPECT_THAT(outcome.errors, Not(HasSubstr("Error")));
    for (const char* path : {"/tmp/calls", "/base/bin/sh"}) std::filesystem::remove(device_.outside(path));
  }
}

TEST_F(HomeScreen, OfEntriesWithoutARecordFailsTheRestore) {
  // What a flipped bit in "File" makes of a package with one record.
  for (CraftedPackage package : {navigator(), tray(), objects()}) {
    const std::string name = package.text().substr(0, package.text().find("/.backup.metadata")) + "/data/a";
    const Outcome outcome = restore({package.entry(TarBuilder::FILE, name, "1")});
    EXPECT_EQ(outcome.status, 1) << name;
    EXPECT_THAT(lines_of(outcome.errors), Contains("Error: No record in the manifest for '" + name + "'"));
  }
  EXPECT_EQ(restore({navigator(), tray(), objects()}).status, 0);
}

TEST_F(HomeScreen, IsNotStoppedForApplications) {
  add_programs();
  ASSERT_EQ(restore({CraftedPackage::binary("plain").file("main", "1")}).status, 0);
  EXPECT_FALSE(device_.exists("/tmp/calls"));
}

TEST_F(HomeScreen, IsRestoredWithoutTheProgramsThatStopIt) {
  const Outcome missing = restore({navigator().file("data/state", "new"), tray().file("data/a", "a")});
  EXPECT_EQ(missing.status, 0);
  EXPECT_THAT(
      lines_of(missing.errors),
      AllOf(Contains("Error slaying navigator No such file or directory").Times(1),
            Contains("Error executing /base/bin/sh launcher stop ('No such file or directory')").Times(1)));
  EXPECT_THAT(device_.logged(LOG_PRIORITY_WARNING),
              ElementsAre("Could not kill navigator", "Could not stop launcher"));
  EXPECT_EQ(device_.read(NAVIGATOR + "/data/state"), "new");

  device_.write("/base/bin/slay", "#!/bin/sh\n", 0644);
  const Outcome forbidden = restore({navigator().file("data/state", "newer")});
  EXPECT_THAT(lines_of(forbidden.errors), Contains("Error slaying navigator Permission denied"));
  EXPECT_EQ(device_.read(NAVIGATOR + "/data/state"), "newer");
}

TEST_F(HomeScreen, ObjectsComeBackLiveAndNoOthersDo) {
  const std::string create = "mkdir -p " + OBJECTS +
                             "; for o in uriapps web_shortcuts recent; do echo a::old > " + OBJECTS +
                             "/$o; done; echo '[n]b::transient' > " + OBJECTS + "/uriapps; ";
  const Outcome backup = device_.shell(create + "harbix -f /tmp/a.tar app sys.navigator");
  ASSERT_EQ(backup.status, 0) << backup.errors;
  const std::string name = "/app/sys.navigator/pps";
  EXPECT_EQ(device_.content("/tmp/a.tar", name + "/.backup.metadata"),
            "Package: sys.navigator\nApp-Directory: sys.navigator\nData-Directory: sys.navigator\nFile: " +
                OBJECTS + "/uriapps\nFile: " + OBJECTS + "/web_shortcuts\n\n");
  EXPECT_EQ(device_.content("/tmp/a.tar", name + OBJECTS + "/uriapps"), "@uriapps\na::old\n");

  // A reader that waits sees it come.
  const Outcome live = device_.shell(
      "cd " + OBJECTS +
      "; echo a::new > uriapps; exec 3< 'web_shortcuts?wait,delta'; echo a::new > web_shortcuts\n"
      "dd bs=4096 count=1 status=none <&3 > /dev/null; (dd bs=4096 count=1 status=none <&3 > /tmp/seen) &\n"
      "sleep 0.2; harbix -r -f /tmp/a.tar app; echo $?; wait; cat uriapps /tmp/seen");
  EXPECT_EQ(live.output, "0\n@uriapps\na::old\n@web_shortcuts\na::old\n");
  EXPECT_THAT(lines_of(live.errors), AllOf(Contains("Processing: /app/sys.navigator/pps/.backup.metadata"),
                                           Contains("Navigator pps object: " + name + OBJECTS + "/uriapps"),
                                           Contains("Restoring: " + OBJECTS + "/uriapps"),
                                           Contains("Restoring: " + OBJECTS + "/web_shortcuts")));

  const auto object = [](CraftedPackage package, const std::string& path, const std::string& text) {
    return package.record(S_IFREG | 0644U, path)
        .entry(TarBuilder::FILE, "/app/sys.navigator/pps" + path, text);
  };
  const std::string other = OBJECTS + "/recent";
  CraftedPackage others = object(objects(), other, "a::evil\n");
  others = object(others, "/pps/system/navigator/applications/../applications/uriapps", "a::evil\n");
  others = object(others, "/pps/system/installer/control", "die::all\n");
  others = object(others, "/etc/passwd", "evil\n");
  others = object(others, OBJECTS + "/web_shortcuts", "a::last\n-a\n[n]c::transient\n");
  const std::string passwd = device_.read("/etc/passwd");
  const Outcome crafted =
      device_.shell("harbix -r app; echo $?; cd " + OBJECTS +
                        "; cat recent uriapps web_shortcuts /pps/system/installer/control",
                    archive_of({others}));
  EXPECT_EQ(crafted.output, "0\n@recent\na::old\n@uriapps\na::old\n@web_shortcuts\na::last\n");
  EXPECT_EQ(device_.read("/etc/passwd"), passwd);
}

TEST_F(HomeScreen, ObjectThatIsNotThereFailsTheRestoreAndNothingElse) {
  const Outcome outcome =
      restore({objects()
                   .record(S_IFREG | 0644U, OBJECTS + "/uriapps")
                   .entry(TarBuilder::FILE, "/app/sys.navigator/pps" + OBJECTS + "/uriapps", "a::1\n"),
               navigator().file("data/state", "new")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(lines_of(outcome.errors),
              Contains("Error: restore_pps failed [errno:2 'No such file or directory']"));
  EXPECT_EQ(device_.read(NAVIGATOR + "/data/state"), "new");
}

TEST_F(HomeScreen, NavigatorDataIsReplacedByPrivateFiles) {
  add(NAVIGATOR + "/data/deep/er/file", "1", 0600);
  add(NAVIGATOR + "/data/.hidden", "2", 0600);
  add(NAVIGATOR + "/data/open", "3", 0666);
  add(NAVIGATOR + "/data/\xff\n:", "4", 0600);
  device_.make_owned_link(NAVIGATOR + "/data/link", "deep/er", device_.user("apps"), 0);
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "app"}).status, 0);
  add(NAVIGATOR + "/data/added/later", "5", 0600);
  add(NAVIGATOR + "/logs/log", "kept", 0600);
  const Outcome outcome = device_.harbix({"-r", "-f", "/tmp/a.tar", "app"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  Snapshot data = device_.snapshot(NAVIGATOR + "/data");
  // The glob that clears the folder matches no hidden names, and what is there is not written over.
  EXPECT_THAT(data, SizeIs(8));
  EXPECT_EQ(data.at("state"), file(0600, "old"));
  EXPECT_EQ(data.at("deep"), folder(0700));
  EXPECT_EQ(data.at("deep/er"), folder(0700));
  EXPECT_EQ(data.at("deep/er/file"), file(0600, "1"));
  EXPECT_EQ(data.at(".hidden"), file(0600, "2"));
  EXPECT_EQ(data.at("open"), file(0600, "3"));
  EXPECT_EQ(data.at("\xff\n:"), file(0600, "4"));
  EXPECT_EQ(data.at("link"), (Item{S_IFLNK | 0777U, device_.user("apps"), 0, "deep/er"}));
  EXPECT_EQ(device_.read(NAVIGATOR + "/logs/log"), "kept");
  EXPECT_THAT(lines_of(outcome.errors),
              AllOf(Contains("navigator data: /app/sys.navigator/appdata/.backup.metadata"),
                    Contains("Navigator data removed"), Contains("Restoring: " + NAVIGATOR + "/data/state")));
}

TEST_F(HomeScreen, NavigatorDataGoesEvenWhenNothingTakesItsPlace) {
  add(NAVIGATOR + "/logs/log", "old", 0600);
  const Outcome outcome = restore({navigator().file("logs/log", "new").file("logs/other", "new", 0777)});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(device_.snapshot(NAVIGATOR + "/data"), IsEmpty());
  EXPECT_EQ(device_.read(NAVIGATOR + "/logs/log"), "old");
  EXPECT_EQ(device_.snapshot(NAVIGATOR).at("logs/other"), file(0600, "new"));
  EXPECT_THAT(lines_of(outcome.errors), Contains("Skip: " + NAVIGATOR + "/logs/log"));
}

TEST_F(HomeScreen, NavigatorDataStaysWhereTheArchiveCannotBeReadAnyFurther) {
  add(NAVIGATOR + "/data/state", "old", 0600);
  const std::string package = navigator().file("data/state", "new").text();
  for (const std::size_t length : {std::size_t{1024}, std::size_t{1300}}) {
    const Outcome outcome = device_.harbix({"-r", "app"}, package.substr(0, length));
    EXPECT_EQ(outcome.status, 1) << length;
    EXPECT_EQ(device_.read(NAVIGATOR + "/data/state"), "old") << length << outcome.errors;
  }
}

TEST_F(HomeScreen, NavigatorDataIsRestoredBesideTheOldFromADamagedFile) {
  add(NAVIGATOR + "/data/old", "old", 0600);
  const std::string package = navigator().file("data/new", "new").file("data/last", "last").text();
  device_.write("/tmp/a.tar", package.substr(0, package.size() - 512));
  const Outcome outcome = device_.harbix({"-r", "-f", "/tmp/a.tar", "app"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(device_.read(NAVIGATOR + "/data/old"), "old");
  EXPECT_EQ(device_.read(NAVIGATOR + "/data/new"), "new");
}

TEST_F(HomeScreen, PackageWithoutRecordsChangesNothing) {
  ASSERT_EQ(restore({navigator(), tray(), objects()}).status, 0);
  EXPECT_EQ(device_.read(NAVIGATOR + "/data/state"), "old");
  const Outcome strange =
      restore({CraftedPackage("/app/sys.navigator/bin", NAVIGATOR).file("data/evil", "evil"),
               tray().file("data/ClockServices.sqlite", "clock")});
  EXPECT_EQ(strange.status, 0);
  EXPECT_THAT(lines_of(strange.errors),
              Contains("I'm confused: it was supposed to be HMI component. Just skip."));
  EXPECT_EQ(device_.read(NAVIGATOR + "/data/state"), "old");
  EXPECT_FALSE(device_.exists(NAVIGATOR + "/data/evil"));
  EXPECT_EQ(device_.read(TRAY + "/data/ClockServices.sqlite"), "clock");
}

TEST_F(HomeScreen, OfTheSystemTrayOnlyTheClockDatabaseComesBack) {
  add(TRAY + "/data/ClockServices.sqlite", "old", 0600);
  add(TRAY + "/data/kept", "kept", 0600);
  const Outcome outcome = restore({tray()
                                       .folder("data")
                                       .file("data/ClockServices.sqlite", "clock", 0777)
                                       .file("data/other", "evil")
                                       .file("data/ClockServices.sqlite-wal", "evil")
                                       .file("data/sub/ClockServices.sqlite", "sub", 0640)
                                       .file("data/kept", "evil")
                                       .file("tmp/ClockServices.sqlite", "tmp", 06666)
                                       .link("logs/ClockServices.sqlite", "/etc/passwd")});
  EXPECT_EQ(outcome.status, 0);
  const Snapshot data = device_.snapshot(TRAY);
  EXPECT_THAT(data,
              UnorderedElementsAre(Key("data"), Key("logs"), Key("tmp"), Key("data/ClockServices.sqlite"),
                                   Key("data/kept"), Key("data/sub"), Key("data/sub/ClockServices.sqlite"),
                                   Key("tmp/ClockServices.sqlite")));
  EXPECT_EQ(data.at("data/ClockServices.sqlite"), file(0660, "clock"));
  EXPECT_EQ(data.at("data/sub/ClockServices.sqlite"), file(0640, "sub"));
  EXPECT_EQ(data.at("tmp/ClockServices.sqlite"), file(0660, "tmp"));
  EXPECT_EQ(data.at("data/kept"), file(0600, "kept"));
  const std::string name = "/app/sys.systemtray/appdata/data/";
  EXPECT_THAT(lines_of(outcome.errors),
              AllOf(Contains("System tray data removed"),
                    Contains("ae.path: " + name + "ClockServices.sqlite  basename: ClockServices.sqlite"),
                    Contains("it: " + TRAY + "/data/ClockServices.sqlite"),
                    Contains("Restoring: " + name + "ClockServices.sqlite"),
                    Contains("Restoring: /app/sys.systemtray/appdata/logs/ClockServices.sqlite"),
                    Contains("Skip: " + TRAY + "/logs/ClockServices.sqlite"),
                    Contains("Skip: " + TRAY + "/data/other")));
}

TEST_F(HomeScreen, StaysInsideItsComponents) {
  device_.write("/tmp/victim/file", "untouched", 0666);
  const InstalledApplication other{
      .id = "other", .package = "other.pkg", .group = 10200, .extras = "source::sideload"};
  device_.install(other);
  device_.add_data(other, "data/state", "old", 0666);
  device_.make_owned_link(TRAY + "/data/there", "/tmp/victim", device_.user("apps"), 0);
  const auto add_record = [](CraftedPackage& package, const std::string& path, const std::string& name,
                             const std::string& rest) {
    package.record(S_IFREG | 0660U, path, 4).entry(TarBuilder::FILE, name + rest, "evil");
  };
  const auto with_evil = [&](CraftedPackage package, const std::string& base, const std::string& name) {
    const std::string last = "/ClockServices.sqlite";
    for (const std::string path : {"/tmp/victim", "/accounts/1000/appdata/other/data",
                                   "/accounts/1000/appdata", "/apps/other", "/etc", ""}) {
      add_record(package, path + last, name, path + last);
    }
    for (const std::string rest :
         {"/../other/data", "x/data", "/data/..", "//data", "/./data", "/../../../../tmp/victim"}) {
      const std::string place = rest + last;
      add_record(package, base + place, name, place);
    }
    return package.record(S_IFREG | 0660U, base, 4)
        .link("data/out", "/tmp/victim")
        .file("data/out" + last, "evil")
        .link("data/up", "../../other/data")
        .link("data/beside", base + "x/file")
        .link("data/sub" + last, "/tmp/victim/file")
        .file("data/there" + last, "evil")
        .record(S_IFREG | 0660U, base + "/data/hard" + last)
        .entry(TarBuilder::HARD_LINK, name + "/data/hard" + last, "", 0660, "/tmp/victim/file")
        .record(S_IFCHR | 0660U, base + "/data/null" + last)
        .entry(TarBuilder::CHARACTER_DEVICE, name + "/data/null" + last)
        .link("data/inside", "last/ClockServices.sqlite")
        .file("data/last" + last, "last");
  };
  const Snapshot before = device_.everything_but({NAVIGATOR, TRAY});
  const Outcome outcome = restore({with_evil(navigator(), NAVIGATOR, "/app/sys.navigator/appdata"),
                                   with_evil(tray(), TRAY, "/app/sys.systemtray/appdata")});
  EXPECT_EQ(outcome.status, 1) << outcome.errors;
  EXPECT_EQ(difference(before, device_.everything_but({NAVIGATOR, TRAY})), "");
  // Where the link out was refused, its name is free for a folder.
  EXPECT_THAT(device_.snapshot(NAVIGATOR),
              UnorderedElementsAre(Key("data"), Key("logs"), Key("tmp"), Key("data/out"),
                                   Key("data/out/ClockServices.sqlite"), Key("data/there"),
                                   Key("data/there/ClockServices.sqlite"), Key("data/inside"),
                                   Key("data/last"), Key("data/last/ClockServices.sqlite")));
  EXPECT_EQ(device_.read(TRAY + "/data/last/ClockServices.sqlite"), "last");
  EXPECT_EQ(device_.snapshot(TRAY).at("data/there").content, "/tmp/victim");
}

TEST_F(HomeScreen, RemovesNothingBehindLinks) {
  device_.write("/tmp/victim/file", "untouched", 0666);
  std::filesystem::permissions(device_.outside("/tmp/victim"), std::filesystem::perms::all);
  for (const std::string& folder : {NAVIGATOR + "/data", NAVIGATOR}) {
    std::filesystem::remove_all(device_.outside(folder));
    device_.make_owned_link(folder, "/tmp/victim", device_.user("apps"), 0);
    const Snapshot before = device_.everything_but({});
    EXPECT_EQ(restore({navigator().file("data/file", "evil").file("data/new", "evil")}).status, 1) << folder;
    EXPECT_EQ(difference(before, device_.everything_but({})), "") << folder;
  }
}

TEST_F(HomeScreen, RemovesNothingBehindLinksThatTheArchiveBrings) {
  std::filesystem::remove_all(device_.outside(NAVIGATOR + "/data"));
  device_.install({.id = "other", .package = "other.pkg", .group = 10200, .extras = "source::sideload"});
  const Snapshot before = device_.everything_but({NAVIGATOR});
  // Inside by their texts; the system leaves through the first link's short cut.
  const CraftedPackage links = navigator()
                                   .folder("logs/a/b/c/d")
                                   .link("logs/a/b/c/d/up", "../../../..")
                                   .link("data", "logs/a/b/c/d/up/../../../../../apps");
  EXPECT_EQ(restore({links, navigator().file("data/state", "evil")}).status, 0);
  EXPECT_EQ(difference(before, device_.everything_but({NAVIGATOR})), "");
}

}  // namespace
}  // namespace harbix::test
