#include "settings/path_list.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "base/flags.h"
#include "fs/exception.h"
#include "tests/settings/settings_device.h"
#include "tests/support/archive.h"
#include "tests/support/captured_output.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Path;
using harbix::live_name;

const std::string WALLPAPER_OBJECT = "/pps/services/navigator/wallpaper";

/// The list in an order of its own: that of the file system is anything.
std::string listed() {
  std::vector<std::string> texts;
  harbix::Completeness completeness;
  for (const Path& path : harbix::settings_path_list(completeness)) texts.push_back(path.text());
  EXPECT_TRUE(completeness.is_complete());
  return sorted_lines(texts);
}

TEST(IsPpsPath, LooksAtTheFirstComponent) {
  for (const char* path : {"/pps", "/pps/a", "/pps/", "/pps//a"})
    EXPECT_TRUE(harbix::is_pps_path(Path(path))) << path;
  for (const char* path : {"", "/", "pps/a", "/ppsx/a", "/var/pps/a", "//pps/a", "/./pps/a", "/PPS/a"})
    EXPECT_FALSE(harbix::is_pps_path(Path(path))) << path;
}

TEST(LiveName, CutsEveryComponentAtItsFirstAt) {
  struct Row {
    const char *stored, *live;
  };
  for (const Row& row :
       {Row{"/var/pps/services/x/obj@y", "/pps/services/x/obj"}, Row{"/var/pps/obj", "/pps/obj"},
        Row{"/var/pps/a@1/b@2/c@3", "/pps/a/b/c"}, Row{"/var/pps/a@b@c", "/pps/a"},
        Row{"/var/pps/a@", "/pps/a"}, Row{"/var/pps/a b@c d/\xFF@", "/pps/a b/\xFF"},
        Row{"/var/pps@x/a", "/pps/a"}, Row{"/var/pps/@", "/pps"}, Row{"/var/pps/@a/b", "/pps/b"},
        Row{"/var/pps", "/pps"}, Row{"/var/pps/", "/pps"}, Row{"/var", ""}, Row{"/var/", ""}}) {
    EXPECT_EQ(live_name(Path(row.stored)).text(), row.live) << row.stored;
  }
}

TEST(LiveName, IsThatOfTheStoreOnly) {
  EXPECT_EQ(message_of<fs::Exception>([] { static_cast<void>(live_name(Path("/etc/x"))); }),
            "Path '/etc/x' is not subdirectory of '/var'");
}

class SettingsPathList : public SettingsDevice {};

TEST_F(SettingsPathList, HasAlwaysTheWallpaper) {
  EXPECT_TRUE(on_the_device([] {
    EXPECT_EQ(listed(), WALLPAPER_OBJECT + "\n");
    put_object(WALLPAPER_OBJECT);
    EXPECT_EQ(listed(), WALLPAPER_OBJECT + "\n" + WALLPAPER_OBJECT + "\n");
    put_script("1", naming({}, {"/pps"}));
    EXPECT_EQ(listed(), WALLPAPER_OBJECT + "\n");
  }));
}

TEST_F(SettingsPathList, HasTheLiveNamesOfWhatIsStored) {
  EXPECT_TRUE(on_the_device([] {
    put("/var/pps/services/x/obj@y");
    put("/var/pps/services/x/obj@z");
    put("/var/pps/top");
    put("/var/pps/system@1/deep@2/object@3");
    put("/pps/services/x/obj");
    put("/pps/system/deep/other");
    // A name may be listed without a live object; objects that are not stored are not settings.
    EXPECT_EQ(
        listed(),
        WALLPAPER_OBJECT + "\n/pps/services/x/obj\n/pps/services/x/obj\n/pps/system/deep/object\n/pps/top\n");
  }));
}

TEST_F(SettingsPathList, LeavesOutWhatIsLiveAFolderOrALink) {
  EXPECT_TRUE(on_the_device([] {
    put("/var/pps/folder");
    std::filesystem::create_directory("/pps/folder");
    put("/var/pps/link");
    std::filesystem::create_symlink("/pps/object", "/pps/link");
    put("/var/pps/dangling");
    std::filesystem::create_symlink("nowhere", "/pps/dangling");
    put_object("/pps/object");
    // What it is in the store does not matter.
    std::filesystem::create_directory("/var/pps/live_object");
    put("/pps/live_object");
    std::filesystem::create_symlink("nowhere", "/var/pps/stored_link");
    put("/pps/stored_link");
    EXPECT_EQ(listed(), "/pps/live_object\n/pps/object\n" + WALLPAPER_OBJECT + "\n/pps/stored_link\n");
  }));
}

TEST_F(SettingsPathList, LeavesOutControlObjects) {
  EXPECT_TRUE(on_the_device([] {
    put_object("/pps/control");
    put_object("/pps/a/control");
    put("/var/pps/a/control@x");
    put_object("/pps/a/control2");
    put_object("/pps/a/Control");
    put("/var/pps/a/x@control");
    EXPECT_EQ(listed(), "/pps/a/Control\n/pps/a/control2\n/pps/a/x\n" + WALLPAPER_OBJECT + "\n");
  }));
}

