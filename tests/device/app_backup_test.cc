#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/application_device.h"

namespace harbix::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;
using testing::StartsWith;

const std::string ARCHIVE = "/tmp/a.tar";

std::vector<std::string> first_of(const std::vector<std::string>& names, std::size_t count) {
  return {names.begin(), names.begin() + static_cast<std::ptrdiff_t>(std::min(count, names.size()))};
}

/// A device with one application of each source: bought, loaded from elsewhere, built in.
class AppBackup : public testing::Test {
 protected:
  AppBackup() {
    for (const InstalledApplication& each : {bought_, loaded_, built_in_}) {
      device_.install(each);
      device_.add_data(each, "data/state", each.id);
    }
  }

  Outcome backup(std::vector<std::string> arguments = {}) {
    std::vector<std::string> all{"-f", ARCHIVE, "app"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return device_.harbix(all);
  }

  std::vector<std::string> metadata_names() {
    std::vector<std::string> names = device_.names(ARCHIVE);
    std::erase_if(names, [](const std::string& name) { return !name.ends_with("/.backup.metadata"); });
    return names;
  }

  ApplicationDevice device_;
  InstalledApplication bought_ = bought_application();
  InstalledApplication loaded_ = loaded_application();
  InstalledApplication built_in_ = built_in_application();
};

TEST_F(AppBackup, WritesPackagesInTheOrderOfTheListAndTheHomeScreenLast) {
  device_.add_file(bought_, "native/main", "program", 0750);
  const Outcome outcome = backup();
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "");
  EXPECT_THAT(
      metadata_names(),
      ElementsAre("/app/shop.app.pkg/bin/.backup.metadata", "/app/shop.app.pkg/appdata/.backup.metadata",
                  "/app/side.app.pkg/appdata/.backup.metadata", "/app/sys.app.pkg/appdata/.backup.metadata",
                  "/app/sys.navigator/pps/.backup.metadata", "/app/sys.systemtray/appdata/.backup.metadata",
                  "/app/sys.navigator/appdata/.backup.metadata"));
  std::vector<std::string> binaries = first_of(device_.names(ARCHIVE), 5);
  std::ranges::sort(binaries);
  EXPECT_THAT(binaries,
              ElementsAre("/app/shop.app.pkg/bin/.backup.metadata", "/app/shop.app.pkg/bin/META-INF/",
                          "/app/shop.app.pkg/bin/META-INF/MANIFEST.MF", "/app/shop.app.pkg/bin/native/",
                          "/app/shop.app.pkg/bin/native/main"));
  EXPECT_EQ(device_.content(ARCHIVE, "/app/shop.app.pkg/bin/native/main"), "program");
  EXPECT_EQ(device_.content(ARCHIVE, "/app/side.app.pkg/appdata/data/state"), "side.app");
  EXPECT_THAT(device_.requests_left(), ElementsAre());
}

TEST_F(AppBackup, DescribesEachPackageInItsManifest) {
  device_.add_file(bought_, "run", "12345", 0751);
  ASSERT_EQ(backup().status, 0);
  const std::string binaries = device_.content(ARCHIVE, "/app/shop.app.pkg/bin/.backup.metadata");
  EXPECT_THAT(binaries, StartsWith("Package: shop.app.pkg\nApp-Directory: shop.app\n"
                                   "Data-Directory: /accounts/1000/appdata/shop.app\n"
                                   "Extras: price:n:299,source::shopvale\nFile: "));
  EXPECT_THAT(binaries, testing::ContainsRegex("\nFile: 5 100751 10089 10200 [0-9]+ /apps/shop.app/run\n"));
  EXPECT_THAT(binaries, testing::EndsWith("\n\n"));

  const std::vector<std::string> data =
      lines_of(device_.content(ARCHIVE, "/app/shop.app.pkg/appdata/.backup.metadata"));
  const std::string root = " /accounts/1000/appdata/shop.app";
  using testing::MatchesRegex;
  EXPECT_THAT(data,
              ElementsAre("Package: shop.app.pkg", "App-Directory: shop.app",
                          "Data-Directory: /accounts/1000/appdata/shop.app",
                          MatchesRegex("File: [0-9]+ 40770 102001000 10200 [0-9]+" + root + "/data"),
                          MatchesRegex("File: [0-9]+ 40770 102001000 10200 [0-9]+" + root + "/logs"),
                          MatchesRegex("File: [0-9]+ 40770 102001000 10200 [0-9]+" + root + "/tmp"),
                          MatchesRegex("File: 8 100660 102001000 10200 [0-9]+" + root + "/data/state"), ""));
  EXPECT_EQ(device_.content(ARCHIVE, "/app/sys.navigator/pps/.backup.metadata"),
            "Package: sys.navigator\nApp-Directory: sys.navigator\nData-Directory: sys.navigator\n\n");
}

