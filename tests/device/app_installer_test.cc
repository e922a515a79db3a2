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
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string REQUESTS = "/pps/system/installer/upd/current";

std::string failed(const std::string& folder, const std::string& reason) {
  return "Installer request for '" + folder + "' failed: " + reason;
}

/// A bought application and two from elsewhere, and an archive that replaces the data of each.
class AppInstaller : public testing::Test {
 protected:
  AppInstaller() {
    for (const InstalledApplication& each : {bought_, loaded_, last_}) {
      device_.install(each);
      device_.add_data(each, "data/state", "old");
    }
  }

  static CraftedPackage new_data(const InstalledApplication& application) {
    return CraftedPackage::data(application.id).folder("data").file("data/state", "new");
  }
  [[nodiscard]] CraftedPackage new_binaries() const {
    return CraftedPackage::binary(bought_.id).file("main", "new");
  }
  [[nodiscard]] std::string archive() const {
    return archive_of({new_binaries(), new_data(bought_), new_data(loaded_), new_data(last_)});
  }

  Outcome restore(const std::vector<std::string>& faults,
                  const std::vector<std::string>& arguments = {"-r", "app"}) {
    device_.ask_faults(faults);
    Outcome outcome = device_.harbix(arguments, archive());
    EXPECT_THAT(device_.requests_left(), IsEmpty());
    return outcome;
  }

  [[nodiscard]] std::string state_of(const InstalledApplication& application) const {
    const std::string path = application.data() + "/data/state";
    return device_.exists(path) ? device_.read(path) : "none";
  }
  [[nodiscard]] std::vector<std::string> states() const {
    return {state_of(bought_), state_of(loaded_), state_of(last_)};
  }

  ApplicationDevice device_;
  InstalledApplication bought_ = bought_application();
  InstalledApplication loaded_ = loaded_application();
  InstalledApplication last_{
      .id = "last.app", .package = "last.app.pkg", .group = 10202, .extras = "source::sideload"};
};

TEST_F(AppInstaller, IsWaitedForWhenItIsSlow) {
  const auto start = std::chrono::steady_clock::now();
  const Outcome outcome = restore({"delay_ms::200"});
  // Uninstall, register, and a query for each data package.
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5 * 200));
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_THAT(states(), ElementsAre("new", "new", "new"));
}

TEST_F(AppInstaller, MaySayOtherThingsBeforeItAnswers) {
  const Outcome outcome = restore({"noise::yes"}, {"-v", "-r", "app"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_THAT(states(), ElementsAre("new", "new", "new"));
  EXPECT_THAT(lines_of(outcome.errors),
              AllOf(Contains("Attr: colons value: a::b:c"), Contains("Attr: empty value: "),
                    Contains("Attr: actual_gid value: not yet: 10201"), Contains("actual_gid => 10201")));
  EXPECT_EQ(device_.snapshot(APPLICATION_DATA).at("side.app/data/state").group, 10201U);
}

TEST_F(AppInstaller, ThatRefusesQueriesCostsTheDataPackages) {
  const Outcome outcome = restore({"refuse::query"});
  EXPECT_EQ(outcome.status, 1);
  // The uninstalled application has lost its data, and registering it made an empty folder.
  EXPECT_THAT(states(), ElementsAre("none", "old", "old"));
  EXPECT_EQ(device_.read("/apps/shop.app/main"), "new");
  for (const char* folder : {"/apps/shop.app", "/apps/side.app", "/apps/last.app"}) {
    const std::string message = failed(folder, "Attribute actual_extras not found");
    EXPECT_THAT(lines_of(outcome.errors), Contains("Error: " + message).Times(1));
    EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR), Contains("ERROR: " + message).Times(1));
  }
}

