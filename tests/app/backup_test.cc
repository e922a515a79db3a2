#include "app/backup.h"

#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "base/flags.h"
#include "tests/app/app_device.h"
#include "tests/support/archive.h"
#include "tests/support/captured_output.h"
#include "tests/support/recorded_log.h"
#include "tests/support/tree.h"
#include "tests/updater/printed_application.h"
#include "updater/exception.h"

namespace harbix::test {
namespace {

using Texts = std::vector<std::string>;

constexpr char URI_APPS[] = "/pps/system/navigator/applications/uriapps";

struct Backup {
  int status = -1;
  std::string errors;
  Texts names;  ///< of the archive
  harbix::SizeResult size;
  Texts log;
};

Backup back_up(const Texts& package_ids = {}, bool size_only = false) {
  Backup backup;
  {
    const Utf8Names names;
    Writer writer("/a.tar");
    const RecordedLog log;
    const CapturedOutput errors(STDERR_FILENO);
    backup.status = size_only ? harbix::app::measure(writer, package_ids, backup.size)
                              : harbix::app::back_up(writer, package_ids);
    writer.close();
    backup.errors = errors.text();
    backup.log = log.messages();
  }
  backup.names = Reader("/a.tar").names();
  return backup;
}

/// The packages of an archive, by the names of their metadata entries.
Texts packages(const Backup& backup) {
  constexpr std::string_view METADATA = "/.backup.metadata";
  Texts packages;
  for (const std::string& name : backup.names) {
    if (name.ends_with(METADATA)) packages.push_back(name.substr(0, name.size() - METADATA.size()));
  }
  return packages;
}

class AppBackup : public AppDevice {};

TEST_F(AppBackup, WritesEveryApplicationInTheListsOrderAndThenTheHomeScreen) {
  EXPECT_TRUE(on_the_device([] {
    put_registered_applications("b::b.p,1.0,source::x\na::a.p,1.0,source::websl\n");
    const Backup backup = back_up();
    EXPECT_EQ(backup.status, 0);
    EXPECT_EQ(packages(backup), (Texts{"/app/b.p/appdata", "/app/a.p/appdata", "/app/sys.navigator/pps",
                                       "/app/sys.systemtray/appdata", "/app/sys.navigator/appdata"}));
  }));
}

TEST_F(AppBackup, WritesWhatIsNamed) {
  EXPECT_TRUE(on_the_device([] {
    put_registered_applications("b::b.p,1.0,source::x\na::a.p,1.0,source::x\n");
    EXPECT_EQ(packages(back_up({"app", "a.p", "b.p"})), (Texts{"/app/b.p/appdata", "/app/a.p/appdata"}));
    EXPECT_EQ(packages(back_up({"app", "sys.navigator"})),
              (Texts{"/app/sys.navigator/pps", "/app/sys.navigator/appdata"}));
    EXPECT_EQ(packages(back_up({"app", "sys.systemtray", "a.p"})),
              (Texts{"/app/a.p/appdata", "/app/sys.systemtray/appdata"}));
  }));
}

TEST_F(AppBackup, WritesNothingWhenAPackageIsNotInstalled) {
  EXPECT_TRUE(on_the_device([] {
    put_registered_applications("a::a.p,1.0,source::x\n");
    const Backup backup = back_up({"app", "a.p", "b.p"});
    EXPECT_EQ(backup.status, 1);
    EXPECT_EQ(backup.names, Texts{});
    EXPECT_EQ(backup.errors, "Error: Package 'b.p' not found.\n");
    EXPECT_EQ(backup.log, (Texts{"2 ERROR: Package 'b.p' not found."}));
  }));
}

TEST_F(AppBackup, WritesNothingWithoutTheList) {
  EXPECT_TRUE(on_the_device([] {
    const Backup backup = back_up();
    EXPECT_EQ(backup.status, 1);
    EXPECT_EQ(backup.names, Texts{});
    EXPECT_EQ(backup.errors,
              "Failed to open /pps/system/installer/registeredapps/.all\nError reading registered apps\n");
    EXPECT_EQ(backup.log, (Texts{"2 ERROR: Failed to open /pps/system/installer/registeredapps/.all"}));
  }));
}

TEST_F(AppBackup, ListsTheApplicationsWhenVerbose) {
  EXPECT_TRUE(on_the_device([] {
    put_registered_applications("b::b.p,1.0,source::x\na::a.p,2.0,\n");
    harbix::verbose = true;
    const std::string listing = "harbix_app\nID: b DIR: b.p VER: 1.0 SRC: x\nID: a DIR: a.p VER: 2.0 SRC: \n";
    EXPECT_EQ(back_up({"app"}).errors, listing);
    EXPECT_EQ(back_up({"app", "a.p"}).errors.substr(0, listing.size()), listing);
  }));
}

TEST_F(AppBackup, OnlyMeasuresWhenItIsTold) {
  EXPECT_TRUE(on_the_device([] {
    put_registered_applications(
        "a::a.p,1.0,source::shopvale\nb::b.p,1.0,source::x\nfolderless::c.p,1.0,source::x\n");
    put("/apps/a/bin", "12345");
    put("/apps/b/bin", "123456789");
    put("/accounts/1000/appdata/b/data/f", "123");
    put("/accounts/1000/appdata/b/tmp/f", "1234567");
    const Backup backup = back_up({}, true);
    EXPECT_EQ(backup.status, 0);
    EXPECT_EQ(backup.names, Texts{});
    EXPECT_EQ(backup.errors, "");
    EXPECT_EQ(backup.size.files, 2);
    std::int64_t expected = 5 + 3;
    for (const char* folder : {"data", "tmp"})
      expected += fs::File(fs::Path("/accounts/1000/appdata/b") / folder).record().st_size;
    EXPECT_EQ(backup.size.bytes, expected);
    EXPECT_EQ(back_up({"app", "a.p"}, true).size.files, 1);
    EXPECT_EQ(back_up({"app", "a.p"}, true).size.bytes, 5);
  }));
}

TEST_F(AppBackup, DoesNotMeasureAStorefrontApplicationWithoutItsFolder) {
  EXPECT_TRUE(on_the_device([] {
    put_registered_applications("a::a.p,1.0,source::shopvale\n");
    try {
      static_cast<void>(back_up({}, true));
      ADD_FAILURE();
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), "Invalid registered app:a.p");
    }
  }));
}