TEST_F(AppBackup, SavesOfLogsAndTemporaryFilesOnlyTheFolders) {
  device_.add_data(loaded_, "logs/today", "log");
  device_.add_data(loaded_, "tmp/cache", "cache");
  device_.add_data(loaded_, "other/file", "other");
  device_.add_data(loaded_, "database/file", "other");
  ASSERT_EQ(backup({"side.app.pkg"}).status, 0);
  EXPECT_THAT(device_.names(ARCHIVE),
              ElementsAre("/app/side.app.pkg/appdata/.backup.metadata", "/app/side.app.pkg/appdata/data/",
                          "/app/side.app.pkg/appdata/logs/", "/app/side.app.pkg/appdata/tmp/",
                          "/app/side.app.pkg/appdata/data/state"));
}

TEST_F(AppBackup, DescribesAnApplicationWithoutDataByThreePathsThatAreNotThere) {
  const InstalledApplication fresh{.id = "new", .package = "new.P", .group = 10210};
  device_.install(fresh);
  const Outcome outcome = backup({"new.P"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(metadata_names(),
              ElementsAre("/app/new.P/bin/.backup.metadata", "/app/new.P/appdata/.backup.metadata"));
  EXPECT_THAT(lines_of(device_.content(ARCHIVE, "/app/new.P/appdata/.backup.metadata")),
              IsSupersetOf({"File: 0 0 0 0 0 /accounts/1000/appdata/new/data",
                            "File: 0 0 0 0 0 /accounts/1000/appdata/new/logs",
                            "File: 0 0 0 0 0 /accounts/1000/appdata/new/tmp"}));
  for (const char* name : {"data", "logs", "tmp"}) {
    const std::string error =
        std::string("Error opening: /accounts/1000/appdata/new/") + name + ": No such file or directory";
    EXPECT_THAT(lines_of(outcome.errors), Contains(error));
    EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR), Contains("ERROR: " + error));
  }
}

TEST_F(AppBackup, TellsOfEachPathAndOfMoreWhenVerbose) {
  const Outcome quiet = backup();
  EXPECT_THAT(lines_of(quiet.errors),
              IsSupersetOf({std::string("Archive: /apps/shop.app/META-INF/MANIFEST.MF"),
                            std::string("Archive: /accounts/1000/appdata/side.app/data")}));
  EXPECT_THAT(quiet.errors,
              AllOf(Not(HasSubstr("Entry: ")), Not(HasSubstr("harbix_app")), Not(HasSubstr("QUERY EXTRAS"))));
  const Outcome verbose = device_.harbix({"-v", "-f", ARCHIVE, "app"});
  EXPECT_EQ(verbose.output, "");
  EXPECT_THAT(lines_of(verbose.errors),
              IsSupersetOf({"harbix_app", "ID: shop.app DIR: shop.app.pkg VER: 2.0.1.7 SRC: shopvale",
                            "ID: side.app DIR: side.app.pkg VER: 1.0.0.0 SRC: sideload",
                            "ID: sys.app DIR: sys.app.pkg VER: 1.0.0.0 SRC: websl", "QUERY EXTRAS shop.app",
                            "Extras: price:n:299,source::shopvale",
                            "Entry: /accounts/1000/appdata/shop.app/data/state",
                            "Archive: /accounts/1000/appdata/shop.app/data/state"}));
  EXPECT_THAT(verbose.errors, Not(HasSubstr("QUERY EXTRAS side.app")));
}

