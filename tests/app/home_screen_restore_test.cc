#include "app/home_screen_restore.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/app/app_device.h"
#include "tests/support/archive.h"
#include "tests/support/captured_output.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using harbix::ApplicationPackage;

constexpr char OBJECTS[] = "/app/sys.navigator/pps";
constexpr char URI_APPS_OBJECT[] = "/pps/system/navigator/applications/uriapps";
constexpr char WEB_SHORTCUTS[] = "/pps/system/navigator/applications/web_shortcuts";
constexpr char NAVIGATOR[] = "/accounts/1000/appdata/sys.navigator";
constexpr char TRAY[] = "/accounts/1000/appdata/sys.systemtray";

/// Restores the package `name` from an archive of its entries alone.
/// @return what it says.
std::string restore(const std::string& name, meta::Manifest records, const TarBuilder& archive) {
  write_file("/a.tar", archive.text());
  Reader reader("/a.tar");
  const ApplicationPackage package({name + "/.backup.metadata", std::move(records)});
  const CapturedOutput errors(STDERR_FILENO);
  harbix::Completeness completeness;
  harbix::restore_home_screen(reader, package, APPS_USER, harbix::OldData::REMOVED, completeness);
  return errors.text();
}

std::string processing(const std::string& name) { return "Processing: " + name + "/.backup.metadata\n"; }

std::string processing_data(const std::string& component, const std::string& what) {
  const std::string name = "/app/" + component + "/appdata";
  return processing(name) + "app\n" + component + "\nappdata\n.backup.metadata\n" + what + ": " + name +
         "/.backup.metadata\n";
}

class HomeScreenRestore : public AppDevice {};

TEST_F(HomeScreenRestore, SaysNothingOfAPackageWithoutRecords) {
  EXPECT_TRUE(on_the_device([] {
    put(std::string(NAVIGATOR) + "/data/f", "old");
    for (const char* name : {OBJECTS, "/app/sys.navigator/appdata", "/app/sys.systemtray/bin"})
      EXPECT_EQ(restore(name, {}, TarBuilder()), "") << name;
    EXPECT_TRUE((Tree{dir("data", {file("f", "old")})}.matches(NAVIGATOR)));
  }));
}

TEST_F(HomeScreenRestore, PassesOverOtherKindsOfPackages) {
  EXPECT_TRUE(on_the_device([] {
    put(std::string(NAVIGATOR) + "/data/f", "old");
    for (const std::string kind : {"bin", "appdatax"}) {
      const std::string name = "/app/sys.navigator/" + kind;
      EXPECT_EQ(restore(name, {record(S_IFREG | 0600, std::string(NAVIGATOR) + "/data/f")},
                        TarBuilder().file(name + "/data/f", "new")),
                processing(name) + "app\nsys.navigator\n" + kind +
                    "\n.backup.metadata\nI'm confused: it was supposed to be HMI component. Just skip.\n");
    }
    EXPECT_TRUE((Tree{dir("data", {file("f", "old")})}.matches(NAVIGATOR)));
  }));
}

TEST_F(HomeScreenRestore, PublishesTheTwoObjectsAndNoOther) {
  EXPECT_TRUE(on_the_device([] {
    const std::string other = "/pps/system/navigator/applications/other";
    for (const std::string& object : {std::string(URI_APPS_OBJECT), std::string(WEB_SHORTCUTS), other})
      put(object);
    const auto entry = [](const std::string& object) { return OBJECTS + object; };
    EXPECT_EQ(restore(OBJECTS, {{"File", URI_APPS_OBJECT}, {"File", other}, {"File", WEB_SHORTCUTS}},
                      TarBuilder()
                          .file(entry(URI_APPS_OBJECT), "a::1\n")
                          .file(entry(other), "b::1\n")
                          .file(entry(WEB_SHORTCUTS), "c::1\n")),
              processing(OBJECTS) + "Navigator pps object: " + entry(URI_APPS_OBJECT) +
                  "\nRestoring: " + URI_APPS_OBJECT + "\nNavigator pps object: " + entry(other) +
                  "\nNavigator pps object: " + entry(WEB_SHORTCUTS) + "\nRestoring: " + WEB_SHORTCUTS + "\n");
    EXPECT_EQ(read_file(URI_APPS_OBJECT), "a::1\n");
    EXPECT_EQ(read_file(other), "");
    EXPECT_EQ(read_file(WEB_SHORTCUTS), "c::1\n");
  }));
}

