#include <sys/stat.h>

#include <string>

#include <gmock/gmock.h>

#include "tests/inspect/inspect_run.h"
#include "tests/support/crafted_package.h"

namespace harbix::test {
namespace {

using ::testing::HasSubstr;

class InspectVerifyApplications : public InspectRun {
 protected:
  Outcome verify(const std::vector<CraftedPackage>& packages) {
    return inspect({"verify", "--notes", archive(archive_of(packages))});
  }
};

CraftedPackage binary() { return CraftedPackage::binary("a"); }
CraftedPackage data() { return CraftedPackage::data("a"); }
CraftedPackage navigator() { return {"/app/sys.navigator/appdata", "/accounts/1000/appdata/sys.navigator"}; }

TEST_F(InspectVerifyApplications, AreGoodAsABackupWritesThem) {
  const Outcome outcome =
      verify({binary().folder("bin").file("bin/main", "program").link("bin/link", "/anywhere"),
              data().folder("data").file("data/state", "x").record(0, "/accounts/1000/appdata/a/logs"),
              navigator().folder("data").file("data/x", "1").link("data/y", "x")});
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_THAT(outcome.output,
              HasSubstr("note: /accounts/1000/appdata/a/logs: The record has no entry: the item was "
                        "missing during the backup\n"));
  EXPECT_THAT(outcome.output, HasSubstr("good: 3 packages"));
}

TEST_F(InspectVerifyApplications, AreNamedWithWhatARestoreWouldRefuseOrLose) {
  struct Row {
    std::vector<CraftedPackage> packages;
    const char* reason;
  };
  const std::string in_data = "/accounts/1000/appdata/a/";
  for (const Row& row :
       {Row{{binary().without("App-Directory")},
            "/app/a.pkg/bin: The manifest does not name the application's folders"},
        Row{{binary().attribute("App-Directory", "..")}, "'..' is no name for an application's folder"},
        Row{{binary().attribute("App-Directory", "a/b")}, "'a/b' is no name for an application's folder"},
        Row{{binary().attribute("App-Directory", "sys.navigator")},
            "'sys.navigator' is a part of the home screen"},
        Row{{data().attribute("Data-Directory", "/etc")}, "'/etc' is not where the application's data lies"},
        Row{{binary().record(S_IFREG | 0644U, "/etc/passwd")},
            "/etc/passwd: The record lies outside of its package's folder"},
        Row{{binary().record(S_IFREG | 0644U, "/apps/a/../b")}, "/apps/a/../b: The record lies outside"},
        Row{{binary().record(S_IFREG | 0644U, "/apps/a/lost")},
            "/apps/a/lost: The record has no entry: the item is lost"},
        Row{{binary().entry('0', "/app/a.pkg/bin/x", "1")},
            "/app/a.pkg/bin/x: The manifest has no record of this item: a restore leaves it out"},
        Row{{binary().file("x", "1").entry('0', "/app/a.pkg/bin/x", "2")},
            "/app/a.pkg/bin/x: The same name stands twice: the second is left out"},
        Row{{binary().record(S_IFREG | 0644U, "/apps/a/x").entry('5', "/app/a.pkg/bin/x")},
            "/app/a.pkg/bin/x: The record describes another kind of item"},
        Row{{binary().record(S_IFREG | 0644U, "/apps/a/x").entry('1', "/app/a.pkg/bin/x", "", 0644, "y")},
            "/app/a.pkg/bin/x: A hard link never comes back"},
        Row{{binary().link("l", "/etc").file("l/x", "evil")},
            "/app/a.pkg/bin/l/x: Lies behind something that is no folder"},
        Row{{binary().entry('0', "/app/b.pkg/bin/x", "1")},
            "/app/b.pkg/bin/x: Stands outside of its package"},
        Row{{data().file("other/x", "1")},
            "Of an application's data only what lies in data, logs and tmp comes back"},
        Row{{data(), binary()}, "/app/a.pkg/bin: The application's data stands before its binaries"},
        Row{{navigator().link("data/x", "/etc/passwd")}, "data/x: A restore refuses a link that leads out"},
        Row{{CraftedPackage("/app/sys.navigator/bin", "/apps/sys.navigator")},
            "No restore knows what to do with this package"},
        Row{{CraftedPackage("/app/sys.navigator/pps", "").file("pps/system/other", "x")},
            "No object that comes back"}}) {
    const Outcome outcome = verify(row.packages);
    EXPECT_THAT(outcome.output, HasSubstr(row.reason));
    EXPECT_EQ(outcome.status, 1) << row.reason;
  }
}

TEST_F(InspectVerifyApplications, MayStandInAnyOrderOfItems) {
  CraftedPackage package = binary();
  for (int i = 100; i < 140; ++i) package.record(S_IFREG | 0640U, "/apps/a/" + std::to_string(i), 1);
  for (int i = 139; i >= 100; --i) package.entry('0', "/app/a.pkg/bin/" + std::to_string(i), "x");
  EXPECT_EQ(verify({package}).status, 0);
}

TEST_F(InspectVerifyApplications, OfTheHomeScreenMayStandInAnyOrder) {
  const Outcome outcome = verify(
      {navigator().folder("data"),
       CraftedPackage("/app/sys.navigator/pps", "").file("pps/system/navigator/applications/uriapps", "x")});
  EXPECT_EQ(outcome.status, 0) << outcome.output;
}

TEST_F(InspectVerifyApplications, OfTheSystemTrayOnlyTheClockComesBack) {
  const Outcome outcome =
      verify({CraftedPackage("/app/sys.systemtray/appdata", "/accounts/1000/appdata/sys.systemtray")
                  .folder("data")
                  .file("data/ClockServices.sqlite", "clock")});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.output, HasSubstr("note: /app/sys.systemtray/appdata/data: Never comes back"));
  EXPECT_EQ(outcome.output.find("ClockServices"), std::string::npos);
}

}  // namespace
}  // namespace harbix::test
