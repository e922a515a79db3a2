#include "device/installer/installer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include <gtest/gtest.h>

#include "device/accounts.h"
#include "device/installer/ledger_file.h"
#include "device/installer/refusal.h"
#include "tests/support/folder.h"
#include "tests/support/tree.h"

namespace installer {
namespace {

class InstallerWork : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give data to its owner";
    for (const char* name : {"apps", "data"}) ASSERT_EQ(::mkdir((folder_ / name).c_str(), 0755), 0);
    restart();
  }

  /// A new installer, which knows what the one before it kept.
  void restart() {
    installer_ = std::make_unique<Installer>(
        Places{.applications = folder_ / "apps", .data = folder_ / "data", .own = folder_ / "own"},
        Installer::Surroundings{.publish = [this](const std::string& lines) { published_ += lines; },
                                .is_reserved = [](gid_t gid) { return gid == 10001; }});
  }

  void make_application(const std::string& id, const std::string& package) const {
    const std::string folder = folder_ / ("apps/" + id);
    std::filesystem::create_directories(folder + "/META-INF");
    harbix::test::write_file(folder + "/META-INF/MANIFEST.MF",
                             "Package-Name: " + package + "\nPackage-Version: 1.2\n");
  }

  std::string answer(const Request& request) {
    try {
      return to_lines(installer_->carry_out(request));
    } catch (const Refusal& refusal) {
      return refusal.what();
    }
  }

  std::string enroll(const std::string& id, const std::string& extras = "", const std::string& gid = "") {
    return answer({.action = Action::enroll, .id = id, .package = "", .extras = extras, .gid = gid});
  }
  std::string unregister(const std::string& id) {
    return answer({.action = Action::unregister, .id = id, .package = "", .extras = "", .gid = ""});
  }
  std::string uninstall(const std::string& package) {
    return answer({.action = Action::uninstall, .id = "", .package = package, .extras = "", .gid = ""});
  }
  std::string query(const std::string& id) {
    return answer({.action = Action::query, .id = id, .package = "", .extras = "", .gid = ""});
  }

  [[nodiscard]] bool exists(const std::string& name) const { return std::filesystem::exists(folder_ / name); }

  harbix::test::TemporaryFolder folder_;
  std::unique_ptr<Installer> installer_;
  std::string published_;
};

TEST_F(InstallerWork, RegistersAFolderUnderItsPackagesName) {
  make_application("D", "P");
  EXPECT_EQ(query("D"), "'D' is not registered");
  EXPECT_EQ(enroll("D", "signed:b:true,source::shopvale"),
            "actual_gid::10000\nactual_dname::D\nactual_extras::signed:b:true,source::shopvale\nresult::0\n");
  EXPECT_EQ(published_, "D::P,1.2,signed:b:true,source::shopvale\n");
  EXPECT_EQ(query("D"),
            "actual_gid::10000\nactual_dname::D\nactual_extras::signed:b:true,source::shopvale\nresult::0\n");
}

TEST_F(InstallerWork, RegistersOnlyFolders) {
  EXPECT_EQ(enroll("none"), "there is no folder '" + (folder_ / "apps/none") + "'");
  harbix::test::write_file(folder_ / "apps/file", "");
  EXPECT_EQ(enroll("file"), "there is no folder '" + (folder_ / "apps/file") + "'");
  ASSERT_EQ(::symlink("/etc", (folder_ / "apps/link").c_str()), 0);
  EXPECT_EQ(enroll("link"), "there is no folder '" + (folder_ / "apps/link") + "'");
  EXPECT_EQ(published_, "");
  EXPECT_FALSE(exists("own"));
}

TEST_F(InstallerWork, MakesTheDataFolderForTheApplication) {
  make_application("D", "P");
  enroll("D", "", "10500");
  for (const char* name : {"data/D", "data/D/data", "data/D/logs", "data/D/tmp"}) {
    struct stat status = {};
    ASSERT_EQ(::lstat((folder_ / name).c_str(), &status), 0) << name;
    EXPECT_EQ(status.st_uid, name == std::string("data/D") ? device::APPS_USER : 105001000U) << name;
    EXPECT_EQ(status.st_gid, 10500U) << name;
    EXPECT_EQ(status.st_mode, S_IFDIR | 0770U) << name;
  }
}