TEST_F(HomeScreenRestore, PublishesNothingOfAnObjectThatIsNoFile) {
  EXPECT_TRUE(on_the_device([] {
    put(URI_APPS_OBJECT, "old");
    put("/etc/secret", "secret");
    for (const char type :
         {TarBuilder::HARD_LINK, TarBuilder::FIFO, TarBuilder::FOLDER, TarBuilder::SYMBOLIC_LINK}) {
      const std::string errors =
          restore(OBJECTS, {{"File", URI_APPS_OBJECT}},
                  TarBuilder().add(type, std::string(OBJECTS) + URI_APPS_OBJECT, "", 0660, "/etc/secret"));
      EXPECT_TRUE(errors.ends_with("\nSkip: " + std::string(URI_APPS_OBJECT) + "\n")) << type << errors;
      EXPECT_EQ(read_file(URI_APPS_OBJECT), "old") << type;
    }
  }));
}

TEST_F(HomeScreenRestore, ReplacesTheNavigatorsDataAndNothingElse) {
  EXPECT_TRUE(on_the_device([] {
    const std::string folder = NAVIGATOR;
    put(folder + "/data/old", "old");
    put(folder + "/data/d/old", "old");
    put(folder + "/data/.hidden", "old");
    put(folder + "/tmp/kept", "old");
    for (const char* name : {"", "/data", "/tmp", "/data/d"})
      ASSERT_EQ(::chmod((folder + name).c_str(), 0777), 0);
    const auto entry = [](const std::string& name) { return "/app/sys.navigator/appdata/" + name; };
    const std::string errors = restore(
        "/app/sys.navigator/appdata",
        {record(S_IFREG | 0660, folder + "/data/new"), record(S_IFREG | 0660, folder + "/data/.hidden"),
         record(S_IFREG | 0660, folder + "/tmp/kept"), record(S_IFLNK | 0777, folder + "/data/in"),
         record(S_IFLNK | 0777, folder + "/data/out"), record(S_IFREG | 0660, "/etc/x")},
        TarBuilder()
            .file(entry("data/new"), "new")
            .file(entry("data/.hidden"), "new")
            .file(entry("tmp/kept"), "new")
            .link(entry("data/in"), "../tmp/kept")
            .link(entry("data/out"), "/etc/passwd"));
    const auto restoring = [&folder](const std::string& name) {
      return "Restoring: " + folder + name + "\n" + folder + name + "\n";
    };
    EXPECT_EQ(
        processing_data("sys.navigator", "navigator data") + "Navigator data removed\n" +
            restoring("/data/new") + restoring("/data/.hidden") + "Skip: " + folder + "/data/.hidden\n" +
            restoring("/tmp/kept") + "Skip: " + folder + "/tmp/kept\n" + restoring("/data/in") +
            restoring("/data/out") + "Skip: " + folder + "/data/out\n" +
            "Warning: unexpected failure of read next header\nWarning: No entry in the archive for /etc/x\n",
        errors);
    EXPECT_TRUE((Tree{dir("data",
                          {file(".hidden", "old"), file("new", "new", 0600).owned_by(APPS_USER, 0),
                           link("in", "../tmp/kept").owned_by(APPS_USER, 0)},
                          0777),
                      dir("tmp", {file("kept", "old")}, 0777)}
                     .matches(folder)));
  }));
}

