#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device/accounts.h"
#include "device/content/contents.h"
#include "device/well_known_folders.h"
#include "tests/device_simulator/content_test.h"
#include "tests/support/device_process.h"

namespace harbix::test {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

constexpr const char* SCRIPTS = "/base/scripts/backup_and_restore/settings";

/// Every item below `folder`, as its path from there.
std::vector<std::string> items_below(const std::string& folder) {
  std::vector<std::string> found;
  for (const auto& item : std::filesystem::recursive_directory_iterator(folder)) {
    found.push_back(item.path().string().substr(folder.size()));
  }
  return found;
}

class SettingsContent : public ContentTest {
 protected:
  void SetUp() override {
    REQUIRE_ROOT();
    device::TreeWriter tree(folder_ / "");
    device::write_well_known_folders(tree);
    device::write_settings_objects(tree);
    device::write_settings_files(tree);
    device::write_settings_scripts(tree);
    device::write_live_state(tree);
    tree.finish();
  }
};

TEST_F(SettingsContent, HasSomeTwoHundredObjects) {
  const std::vector<std::string> items = items_below(on_host("/var/pps"));
  std::size_t objects = 0;
  std::size_t with_part = 0;
  std::size_t controls = 0;
  for (const std::string& item : items) {
    const std::string path = on_host("/var/pps") + item;
    if (!std::filesystem::is_regular_file(path)) continue;
    ++objects;
    if (item.find('@') != std::string::npos) ++with_part;
    if (item.ends_with("/control")) ++controls;
    EXPECT_LT(std::filesystem::file_size(path), 32768U) << item;
  }
  EXPECT_GE(objects, 180U);
  EXPECT_LE(objects, 220U);
  EXPECT_GE(with_part, 15U);
  EXPECT_GE(controls, 20U);
  EXPECT_THAT(items, Contains("/services/navigator/wallpaper"));
  EXPECT_THAT(items, Contains("/services/notify/odd names/colon:"));
  EXPECT_THAT(items, Contains("/services/notify/odd names/caf\xe9 latin-1"));
}

TEST_F(SettingsContent, HasItemsOfSeveralOwnersAndModes) {
  for (const char* tree : {"/var/pps/services", "/accounts/1000/settings"}) {
    std::set<uid_t> owners;
    std::set<mode_t> modes;
    for (const std::string& item : items_below(on_host(tree))) {
      struct stat status = {};
      ASSERT_EQ(::lstat((on_host(tree) + item).c_str(), &status), 0);
      owners.insert(status.st_uid);
      if (S_ISREG(status.st_mode)) modes.insert(status.st_mode & 07777);
    }
    EXPECT_EQ(owners, (std::set<uid_t>{0, device::ACCOUNT_USER, device::APPS_USER, device::MEDIA_USER}))
        << tree;
    EXPECT_TRUE(modes.contains(0600) && modes.contains(0640)) << tree;
  }
}

TEST_F(SettingsContent, HasOddNamesAndLinksInAndOut) {
  const std::string settings = on_host("/accounts/1000/settings");
  const std::vector<std::string> items = items_below(settings);
  for (const char* name : {"a:b", "colon:", ":", "  ", "blank behind ", "caf\xc3\xa9", "cafe\xcc\x81", "\x80",
                           "folder:/inside:"}) {
    EXPECT_THAT(items, Contains("/odd names/" + std::string(name)));
  }
  EXPECT_EQ(std::filesystem::read_symlink(settings + "/links/beside"), "target");
  EXPECT_EQ(std::filesystem::read_symlink(settings + "/links/out"), "/etc/passwd");
  EXPECT_EQ(std::filesystem::read_symlink(on_host("/accounts/1000/sys/keyboard/in")),
            "/accounts/1000/settings/preferences.conf");
}

TEST_F(SettingsContent, IsLiveFromTheStart) {
  const auto result = run_device({"sh", "-c",
                                  "cd /pps; find . -type f ! -path './system/installer/*' ! -path "
                                  "'./system/navigator/*' | LC_ALL=C sort; head -n 2 "
                                  "services/display/brightness services/sync/settings"});
  ASSERT_EQ(result.status, 0) << result.errors;
  // The names without their parts, each once.
  std::set<std::string> expected;
  const std::string store = on_host("/var/pps");
  for (const std::string& item : items_below(store)) {
    if (!std::filesystem::is_regular_file(store + item)) continue;
    std::istringstream components(item.substr(1));
    std::string live = ".";
    for (std::string component; std::getline(components, component, '/');) {
      live += "/" + component.substr(0, component.find('@'));
    }
    expected.insert(live);
  }
  std::string text;
  for (const std::string& path : expected) text += path + "\n";
  EXPECT_THAT(result.output, testing::StartsWith(text));
  EXPECT_THAT(result.output, HasSubstr("@brightness\nlevel:n:70\n"));
}

TEST_F(SettingsContent, PublishesWhatIsNotPersistentAtEachStart) {
  const std::string state = folder_ / "state";
  for (int start = 0; start < 2; ++start) {
    const auto result = run_device({"--state", state, "cat", "/pps/services/power/status"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output, HasSubstr("\n[n]charge:n:87\n[n]charging:b:true\n")) << start;
    EXPECT_THAT(read_file(state + "/var/pps/services/power/status"), Not(HasSubstr("charg")));
  }
  const auto gone = run_device({"--state", state, "rm", "-r", "/pps/services"});
  EXPECT_EQ(gone.status, 0) << gone.errors;
  const auto again = run_device({"--state", state, "ls", "/pps"});
  EXPECT_EQ(again.output, "system\n");
  EXPECT_EQ(again.errors, "");
}

TEST_F(SettingsContent, HasScriptsThatPrintTheListsAndMuchElse) {
  const auto result =
      run_device({"sh", "-c", std::string("cd ") + SCRIPTS + "; for s in *; do ./$s $0; done", "whitelist"});
  EXPECT_EQ(result.status, 0) << result.errors;
  for (const char* line :
       {"whitelist /accounts/1000/settings\n", "whitelist /var/etc/blank behind \n",
        "whitelist relative/path\n", "whitelist\n", "whitelist   \n", "looking for the locale's files\n"}) {
    EXPECT_THAT(result.output, HasSubstr(line));
  }
  EXPECT_THAT(result.output, Not(HasSubstr("blacklist")));
  const auto black =
      run_device({"sh", "-c", std::string("cd ") + SCRIPTS + "; for s in *; do ./$s $0; done", "blacklist"});
  EXPECT_THAT(black.output, HasSubstr("blacklist /accounts/1000/settings/cache\n"));
  EXPECT_THAT(black.output, HasSubstr("blacklist /pps/services/privacy\n"));
  EXPECT_THAT(black.output, Not(HasSubstr("whitelist")));
}

TEST_F(SettingsContent, HasScriptsThatNoteAllOtherWords) {
  const auto result =
      run_device({"sh", "-c",
                  std::string("cd ") + SCRIPTS +
                      "; ./account backup_start; ./untidy restore_end; cat /var/log/subscribers.log"});
  EXPECT_EQ(result.output, "account backup_start\nuntidy restore_end\n");
}

}  // namespace
}  // namespace harbix::test
