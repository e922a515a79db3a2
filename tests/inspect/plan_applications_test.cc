#include <sys/stat.h>

#include <string>

#include "tests/inspect/plan_fixture.h"

namespace harbix::test {
namespace {

TEST_F(PlanOfCrafted, AgreesOnWhatMayNotBeReplaced) {
  const Foreseen all = expect_agreement_on(
      {binary(built_in_.id).file("main", "new"), data(built_in_.id).folder("data").file("data/state", "new"),
       binary("missing").file("main", "new"), data("missing").folder("data").file("data/state", "new"),
       data("absent").folder("data").file("data/state", "new"), binary("sys.navigator").file("main", "evil"),
       binary().file("main", "new"), data().folder("data").file("data/state", "new")});
  EXPECT_EQ(all.fates.at("/app/missing.pkg/appdata"), "restored") << "registered by its binaries before";
  EXPECT_EQ(all.fates.at("/app/absent.pkg/appdata"), "skipped");
  EXPECT_EQ(all.fates.at("/app/a.pkg/bin"), "restored");
  EXPECT_EQ(all.fates.at("/app/" + built_in_.id + ".pkg/bin"), "refused");
  EXPECT_EQ(all.removed.at(bought_.folder()), 2U);
}

TEST_F(PlanOfCrafted, AgreesOnPackagesThatDoNotFitTheirDescription) {
  for (const std::string directory : {"..", ".", "", "a/b", "/apps/a", "a/", "sys.systemtray", ".harbix-x"}) {
    const auto named = [&](CraftedPackage package) {
      return package.without("App-Directory")
          .attribute("Data-Directory", "/accounts/1000/appdata/" + directory)
          .attribute("App-Directory", directory);
    };
    const Foreseen all =
        expect_agreement_on({named(CraftedPackage("/app/x.pkg/bin", "/apps/x")).file("evil", "evil"),
                             named(data()).file("data/evil", "evil")});
    EXPECT_EQ(all.status, 1) << directory;
  }
  expect_agreement_on({binary().without("App-Directory").file("main", "new"),
                       data().attribute("Data-Directory", "/etc").file("data/evil", "evil"),
                       binary().record(S_IFREG | 0660U, "/etc/evil", 4), data().without("Data-Directory")});
}

TEST_F(PlanOfCrafted, AgreesOnHostileItemsOfApplications) {
  const auto hostile = [](CraftedPackage package, const std::string& base, const std::string& name) {
    add_hostile([&](char type, const std::string& item, const std::string& target) {
      const mode_t mode = type == TarBuilder::FOLDER          ? S_IFDIR | 0770U
                          : type == TarBuilder::SYMBOLIC_LINK ? S_IFLNK | 0777U
                          : type == TarBuilder::FIFO          ? S_IFIFO | 0660U
                                                              : S_IFREG | 0660U;
      if (item.find("..") != std::string::npos) return;
      package.record(mode, base + item).entry(type, name + item, "", 0660, target);
    });
    return package;
  };
  const std::string base = a_.data() + "/data/";
  const Foreseen all =
      expect_agreement_on({hostile(binary(), "/apps/a/", "/app/a.pkg/bin/"),
                           hostile(data().folder("data"), base, "/app/a.pkg/appdata/data/")});
  EXPECT_EQ(all.fates.at("/app/a.pkg/bin"), "refused") << "not all of it gets to disk";
  EXPECT_EQ(all.fates.at("/app/a.pkg/appdata"), "skipped") << "its binaries do not come back";
  const Foreseen alone =
      expect_agreement_on({hostile(data(built_in_.id).folder("data"), built_in_.data() + "/data/",
                                   "/app/" + built_in_.id + ".pkg/appdata/data/")});
  EXPECT_EQ(alone.fates.at("/app/" + built_in_.id + ".pkg/appdata"), "refused") << "the old data stays";
}

TEST_F(PlanOfCrafted, AgreesOnEntriesWithoutRecordsAndRecordsWithoutEntries) {
  const std::string base = a_.data() + "/data/";
  const Foreseen all =
      expect_agreement_on({data()
                               .folder("data")
                               .file("data/good", "good")
                               .file("database/left", "out")
                               .record(S_IFREG | 0660U, base + "missed", 4)
                               .record(0, base + "vanished", 4)
                               .entry(TarBuilder::FILE, "/app/a.pkg/appdata/data/stranger", "evil")
                               .entry(TarBuilder::FILE, "/app/other.pkg/appdata/data/a", "evil")
                               .record(S_IFLNK | 0777U, base + "other", 4)
                               .entry(TarBuilder::FILE, "/app/a.pkg/appdata/data/other", "evil")});
  EXPECT_EQ(all.fates.at("/app/a.pkg/appdata"), "restored");
  EXPECT_EQ(all.left_out.size(), 5U);
}

TEST_F(PlanOfCrafted, AgreesOnDataBeforeItsBinariesAndOnPackagesThatComeTwice) {
  expect_agreement_on({data("fresh").folder("data").file("data/state", "new"),
                       binary("fresh").file("main", "new"), binary("fresh").file("main", "newer"),
                       data("fresh").folder("data").file("data/state", "newer"),
                       data("fresh").folder("data").file("data/state", "newest")});
}

TEST_F(PlanOfCrafted, AgreesOnTheHomeScreen) {
  const std::string navigator = NAVIGATOR_DATA;
  for (const char* name : {"", "/data"})
    device_.make_owned_folder(navigator + name, 0770, device_.user("apps"), 0);
  for (const char* name : {"/data/state", "/data/.hidden"})
    device_.write_owned(navigator + name, "old", 0600, device_.user("apps"), 0);
  device_.shell(
      "mkdir -p /pps/system/navigator/applications; : > /pps/system/navigator/applications/uriapps");
  const Foreseen all = expect_agreement_on(
      {CraftedPackage("/app/sys.navigator/pps", "")
           .file("/pps/system/navigator/applications/uriapps", "@uriapps\na::b\n")
           .file("/pps/system/navigator/applications/other", "a::b\n"),
       CraftedPackage("/app/sys.navigator/appdata", navigator)
           .folder("data")
           .file("data/state", "new")
           .file("data/.hidden", "new")
           .file("data/state", "again")
           .link("data/out", "/etc/passwd")
           .link("data/in", "state"),
       CraftedPackage("/app/sys.systemtray/appdata", "/accounts/1000/appdata/sys.systemtray")
           .file("data/ClockServices.sqlite", "clock")
           .file("data/other", "other"),
       CraftedPackage("/app/sys.systemtray/bin", "/apps/sys.systemtray").file("main", "evil")});
  EXPECT_EQ(all.removed.at(navigator + "/data"), 1U);
}

}  // namespace
}  // namespace harbix::test