TEST_F(AppBackup, NarrowsToThePackagesThatAreNamed) {
  struct Row {
    std::vector<std::string> ids;
    std::vector<std::string> packages;
  };
  const std::string bought = "/app/shop.app.pkg/bin/.backup.metadata";
  const std::string bought_data = "/app/shop.app.pkg/appdata/.backup.metadata";
  const std::string built_in = "/app/sys.app.pkg/appdata/.backup.metadata";
  const std::string objects = "/app/sys.navigator/pps/.backup.metadata";
  const std::string navigator = "/app/sys.navigator/appdata/.backup.metadata";
  const std::string tray = "/app/sys.systemtray/appdata/.backup.metadata";
  for (const Row& row : {Row{{"sys.app.pkg"}, {built_in}},
                         Row{{"sys.app.pkg", "shop.app.pkg"}, {bought, bought_data, built_in}},
                         Row{{"sys.navigator"}, {objects, navigator}},
                         Row{{"sys.systemtray", "sys.app.pkg"}, {built_in, tray}}}) {
    const Outcome outcome = backup(row.ids);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(metadata_names(), row.packages) << testing::PrintToString(row.ids);
  }
}

TEST_F(AppBackup, WritesNothingWhenANamedPackageIsUnknown) {
  // The folder's name is not the package's.
  for (const char* name : {"shop.app", "nobody", ""}) {
    const Outcome outcome = backup({"shop.app.pkg", name});
    EXPECT_EQ(outcome.status, 1) << name;
    const std::string message = std::string("Package '") + name + "' not found.";
    EXPECT_EQ(outcome.errors, "Error: " + message + "\n");
    EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR), ElementsAre("ERROR: " + message));
    EXPECT_FALSE(device_.exists(ARCHIVE));
  }
}

TEST_F(AppBackup, FailsWithoutTheListOfApplications) {
  const Outcome outcome = device_.shell(
      "mount -t tmpfs none /pps; harbix -f /tmp/a.tar app; status=$?; umount /pps; exit $status");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.errors,
            "Failed to open /pps/system/installer/registeredapps/.all\n"
            "Error reading registered apps\n");
  EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR),
              ElementsAre("ERROR: Failed to open /pps/system/installer/registeredapps/.all"));
  EXPECT_FALSE(device_.exists(ARCHIVE));
}

TEST_F(AppBackup, PassesOverWhatTheListShouldNotHold) {
  const std::string list = "/pps/system/installer/registeredapps/.all";
  const Outcome outcome = device_.shell(
      "printf '%s\\n' 'sys.android::x,1,source::websl' 'a.b::sys.android.P,2,source::shopvale' "
      "'broken::only,one' 'typed:b:x,1,source::s' 'twin::shop.app.pkg,9,source::sideload' >> " +
      list + "; harbix -f /tmp/a.tar app; echo $?; harbix -f /tmp/b.tar app shop.app.pkg");
  EXPECT_EQ(outcome.output, "0\n");
  EXPECT_THAT(lines_of(outcome.errors),
              AllOf(Contains("Warning: Malformed PPS attribute line: 'broken::only,one'").Times(2),
                    Contains("Warning: Malformed PPS attribute line: 'typed:b:x,1,source::s'").Times(2)));
  const std::vector<std::string> names = device_.names(ARCHIVE);
  EXPECT_THAT(names, Each(Not(HasSubstr("android"))));
  // Both lines of one package count, the second with a folder of its own.
  EXPECT_THAT(names, Contains("/app/shop.app.pkg/appdata/.backup.metadata").Times(2));
  EXPECT_THAT(device_.names("/tmp/b.tar"), Contains("/app/shop.app.pkg/appdata/.backup.metadata").Times(2));
}