TEST_F(HomeScreenRestore, RemovesTheNavigatorsDataWithoutAnEntryForIt) {
  EXPECT_TRUE(on_the_device([] {
    const std::string folder = NAVIGATOR;
    put(folder + "/data/old", "old");
    ASSERT_EQ(::chmod((folder + "/data").c_str(), 0777), 0);
    static_cast<void>(
        restore("/app/sys.navigator/appdata", {record(S_IFREG | 0660, folder + "/data/gone")}, TarBuilder()));
    EXPECT_TRUE((Tree{dir("data", {}, 0777)}.matches(folder)));
  }));
}

TEST_F(HomeScreenRestore, BringsBackTheClockDatabaseOfTheTrayAlone) {
  EXPECT_TRUE(on_the_device([] {
    const std::string folder = TRAY;
    put(folder + "/data/kept", "old");
    put(folder + "/data/ClockServices.sqlite", "old");
    for (const char* name : {"", "/data"}) ASSERT_EQ(::chmod((folder + name).c_str(), 0777), 0);
    const auto entry = [](const std::string& name) { return "/app/sys.systemtray/appdata/" + name; };
    const std::string errors = restore("/app/sys.systemtray/appdata",
                                       {record(S_IFDIR | 0777, folder + "/data"),
                                        record(S_IFREG | 0777, folder + "/data/ClockServices.sqlite"),
                                        record(S_IFREG | 0777, folder + "/data/other"),
                                        record(S_IFREG | 0600, folder + "/x/ClockServices.sqlite"),
                                        record(S_IFREG | 0600, folder + "/ClockServices.sqlitex")},
                                       TarBuilder()
                                           .folder(entry("data"))
                                           .file(entry("data/ClockServices.sqlite"), "new", 0777)
                                           .file(entry("data/other"), "new")
                                           .file(entry("x/ClockServices.sqlite"), "new", 0640)
                                           .file(entry("ClockServices.sqlitex"), "new"));
    const auto met = [&](const std::string& name, const std::string& base) {
      return "ae.path: " + entry(name) + "  basename: " + base + "\nit: " + folder + "/" + name + "\n";
    };
    EXPECT_EQ(errors, processing_data("sys.systemtray", "systray data") + "System tray data removed\n" +
                          met("data", "data") + "Skip: " + folder + "/data\n" +
                          met("data/ClockServices.sqlite", "ClockServices.sqlite") +
                          "Restoring: " + entry("data/ClockServices.sqlite") + "\n" +
                          met("data/other", "other") + "Skip: " + folder + "/data/other\n" +
                          met("x/ClockServices.sqlite", "ClockServices.sqlite") +
                          "Restoring: " + entry("x/ClockServices.sqlite") + "\n" +
                          met("ClockServices.sqlitex", "ClockServices.sqlitex") + "Skip: " + folder +
                          "/ClockServices.sqlitex\n");
    EXPECT_TRUE((Tree{
        dir("data", {file("kept", "old"), file("ClockServices.sqlite", "new", 0660).owned_by(APPS_USER, 0)},
            0777),
        dir("x", {file("ClockServices.sqlite", "new", 0640)}, 0770)}
                     .matches(folder)));
  }));
}

TEST_F(HomeScreenRestore, TakesNoClockDatabaseThatLeadsOut) {
  EXPECT_TRUE(on_the_device([] {
    const std::string folder = TRAY;
    const std::string name = folder + "/data/ClockServices.sqlite";
    for (const char type : {TarBuilder::SYMBOLIC_LINK, TarBuilder::HARD_LINK, TarBuilder::FIFO}) {
      const std::string errors =
          restore("/app/sys.systemtray/appdata", {record(S_IFREG | 0600, name)},
                  TarBuilder().add(type, "/app/sys.systemtray/appdata/data/ClockServices.sqlite", "", 0660,
                                   "/etc/passwd"));
      EXPECT_TRUE(errors.ends_with("Skip: " + name + "\n")) << errors;
      EXPECT_FALSE(fs::exists(fs::Path(name))) << type;
    }
  }));
}

}  // namespace
}  // namespace harbix::test