TEST_F(SettingsPathList, LeavesOutControlObjectsOfTheWhitelistBelowPpsOnly) {
  EXPECT_TRUE(on_the_device([] {
    put_object("/pps/a/control");
    put_object("/pps/a/control2");
    put_object("/pps/w/control");
    put("/pps/w/other");
    put("/accounts/control");
    put("/accounts/1000/control");
    put_script("1", naming({"/pps/a/control", "/pps/w", "/accounts/control", "/accounts/1000"}));
    EXPECT_EQ(listed(), "/accounts/1000/control\n/accounts/control\n/pps/a/control2\n" + WALLPAPER_OBJECT +
                            "\n/pps/w/other\n");
  }));
}

TEST_F(SettingsPathList, LeavesOutWhatBeginsWithTheTextOfTheBlacklist) {
  EXPECT_TRUE(on_the_device([] {
    put_object("/pps/services/x");
    put_object("/pps/servicesX");
    put_object("/pps/service");
    put_object("/pps/keep");
    put_script("1", naming({}, {"/pps/services", "/pps/keep/"}));
    EXPECT_EQ(listed(), "/pps/keep\n/pps/service\n" + WALLPAPER_OBJECT + "\n");
  }));
}

TEST_F(SettingsPathList, HasWhatTheWhitelistNames) {
  EXPECT_TRUE(on_the_device([] {
    put("/w/file");
    put("/w/folder/a");
    put("/w/folder/sub/b");
    put("/w/folder/empty/x");
    std::filesystem::remove("/w/folder/empty/x");
    put("/w/not_named");
    std::filesystem::create_symlink("/w/folder", "/w/link");
    std::filesystem::create_symlink("/w/folder", "/w/folder/inner_link");
    std::filesystem::create_symlink("nowhere", "/w/dangling");
    put_script("1", naming({"/w/file", "/w/missing", "/w/folder", "/w/link", "/w/dangling", "/w/file"}));
    EXPECT_EQ(listed(),
              WALLPAPER_OBJECT +
                  "\n/w/dangling\n/w/file\n/w/file\n/w/folder/a\n/w/folder/empty\n/w/folder/inner_link\n"
                  "/w/folder/sub\n/w/folder/sub/b\n/w/link\n");
  }));
}

TEST_F(SettingsPathList, HoldsWhitelistedFoldersAgainstTheBlacklistButNotFiles) {
  EXPECT_TRUE(on_the_device([] {
    put("/w/file");
    put("/w/folder/a");
    put("/w/folder/ab");
    put("/w/folder/b");
    put("/w/folder/sub/c");
    put("/w/hidden/d");
    put_script("1", naming({"/w/file", "/w/folder", "/w/hidden"},
                           {"/w/file", "/w/folder/a", "/w/folder/sub/", "/w/hidden"}));
    EXPECT_EQ(listed(), WALLPAPER_OBJECT + "\n/w/file\n/w/folder/b\n/w/folder/sub\n");
  }));
}

TEST_F(SettingsPathList, TakesTheNamesOfTheWhitelistAsTheyWerePrinted) {
  EXPECT_TRUE(on_the_device([] {
    put("/w/x");
    put_script("1", naming({"/w/", "/w/../w/x", "/w//x", "/w/x/"}));
    EXPECT_EQ(listed(), WALLPAPER_OBJECT + "\n/w/../w/x\n/w//x\n/w/x\n");
  }));
}

TEST_F(SettingsPathList, HasWhitelistedObjectsBelowPps) {
  EXPECT_TRUE(on_the_device([] {
    put("/pps/not_stored");
    put_object("/pps/stored");
    put_script("1", naming({"/pps/not_stored", "/pps/stored"}));
    EXPECT_EQ(listed(), "/pps/not_stored\n" + WALLPAPER_OBJECT + "\n/pps/stored\n/pps/stored\n");
  }));
}

TEST_F(SettingsPathList, IsShownWithMuchOutput) {
  EXPECT_TRUE(on_the_device([] {
    put_object("/pps/a");
    put("/w/b");
    put_script("1", naming({"/w/b"}));
    static_cast<void>(listed());
    std::filesystem::remove_all(SETTINGS_SCRIPTS);
    harbix::verbose = true;
    const CapturedOutput errors(STDERR_FILENO);
    harbix::Completeness completeness;
    static_cast<void>(harbix::settings_path_list(completeness));
    EXPECT_EQ(errors.text(), "/pps/a\n" + WALLPAPER_OBJECT + "\n/w/b\n");
  }));
}

TEST_F(SettingsPathList, NeedsTheStoreAndComesBackToWhereItWas) {
  EXPECT_TRUE(on_the_device([] {
    const InsideFolder inside("/pps");
    put_object("/pps/a");
    EXPECT_EQ(listed(), "/pps/a\n" + WALLPAPER_OBJECT + "\n");
    EXPECT_EQ(std::filesystem::current_path().string(), "/pps");
    std::filesystem::remove_all("/var/pps");
    EXPECT_NE(message_of<fs::Exception>([] { static_cast<void>(listed()); }), "");
    EXPECT_EQ(std::filesystem::current_path().string(), "/pps");
  }));
}

}  // namespace
}  // namespace harbix::test