TEST_F(InstallerWork, LeavesTheDataThatIsThere) {
  make_application("D", "P");
  std::filesystem::create_directories(folder_ / "data/D/data");
  harbix::test::write_file(folder_ / "data/D/data/a", "old");
  ASSERT_EQ(::chmod((folder_ / "data/D/data").c_str(), 0700), 0);
  enroll("D");
  EXPECT_EQ(harbix::test::read_file(folder_ / "data/D/data/a"), "old");
  struct stat status = {};
  ASSERT_EQ(::lstat((folder_ / "data/D/data").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0700U);
  EXPECT_TRUE(exists("data/D/tmp"));
}

TEST_F(InstallerWork, RefusesAnApplicationWhoseDataFolderCannotBeMade) {
  make_application("D", "P");
  harbix::test::write_file(folder_ / "data/D", "in the way");
  EXPECT_EQ(enroll("D"), "cannot create the folder '" + (folder_ / "data/D") + "': File exists");
  EXPECT_EQ(query("D"), "'D' is not registered");
  EXPECT_EQ(published_, "");
}

TEST_F(InstallerWork, UninstallsAPackageWithBothItsFolders) {
  make_application("D", "P");
  make_application("E", "Q");
  enroll("D");
  enroll("E");
  ASSERT_EQ(::symlink((folder_ / "apps/E").c_str(), (folder_ / "apps/D/link").c_str()), 0);
  harbix::test::write_file(folder_ / "data/D/data/new\nline", "");
  published_.clear();
  EXPECT_EQ(uninstall("D"), "no package 'D' is registered");
  EXPECT_EQ(uninstall("P"), "result::0\n");
  EXPECT_EQ(published_, "-D\n");
  EXPECT_FALSE(exists("apps/D"));
  EXPECT_FALSE(exists("data/D"));
  EXPECT_TRUE(exists("apps/E/META-INF/MANIFEST.MF"));
  EXPECT_TRUE(exists("data/E/data"));
  EXPECT_EQ(uninstall("P"), "no package 'P' is registered");
  EXPECT_EQ(query("E"), "actual_gid::10002\nactual_dname::E\nactual_extras::\nresult::0\n");
}

TEST_F(InstallerWork, FinishesAnUninstallationThatWasCutShort) {
  make_application("D", "P");
  enroll("D");
  std::filesystem::remove_all(folder_ / "apps/D");
  restart();
  EXPECT_EQ(uninstall("P"), "result::0\n");
  EXPECT_FALSE(exists("data/D"));
}

TEST_F(InstallerWork, UnregistersAndLeavesTheFolders) {
  make_application("D", "P");
  enroll("D");
  EXPECT_EQ(unregister("D"), "result::0\n");
  EXPECT_TRUE(exists("apps/D"));
  EXPECT_TRUE(exists("data/D/data"));
  EXPECT_EQ(query("D"), "'D' is not registered");
  EXPECT_EQ(unregister("D"), "'D' is not registered");
}

TEST_F(InstallerWork, GivesAnApplicationItsOldGroupAlsoAfterARestart) {
  make_application("D", "P");
  make_application("E", "Q");
  enroll("E");
  enroll("D");
  uninstall("Q");
  unregister("D");
  restart();
  make_application("N", "N");
  make_application("E", "Q");
  EXPECT_EQ(enroll("N").substr(0, 17), "actual_gid::10003");
  EXPECT_EQ(enroll("D").substr(0, 17), "actual_gid::10002");
  EXPECT_EQ(enroll("E").substr(0, 17), "actual_gid::10000");
}

TEST_F(InstallerWork, PublishesEverythingWhenItStarts) {
  make_application("D", "P");
  make_application("E", "Q");
  enroll("D", "source::a");
  enroll("E", "source::b");
  unregister("D");
  restart();
  published_.clear();
  installer_->publish_all();
  EXPECT_EQ(published_, "-D\nE::Q,1.2,source::b\n");
}

TEST_F(InstallerWork, DoesNotRegisterWhatItCannotKeep) {
  make_application("D", "P");
  std::filesystem::create_directories(folder_ / ("own/" + std::string(LEDGER_NAME)));
  EXPECT_THROW(enroll("D"), std::system_error);
  EXPECT_EQ(published_, "");
  std::filesystem::remove_all(folder_ / "own");
  EXPECT_EQ(query("D"), "'D' is not registered");
}

TEST_F(InstallerWork, TakesNoLedgerThatIsDamaged) {
  std::filesystem::create_directories(folder_ / "own");
  harbix::test::write_file(folder_ / (std::string("own/") + LEDGER_NAME), "nonsense\n");
  EXPECT_THROW(restart(), std::runtime_error);
}

}  // namespace
}  // namespace installer