TEST_F(AppInstaller, ThatKnowsNothingOfOneApplicationCostsItsData) {
  device_.make_owned_folder("/apps/ghost", 0750, device_.user("apps"), 10250);
  const InstalledApplication ghost{.id = "ghost", .package = "ghost.pkg", .group = 10250};
  device_.add_data(ghost, "data/state", "old");
  const Snapshot before = device_.snapshot(ghost.data());
  const Outcome outcome = device_.harbix({"-r", "app"}, archive_of({new_data(ghost), new_data(loaded_)}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(lines_of(outcome.errors),
              Contains("Error: " + failed("/apps/ghost", "Attribute actual_extras not found")));
  EXPECT_EQ(difference(before, device_.snapshot(ghost.data())), "");
  EXPECT_THAT(device_.snapshot("/apps/ghost"), IsEmpty());
  EXPECT_EQ(state_of(loaded_), "new");
}

TEST_F(AppInstaller, MayKnowNothingOfWhatAFailedRestoreLeft) {
  const std::string archive =
      archive_of({CraftedPackage::binary("ghost").attribute("Extras", "source::sideload").file("main", "new"),
                  CraftedPackage::data("ghost").folder("data").file("data/state", "new")});
  device_.ask_faults({"refuse::register"});
  EXPECT_EQ(device_.harbix({"-r", "app"}, archive).status, 1);
  EXPECT_THAT(device_.registered(), Not(Contains(HasSubstr("ghost"))));
  device_.ask_faults({});
  const Outcome again = device_.harbix({"-r", "app"}, archive);
  EXPECT_EQ(again.status, 0) << again.errors;
  EXPECT_THAT(device_.registered(), Contains(HasSubstr("ghost")));
  EXPECT_EQ(device_.read("/apps/ghost/main"), "new");
  EXPECT_EQ(device_.read("/accounts/1000/appdata/ghost/data/state"), "new");
}

TEST_F(AppInstaller, ThatDoesNotSayWhetherARegisteredOneIsBuiltInKeepsIt) {
  device_.ask_faults({"omit::actual_extras"});
  const Outcome outcome = device_.harbix(
      {"-r", "app"}, archive_of({CraftedPackage::binary("side.app").file("main", "new"), new_data(loaded_)}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(lines_of(outcome.errors),
              AllOf(Contains("Error: " + failed("/apps/side.app", "Attribute actual_extras not found")),
                    Contains("Application binaries will not be restored."),
                    Contains("Skipping package: side.app.pkg")));
  EXPECT_EQ(state_of(loaded_), "old");
}

TEST_F(AppInstaller, ThatRefusesToRegisterLeavesTheApplicationUnregistered) {
  device_.ask_faults({"refuse::register"});
  const Outcome outcome =
      device_.harbix({"-r", "app"}, archive_of({new_binaries().file("set-id", "s", 06777), new_data(bought_),
                                                new_data(loaded_), new_data(last_)}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(lines_of(outcome.errors),
              AllOf(Contains("Error: " + failed("/apps/shop.app", "Attribute actual_gid not found")),
                    Contains("Error: " + failed("/apps/shop.app", "Attribute actual_extras not found"))));
  EXPECT_THAT(states(), ElementsAre("none", "new", "new"));
  EXPECT_THAT(device_.registered(), Each(Not(HasSubstr("shop.app"))));
  EXPECT_EQ(device_.snapshot("/apps/shop.app").at("set-id"),
            (Item{S_IFREG | 0770U, device_.user("apps"), 0, "s"}));
  EXPECT_THAT(device_.requests_left(), IsEmpty());
}

TEST_F(AppInstaller, ThatRefusesToUninstallLeavesTheApplicationToBeReplaced) {
  device_.add_file(bought_, "main", "old");
  const Outcome outcome = restore({"refuse::uninstall"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_THAT(states(), ElementsAre("new", "new", "new"));
  EXPECT_EQ(device_.read("/apps/shop.app/main"), "new");
}

TEST_F(AppInstaller, MayLeaveAttributesOut) {
  struct Row {
    std::string omitted;
    int status;
    std::vector<std::string> states;
    std::string reason;
  };
  for (const Row& row : {Row{"actual_gid", 1, {"none", "old", "old"}, "Attribute actual_gid not found"},
                         Row{"actual_dname", 1, {"none", "old", "old"}, "Attribute actual_dname not found"},
                         Row{"actual_extras", 1, {"none", "old", "old"}, "Attribute actual_extras not found"},
                         // Its stream ends all the same.
                         Row{"result", 0, {"new", "new", "new"}, ""}}) {
    for (const InstalledApplication& each : {loaded_, last_}) device_.add_data(each, "data/state", "old");
    const Outcome outcome = restore({"omit::" + row.omitted});
    EXPECT_EQ(outcome.status, row.status) << row.omitted;
    EXPECT_EQ(states(), row.states) << row.omitted;
    if (row.status == 0) continue;
    EXPECT_THAT(lines_of(outcome.errors), Contains("Error: " + failed("/apps/side.app", row.reason)));
    EXPECT_THAT(lines_of(outcome.errors), Contains("Error: " + failed("/apps/last.app", row.reason)));
  }
}

TEST_F(AppInstaller, ThatDiesIsWaitedForUntilItIsBack) {
  for (const char* action : {"uninstall", "register", "query", "all"}) {
    for (const InstalledApplication& each : {loaded_, last_}) device_.add_data(each, "data/state", "old");
    const Outcome outcome = restore({std::string("die::") + action});
    EXPECT_EQ(outcome.status, 0) << action << '\n' << outcome.errors;
    EXPECT_THAT(states(), ElementsAre("new", "new", "new")) << action;
    EXPECT_THAT(device_.registered(), Contains("shop.app::shop.app,0.0.0.0,source::shopvale")) << action;
  }
}

TEST_F(AppInstaller, ThatTakesNoRequestsChangesNothing) {
  const Snapshot before = device_.everything_but({});
  const Outcome outcome =
      device_.shell("mount -t tmpfs -o ro none " + REQUESTS + "; harbix -r app", archive());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR), Contains("Unregister of 'shop.app' failed"));
  for (const char* folder : {"/apps/shop.app", "/apps/side.app", "/apps/last.app"}) {
    EXPECT_THAT(outcome.errors,
                HasSubstr("Error: " + failed(folder, "Failed to create file '" + REQUESTS + "/br_tmp")));
  }
  EXPECT_THAT(outcome.errors, HasSubstr("'  [errno:30 'Read-only file system']\n"));
  EXPECT_EQ(difference(before, device_.everything_but({})), "");
}

TEST_F(AppInstaller, IsLeftNoRequestByARunThatIsInterrupted) {
  struct Row {
    const char* signal;
    const char* status;
    bool is_caught;
  };
  // Called with harbix's arguments and a signal, which it sends during the first exchange.
  constexpr char SCRIPT[] =
      "cd /pps/system/installer/upd/current; set -m; harbix $0 2> /dev/null &\n"
      "for i in {1..100}; do [ \"$(ls)\" ] && break; sleep 0.02; done\n"
      "ls | wc -l; kill -$1 $!; wait $!; echo $?; ls | wc -l";
  device_.write("/tmp/in.tar", archive());
  // Refused, so that every run finds the application to ask about.
  device_.ask_faults({"delay_ms::3000", "refuse::uninstall"});
  for (const Row& row : {Row{"TERM", "143", true}, Row{"INT", "130", true}, Row{"HUP", "129", true},
                         // No program can prevent this one: the check sees what is left.
                         Row{"KILL", "137", false}}) {
    for (const char* command : {"-f /tmp/out.tar app", "-r -f /tmp/in.tar app"}) {
      const Outcome outcome = device_.run({"bash", "-c", SCRIPT, command, row.signal});
      EXPECT_THAT(lines_of(outcome.output), ElementsAre("1", row.status, row.is_caught ? "0" : "1"))
          << row.signal << ' ' << command;
    }
  }
}

}  // namespace
}  // namespace harbix::test