TEST_F(AppBackup, EndsWhenTheInstallerDoesNotKnowAnApplication) {
  device_.ask_faults({"refuse::query"});
  const Outcome outcome = backup();
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.errors, "ERROR: Attribute actual_extras not found\n");
  EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR), ElementsAre("ERROR: Attribute actual_extras not found"));
  EXPECT_THAT(device_.requests_left(), ElementsAre());
}

TEST_F(AppBackup, GoesToStandardOutputAndNothingElseDoes) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"-f", "-", "app"}, {"-v", "app"}}) {
    const Outcome outcome = device_.harbix(arguments);
    EXPECT_EQ(outcome.status, 0);
    const Outcome list = device_.run({"tar", "-Ptf", "-"}, outcome.output);
    EXPECT_EQ(list.status, 0) << list.errors;
    EXPECT_EQ(lines_of(list.output).front(), "/app/shop.app.pkg/bin/.backup.metadata");
    EXPECT_EQ(lines_of(list.output).back(), "/app/sys.navigator/appdata/.backup.metadata");
  }
}

TEST_F(AppBackup, LeavesOutWhatIsNoFileFolderOrLink) {
  device_.make_owned_link(bought_.folder() + "/native", "/etc/passwd", 0, 0);
  const Outcome outcome = device_.shell(
      "cd /accounts/1000/appdata/shop.app/data; mkfifo fifo; mknod null c 1 3; ln -s nowhere link; "
      "perl -MIO::Socket::UNIX -e 'IO::Socket::UNIX->new(Local => \"socket\", Listen => 1)'; "
      "harbix -f /tmp/a.tar app shop.app.pkg");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  const std::string data = "/accounts/1000/appdata/shop.app/data/";
  const std::string manifest = device_.content(ARCHIVE, "/app/shop.app.pkg/appdata/.backup.metadata");
  for (const char* name : {"fifo", "null", "socket"}) {
    EXPECT_THAT(lines_of(outcome.errors),
                Contains("not a file, folder or link: " + data + name + " skipping"));
    EXPECT_THAT(device_.logged(LOG_PRIORITY_WARNING),
                Contains("not a file, folder or link: '" + data + name + "'; skipping."));
    EXPECT_THAT(manifest, Not(HasSubstr(data + name)));
  }
  const std::string listing = device_.shell("tar -Ptvf /tmp/a.tar").output;
  EXPECT_THAT(listing, AllOf(HasSubstr("/app/shop.app.pkg/appdata/data/link -> nowhere\n"),
                             HasSubstr("/app/shop.app.pkg/bin/native -> /etc/passwd\n"),
                             Not(HasSubstr("fifo")), Not(HasSubstr("null")), Not(HasSubstr("socket"))));
}

TEST_F(AppBackup, NeverContainsItself) {
  const std::string output = "/accounts/1000/appdata/side.app/data/backup.tar";
  const Outcome outcome = device_.harbix({"-f", output, "app"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(lines_of(outcome.errors), Contains("is the archive itself: " + output + " skipping"));
  EXPECT_THAT(device_.names(output),
              AllOf(Contains("/app/side.app.pkg/appdata/data/state"), Each(Not(HasSubstr("backup.tar")))));
  EXPECT_THAT(device_.content(output, "/app/side.app.pkg/appdata/.backup.metadata"),
              Not(HasSubstr("backup.tar")));
}

TEST_F(AppBackup, DoesNotFollowADataFolderThatLeadsElsewhere) {
  device_.write("/tmp/secret/file", "secret");
  std::filesystem::remove_all(device_.outside(loaded_.data() + "/data"));
  device_.make_owned_link(loaded_.data() + "/data", "/tmp/secret", loaded_.data_user(), loaded_.group);
  ASSERT_EQ(backup({"side.app.pkg"}).status, 0);
  EXPECT_THAT(device_.names(ARCHIVE),
              ElementsAre("/app/side.app.pkg/appdata/.backup.metadata", "/app/side.app.pkg/appdata/data",
                          "/app/side.app.pkg/appdata/logs/", "/app/side.app.pkg/appdata/tmp/"));
}

}  // namespace
}  // namespace harbix::test
