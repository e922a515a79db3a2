#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "device/accounts.h"
#include "device/content/contents.h"
#include "device/well_known_folders.h"
#include "tests/device_simulator/content_test.h"
#include "tests/support/device_process.h"

namespace harbix::test {
namespace {

const std::string READER = "com.example.reader.r_eader1a2b3c4d";
const std::string ATLAS = "com.example.atlas.a_tlas5e6f7081";
const std::string NOTES = "com.example.notes.n_otes92a3b4c5";

/// The content as a running device has it.
class RunningApplicationContent : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_ROOT(); }
};

/// The content as it is put into a tree.
class ApplicationContent : public ContentTest {
 protected:
  void SetUp() override {
    REQUIRE_ROOT();
    device::TreeWriter tree(folder_ / "");
    device::write_well_known_folders(tree);
    device::write_settings_objects(tree);
    device::write_applications(tree);
    device::write_home_screen(tree);
    tree.finish();
  }

  /// Every item below `path` of the device, with its status; named from there.
  [[nodiscard]] std::map<std::string, struct stat> items_below(const std::string& path) const {
    std::map<std::string, struct stat> items;
    const std::string root = on_host(path);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
      struct stat status = {};
      EXPECT_EQ(::lstat(entry.path().c_str(), &status), 0) << entry.path();
      items.emplace(entry.path().string().substr(root.size() + 1), status);
    }
    return items;
  }
};

TEST_F(RunningApplicationContent, IsListedByTheInstaller) {
  const auto result = run_device({"cat", "/pps/system/installer/registeredapps/.all"});
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(
      result.output,
      "@.all\n"
      "com.example.reader.r_eader1a2b3c4d::com.example.reader.M3xqVd7TnKc2LwZ,1.0.0.1,source::shopvale\n"
      "sys.browser::sys.browser.E4tOj7FyNs2vIcM,7.2.0.1,source::websl\n"
      "com.example.atlas.a_tlas5e6f7081::com.example.atlas.Q9sWb4RkHj8uYtE,2.14.0.388,"
      "signed:b:true,source::shopvale,price:n:299\n"
      "sys.android::sys.android.A5dXg8ShVw1jToY,1.6.0.4108,source::websl\n"
      "org.example.lamp.l_amp0b1c2d3e::org.example.lamp.T2vEf9MiPx6oCzA,1.1.0.0,source::sideload\n"
      "com.example.notes.n_otes92a3b4c5::com.example.notes.F1pLm6XzVoDa5Ni,0.9.1.0,source::shopvale\n"
      "sys.calculator::sys.calculator.L6xUk0PeZr3mBqD,4.0.0.12,websl::,source::system\n"
      "org.example.dice::org.example.dice.K8nRa5WlQu1dHbG,3.0.0.5,signed:b:false,source::sideload\n"
      "com.example.paint.p_aintd6e7f809::com.example.paint.U7cBh3GqJy0rSwK,10.0.3.77,"
      "source::shopvale,trial:b:false\n");
}

TEST_F(ApplicationContent, HasBinariesOfTheUserAppsAndTheApplicationsGroup) {
  std::map<std::string, gid_t> groups;
  for (const auto& [path, status] : items_below("/apps")) {
    const std::string id = path.substr(0, path.find('/'));
    EXPECT_EQ(status.st_uid, device::APPS_USER) << path;
    EXPECT_EQ(groups.emplace(id, status.st_gid).first->second, status.st_gid) << path;
    if (S_ISDIR(status.st_mode)) {
      EXPECT_EQ(status.st_mode & 07777U, 0750U) << path;
    }
  }
  EXPECT_EQ(groups.size(), 8U);
  EXPECT_EQ(groups[READER], 10200U);
  for (const auto& [path, status] : items_below("/accounts/1000/appdata")) {
    const std::string id = path.substr(0, path.find('/'));
    if (id == "sys.navigator" || id == "sys.systemtray") {
      EXPECT_EQ(status.st_uid, device::APPS_USER) << path;
      EXPECT_EQ(status.st_gid, 0U) << path;
      continue;
    }
    EXPECT_EQ(status.st_gid, groups[id]) << path;
    EXPECT_EQ(status.st_uid, path == id ? device::APPS_USER : groups[id] * 10000 + 1000) << path;
    if (S_ISDIR(status.st_mode)) {
      EXPECT_EQ(status.st_mode & 07777U, 0770U) << path;
    }
  }
}