TEST_F(AppBackup, EndsWhenTheInstallerCannotBeAsked) {
  EXPECT_TRUE(on_the_device([] {
    put_registered_applications("a::a.p,1.0,source::shopvale\n");
    EXPECT_THROW(static_cast<void>(back_up()), std::runtime_error);
  }));
}

TEST_F(AppBackup, StoresTheNavigatorsObjectsThatExist) {
  EXPECT_TRUE(on_the_device([] {
    put_registered_applications("");
    put(URI_APPS, "@uriapps\na::1\n[n]b::2\n-c\n");
    put("/pps/system/navigator/applications/other", "x::1\n");
    harbix::verbose = true;
    const Backup backup = back_up({"app", "sys.navigator"});
    EXPECT_EQ(count_of(backup.errors, "Entry: " + std::string(URI_APPS) + "\n"), 1U) << backup.errors;
    ASSERT_LE(3U, backup.names.size());
    EXPECT_EQ(Texts(backup.names.begin(), backup.names.begin() + 3),
              (Texts{"/app/sys.navigator/pps/.backup.metadata",
                     "/app/sys.navigator/pps/pps/system/navigator/applications/uriapps",
                     "/app/sys.navigator/appdata/.backup.metadata"}));
    Reader reader("/a.tar");
    ASSERT_TRUE(reader.next_header());
    EXPECT_EQ(reader.data(),
              "Package: sys.navigator\nApp-Directory: sys.navigator\nData-Directory: sys.navigator\n"
              "File: /pps/system/navigator/applications/uriapps\n\n");
    ASSERT_TRUE(reader.next_header());
    EXPECT_EQ(reader.data(), "@uriapps\na::1\n");
  }));
}

using harbix::ApplicationSelection;
using harbix::select_applications;
using updater::RegisteredApplication;

const RegisteredApplication A{"a.id", "a", "1", "s"};
const RegisteredApplication B{"b.id", "b", "2", "s"};
const RegisteredApplication C{"c.id", "c", "3", "s"};
const RegisteredApplication SECOND_A{"a2.id", "a", "4", "t"};
const std::vector<RegisteredApplication> INSTALLED{C, A, B, SECOND_A};

TEST(ApplicationSelection, IsEverythingWithoutNames) {
  const ApplicationSelection selection = select_applications(INSTALLED, {});
  EXPECT_EQ(selection.applications, INSTALLED);
  EXPECT_TRUE(selection.navigator);
  EXPECT_TRUE(selection.system_tray);
}

TEST(ApplicationSelection, IsWhatTheNamesAfterTheKeywordNameInTheOrderOfTheList) {
  struct Row {
    std::vector<std::string> names;
    std::vector<RegisteredApplication> applications;
    bool navigator, system_tray;
  };
  const Row rows[] = {
      {{"app"}, {}, false, false},
      {{"a"}, {}, false, false},
      {{"app", "b"}, {B}, false, false},
      {{"app", "b", "c", "b"}, {C, B}, false, false},
      {{"app", "a"}, {A, SECOND_A}, false, false},
      {{"app", "sys.navigator"}, {}, true, false},
      {{"app", "sys.systemtray"}, {}, false, true},
      {{"app", "sys.systemtray", "b", "sys.navigator"}, {B}, true, true},
  };
  for (const Row& row : rows) {
    const ApplicationSelection selection = select_applications(INSTALLED, row.names);
    EXPECT_EQ(selection.applications, row.applications) << testing::PrintToString(row.names);
    EXPECT_EQ(selection.navigator, row.navigator) << testing::PrintToString(row.names);
    EXPECT_EQ(selection.system_tray, row.system_tray) << testing::PrintToString(row.names);
  }
}

TEST(ApplicationSelection, MustNameWhatIsInstalled) {
  for (const std::string name : {"x", "a.id", "A", "a ", "", "sys.navigatorx"}) {
    const std::vector<std::string> names{"app", "b", name, "y"};
    try {
      static_cast<void>(select_applications(INSTALLED, names));
      ADD_FAILURE() << name;
    } catch (const updater::Exception& error) {
      EXPECT_EQ(error.what(), "Package '" + name + "' not found.");
    }
  }
}

}  // namespace
}  // namespace harbix::test
