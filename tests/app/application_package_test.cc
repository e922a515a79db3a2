#include "app/application_package.h"

#include <unistd.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/flags.h"
#include "tests/support/captured_output.h"
#include "tests/support/program.h"

namespace harbix::test {
namespace {

using harbix::ApplicationPackage;

constexpr char APPLICATIONS_DATA[] = "/accounts/1000/appdata";

ApplicationPackage named(const std::string& name) { return ApplicationPackage({name, {}}); }

ApplicationPackage with(const meta::Manifest& manifest) {
  return ApplicationPackage({"/app/p/bin/.backup.metadata", manifest});
}

/// A package of the application "a" that holds these paths.
ApplicationPackage with_paths(const std::vector<std::string>& paths) {
  meta::Manifest manifest{
      {"Package", "p"}, {"App-Directory", "a"}, {"Data-Directory", std::string(APPLICATIONS_DATA) + "/a"}};
  for (const std::string& path : paths) manifest.push_back({"File", "1 100644 0 0 0 " + path});
  return with(manifest);
}

TEST(ApplicationPackageName, TellsTheKind) {
  struct Row {
    const char* name;
    bool is_binary, is_data, is_home_screen;
  };
  const Row rows[] = {
      {"/app/p/bin/.backup.metadata", true, false, false},
      {"/app/p/appdata/.backup.metadata", false, true, false},
      {"app/p/bin/.backup.metadata", true, false, false},
      {"/app/p/bin", true, false, false},
      {"/app/p/bin/below/.backup.metadata", true, false, false},
      {"/app/p/pps/.backup.metadata", false, false, false},
      {"/app/p/Bin/.backup.metadata", false, false, false},
      {"/app/p/binx/.backup.metadata", false, false, false},
      {"/app/p/below/bin/.backup.metadata", false, false, false},
      {"/app/bin/.backup.metadata", false, false, false},
      {"/app/p/.backup.metadata", false, false, false},
      {"/app/p", false, false, false},
      {"/app", false, false, false},
      {"", false, false, false},
      {"/", false, false, false},
      {".backup.metadata", false, false, false},
      {"/apps/p/bin/.backup.metadata", false, false, false},
      {"/x/app/p/bin/.backup.metadata", false, false, false},
      {"./app/p/bin/.backup.metadata", false, false, false},
      {"/media/p/bin/.backup.metadata", false, false, false},
      {"/app/sys.navigator/pps/.backup.metadata", false, false, true},
      {"/app/sys.navigator/appdata/.backup.metadata", false, true, true},
      {"/app/sys.systemtray/appdata/.backup.metadata", false, true, true},
      {"/app/sys.systemtray/bin/.backup.metadata", true, false, true},
      {"app/sys.navigator/pps/.backup.metadata", false, false, true},
      {"/app/sys.navigator/.backup.metadata", false, false, true},
      {"/app/sys.navigator", false, false, false},
      {"/app/sys.navigatorx/pps/.backup.metadata", false, false, false},
      {"/app/x/sys.navigator/.backup.metadata", false, false, false},
      {"/apps/sys.navigator/pps/.backup.metadata", false, false, false},
  };
  for (const Row& row : rows) {
    const ApplicationPackage package = named(row.name);
    EXPECT_EQ(package.is_of_kind("bin"), row.is_binary) << row.name;
    EXPECT_EQ(package.is_of_kind("appdata"), row.is_data) << row.name;
    EXPECT_EQ(package.is_home_screen(), row.is_home_screen) << row.name;
  }
}

TEST(ApplicationPackageName, HoldsThePackageAndBeginsTheNamesOfItsEntries) {
  const ApplicationPackage package = named("/app/a.b c/bin/.backup.metadata");
  EXPECT_EQ(package.package(), "a.b c");
  EXPECT_EQ(package.name(), fs::Path("/app/a.b c/bin"));
  EXPECT_EQ(package.metadata_name(), fs::Path("/app/a.b c/bin/.backup.metadata"));
}

TEST(ApplicationPackageName, IsTracedWhenVerbose) {
  EXPECT_TRUE(passes_in_child([] {
    const CapturedOutput errors(STDERR_FILENO);
    EXPECT_TRUE(named("/app/p/bin/.backup.metadata").is_of_kind("bin"));
    EXPECT_EQ(errors.text(), "");
    harbix::verbose = true;
    EXPECT_FALSE(named("/app/p/bin/.backup.metadata").is_of_kind("appdata"));
    EXPECT_EQ(errors.text(), "=>app:=>p:=>bin:=>.backup.metadata:\n");
  }));
}

TEST(ApplicationPackageManifest, HasTheAttributesOfThePackage) {
  const ApplicationPackage package = with({{"Package", "p"},
                                           {"App-Directory", "a"},
                                           {"Data-Directory", "d"},
                                           {"Extras", "e,f::g"},
                                           {"File", "5 100640 1 2 3 /x"},
                                           {"File", "0 40750 1 2 4 /y\\nz"}});
  EXPECT_EQ(package.app_directory(), "a");
  EXPECT_EQ(package.data_directory(), "d");
  EXPECT_EQ(package.extras(), "e,f::g");
  using harbix::RecordedStatus;
  ASSERT_EQ(package.records().size(), 2U);
  EXPECT_EQ(package.records()[0], (harbix::FileRecord{5, fs::Path("/x"), RecordedStatus{0100640, 1, 2, 3}}));
  EXPECT_EQ(package.records()[1],
            (harbix::FileRecord{0, fs::Path("/y\nz"), RecordedStatus{040750, 1, 2, 4}}));
}

TEST(ApplicationPackageManifest, MayLackTheExtrasAndNothingElse) {
  const ApplicationPackage package = with({{"Package", "p"}});
  EXPECT_EQ(package.extras(), "");
  const auto message = [](const auto& body) -> std::string {
    try {
      body();
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_EQ(message([&] { static_cast<void>(package.app_directory()); }), "Key App-Directory not found.");
  EXPECT_EQ(message([&] { static_cast<void>(package.data_directory()); }), "Key Data-Directory not found.");
  EXPECT_EQ(message([&] { static_cast<void>(package.has_plain_directory()); }),
            "Key App-Directory not found.");
  EXPECT_EQ(message([] {
              static_cast<void>(with({{"App-Directory", "a"}}).has_valid_paths(fs::Path("/apps/a")));
            }),
            "Key Data-Directory not found.");
}

TEST(ApplicationPackageManifest, NamesOneFolderAndNothingElse) {
  for (const char* name : {"a", "a.b", "a b", "...", "..a", "a..", ".a", "\\", "a\nb", "\xFF", "~"})
    EXPECT_TRUE(with({{"App-Directory", name}}).has_plain_directory()) << name;
  for (const char* name : {"", ".", "..", "/", "a/", "/a", "a/b", "../a", "a/..", "./a", "//"})
    EXPECT_FALSE(with({{"App-Directory", name}}).has_plain_directory()) << name;
}

TEST(ApplicationPackagePaths, LieWhereTheDataOfTheApplicationLies) {
  struct Row {
    const char *app_directory, *data_directory;
    bool is_valid;
  };
  const Row rows[] = {
      {"a", "/accounts/1000/appdata/a", true},   {"a", "/accounts/1000/appdata/b", false},
      {"a", "/accounts/1000/appdata", false},    {"a", "/accounts/1000/appdata/a/", false},
      {"a", "/accounts/1000/appdata//a", false}, {"a", "/accounts/1000/appdata/x/../a", false},
      {"a", "accounts/1000/appdata/a", false},   {"a", "/accounts/1000/appdata/ab", false},
      {"a", "/accounts/1000/appdata/A", false},  {"a", "/", false},
  };
  for (const Row& row : rows) {
    const meta::Manifest manifest{{"App-Directory", row.app_directory},
                                  {"Data-Directory", row.data_directory}};
    EXPECT_EQ(with(manifest).has_valid_paths(fs::Path("/apps/a")), row.is_valid) << row.data_directory;
  }
}

TEST(ApplicationPackagePaths, LieBelowTheBaseInNormalForm) {
  const fs::Path base("/apps/a");
  EXPECT_TRUE(with_paths({}).has_valid_paths(base));
  EXPECT_TRUE(with_paths({"/apps/a/x", "/apps/a/x/y z", "/apps/a/...", "/apps/a/..x", "/apps/a/x\\ny",
                          "/apps/a/\xFF", "/apps/a/x"})
                  .has_valid_paths(base));
  for (const char* path : {"/apps/a",
                           "/apps/a/",
                           "/apps",
                           "/",
                           "/apps/abc",
                           "/apps/abc/x",
                           "/apps/a/../b",
                           "/apps/a/..",
                           "/apps/a/.",
                           "/apps/a/./x",
                           "/apps/a//x",
                           "//apps/a/x",
                           "/apps/a/x/",
                           "/apps/a/x/..",
                           "/apps/a/x/../y",
                           "/apps/./a/x",
                           "/x/../apps/a/y",
                           "apps/a/x",
                           "x",
                           "./x",
                           "../x",
                           "/etc/passwd",
                           "/apps/b/x",
                           "/apps/a\\n/x",
                           "/Apps/a/x"}) {
    EXPECT_FALSE(with_paths({path}).has_valid_paths(base)) << path;
    EXPECT_FALSE(with_paths({"/apps/a/x", path, "/apps/a/y"}).has_valid_paths(base)) << path;
  }
}

TEST(ApplicationPackagePaths, OfDataLieBelowItsFolder) {
  const fs::Path base(std::string(APPLICATIONS_DATA) + "/a");
  EXPECT_TRUE(with_paths({"/accounts/1000/appdata/a/data"}).has_valid_paths(base));
  EXPECT_FALSE(with_paths({"/accounts/1000/appdata/a"}).has_valid_paths(base));
  EXPECT_FALSE(with_paths({"/accounts/1000/appdata/ab/data"}).has_valid_paths(base));
  EXPECT_FALSE(with_paths({"/apps/a/x"}).has_valid_paths(base));
}

}  // namespace
}  // namespace harbix::test