TEST_F(ApplicationContent, IsOfManyKinds) {
  const auto reader = items_below("/apps/" + READER);
  EXPECT_EQ(reader.at("native/reader").st_mode, S_IFREG | 0750U);
  EXPECT_EQ(reader.at("native/helper").st_mode, S_IFREG | 0777U);
  for (const char* name :
       {"caf\xc3\xa9", "cafe\xcc\x81", "caf\xe9 latin-1", "\x80", "new\nline", "newline\n", ":", "  "}) {
    EXPECT_TRUE(reader.contains(std::string("assets/odd names/") + name)) << name;
  }
  EXPECT_TRUE(S_ISLNK(reader.at("native/lib/libpages.so").st_mode));
  EXPECT_EQ(read_file(on_host("/apps/" + READER + "/META-INF/MANIFEST.MF")),
            "Manifest-Version: 1.0\nPackage-Name: com.example.reader.M3xqVd7TnKc2LwZ\n"
            "Package-Version: 1.0.0.1\n");
  const auto atlas = items_below("/apps/" + ATLAS);
  EXPECT_GE(std::ranges::count_if(atlas, [](const auto& item) { return S_ISREG(item.second.st_mode); }),
            2000);
  const auto data = items_below("/accounts/1000/appdata/" + READER);
  EXPECT_EQ(data.at("data/settings.conf").st_mode, S_IFREG | 0660U);
  EXPECT_TRUE(data.contains("logs/old/reader.log"));
  EXPECT_TRUE(data.contains("tmp/page.cache"));
  EXPECT_TRUE(S_ISLNK(data.at("data/links/outside").st_mode));
  EXPECT_TRUE(std::filesystem::exists(on_host("/apps/" + NOTES)));
  EXPECT_FALSE(std::filesystem::exists(on_host("/accounts/1000/appdata/" + NOTES)));
}

TEST_F(RunningApplicationContent, CanBeUninstalledAndRegisteredAgain) {
  const auto result = run_device({"sh", "-c", R"(
    cd /pps/system/installer/upd/current
    ask() {
      printf "$1" > request
      until grep -q ^result request; do sleep 0.02; done
      grep -e ^actual -e ^result request
      rm request
    }
    cp -a /apps/org.example.dice /tmp
    ask 'action::uninstall\npackage_id::org.example.dice.K8nRa5WlQu1dHbG\n'
    ls /apps /accounts/1000/appdata | grep dice
    cp -a /tmp/org.example.dice /apps
    ask 'action::register\npackage_path::/apps/org.example.dice\nextras::source::sideload\ngid::\n'
    ls /accounts/1000/appdata/org.example.dice)"});
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.output,
            "result::0\n"
            "actual_gid::10205\nactual_dname::org.example.dice\nactual_extras::source::sideload\nresult::0\n"
            "data\nlogs\ntmp\n");
}

TEST_F(ApplicationContent, HasAHomeScreenWithDataAndObjects) {
  const auto navigator = items_below("/accounts/1000/appdata/sys.navigator");
  EXPECT_EQ(navigator.at("data/home.conf").st_mode, S_IFREG | 0600U);
  EXPECT_TRUE(S_ISLNK(navigator.at("data/current page").st_mode));
  const auto tray = items_below("/accounts/1000/appdata/sys.systemtray");
  EXPECT_TRUE(tray.contains("data/notifications"));
  EXPECT_EQ(tray.at("data/ClockServices.sqlite").st_mode, S_IFREG | 0660U);
  sqlite3* database = nullptr;
  ASSERT_EQ(sqlite3_open(on_host("/accounts/1000/appdata/sys.systemtray/data/ClockServices.sqlite").c_str(),
                         &database),
            SQLITE_OK);
  int rows = 0;
  const auto count = [](void* counter, int, char**, char**) {
    ++*static_cast<int*>(counter);
    return 0;
  };
  EXPECT_EQ(sqlite3_exec(database, "select * from alarms", count, &rows, nullptr), SQLITE_OK);
  EXPECT_EQ(sqlite3_close(database), SQLITE_OK);
  EXPECT_EQ(rows, 2);
}

TEST_F(RunningApplicationContent, HasTheHomeScreensObjects) {
  const auto result =
      run_device({"sh", "-c", "cd /pps/system/navigator/applications; cat uriapps web_shortcuts"});
  EXPECT_EQ(result.output,
            "@uriapps\nhttp::sys.browser\nmailto::sys.mail\nshelf::com.example.reader\n"
            "@web_shortcuts\nnews:json:{\"title\":\"News\",\"uri\":\"http://news.example.com/\"}\n"
            "caf\xc3\xa9::http://cafe.example.org:8080/\n");
}

TEST_F(RunningApplicationContent, HasProgramsThatNoteTheirCalls) {
  const auto result = run_device({"sh", "-c",
                                  "/base/bin/slay -f navigator; /base/bin/sh /base/scripts/startup.sh "
                                  "launcher stop; cat /var/log/home-screen.log"});
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.output, "slay -f navigator\nstartup.sh launcher stop\n");
}

TEST_F(RunningApplicationContent, IsNotOnABareDevice) {
  const auto result =
      run_device({"--bare", "sh", "-c",
                  "find /apps /accounts/1000/appdata /base/bin -mindepth 1; ls /pps/system; cat "
                  "/pps/system/installer/registeredapps/.all"});
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(result.output, "installer\n@.all\n");
}

}  // namespace
}  // namespace harbix::test
