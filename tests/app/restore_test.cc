#include "app/restore.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "base/flags.h"
#include "tests/app/app_device.h"
#include "tests/support/archive.h"
#include "tests/support/captured_output.h"
#include "tests/support/recorded_log.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using Texts = std::vector<std::string>;

constexpr char NOT_INSTALLED[] = "Warning: Could not determine actual_gid. Skipping data.\n";

constexpr char DATA_MISFIT[] = "Error: The package '/app/p/appdata' does not fit its description\n";
constexpr char REFUSED[] =
    "Error: The package '/app/p/bin' does not fit its description\n"
    "Application binaries will not be restored.\n";

struct Restored {
  int status = -1;
  std::string errors;
  Texts log;
};

Restored restore_bytes(const std::string& archive) {
  write_file("/a.tar", archive);
  Reader reader("/a.tar");
  const RecordedLog log;
  const CapturedOutput errors(STDERR_FILENO);
  const int status = harbix::app::restore(reader);
  return {status, errors.text(), log.messages()};
}

Restored restore_archive(const TarBuilder& archive) { return restore_bytes(archive.text()); }

/// Adds a package of the application in the folder `directory`, with one file.
void add_package(TarBuilder& archive, const std::string& name, const std::string& directory,
                 const std::string& path, const std::string& entry) {
  meta::Manifest manifest = described("p", directory);
  manifest.push_back(record(S_IFREG | 0640, path));
  add_metadata(archive, name, manifest);
  archive.file(name + "/" + entry, "new");
}

void add_data(TarBuilder& archive, const std::string& package, const std::string& directory) {
  add_package(archive, "/app/" + package + "/appdata", directory,
              std::string(APPLICATION_DATA) + "/" + directory + "/data/f", "data/f");
}

void add_binaries(TarBuilder& archive, const std::string& package, const std::string& directory) {
  add_package(archive, "/app/" + package + "/bin", directory, "/apps/" + directory + "/f", "f");
}

/// A device with a list of installed applications that is empty.
class AppRestoreTest : public AppDevice {
 protected:
  [[nodiscard]] ::testing::AssertionResult with_empty_list(const std::function<void()>& body) const {
    return on_the_device([&body] {
      put_registered_applications("");
      body();
    });
  }
};

TEST_F(AppRestoreTest, NeedsTheListOfWhatIsInstalled) {
  EXPECT_TRUE(on_the_device([] {
    const Restored restored = restore_archive(TarBuilder());
    EXPECT_EQ(restored.status, 1);
    EXPECT_EQ(restored.errors,
              "Failed to open /pps/system/installer/registeredapps/.all\nError reading registered apps\n");
  }));
}

TEST_F(AppRestoreTest, NeedsTheOwnerOfApplications) {
  EXPECT_TRUE(with_empty_list([] {
    put("/etc/passwd", "root:x:0:0::/:/bin/sh\n");
    const Restored restored = restore_archive(TarBuilder());
    EXPECT_EQ(restored.status, 1);
    EXPECT_EQ(restored.errors, "Error: User 'apps' does not exist\n");
    EXPECT_EQ(restored.log, (Texts{"2 ERROR: User 'apps' does not exist"}));
  }));
}

TEST_F(AppRestoreTest, OfAnArchiveWithoutPackagesDoesNothing) {
  EXPECT_TRUE(with_empty_list([] {
    EXPECT_EQ(restore_archive(TarBuilder()).status, 0);
    EXPECT_EQ(restore_archive(TarBuilder()).errors, "");
    harbix::verbose = true;
    EXPECT_EQ(restore_archive(TarBuilder()).errors, "EOF reached\nEOF\n");
  }));
}

TEST_F(AppRestoreTest, StopsAtAPackageOfAnotherKind) {
  EXPECT_TRUE(with_empty_list([] {
    for (const std::string name : {"/app/p/pps", "/media/p", "/settings"}) {
      TarBuilder archive;
      add_metadata(archive, name, described("p", "a"));
      add_data(archive, "q", "b");
      const Restored restored = restore_archive(archive);
      EXPECT_EQ(restored.status, 1);
      EXPECT_EQ(restored.errors, "Path " + name + "/.backup.metadata not recognized\n");
      EXPECT_EQ(restored.log, (Texts{"2 Package not recognized '" + name + "/.backup.metadata'"}));
    }
  }));
}

TEST_F(AppRestoreTest, TellsWhatAPackageNeedsWhenVerbose) {
  EXPECT_TRUE(with_empty_list([] {
    TarBuilder archive;
    add_data(archive, "p", "a");
    harbix::verbose = true;
    const std::string report =
        "Required space on disk: 1 bytes, or 4096 real bytes or 1 blocks\n"
        "************* /app/p/appdata/.backup.metadata ******************\n";
    const std::string errors = restore_archive(archive).errors;
    EXPECT_EQ(errors.substr(0, report.size()), report);
    EXPECT_EQ(count_of(errors, "\nData Package p\n"), 1U) << errors;
    EXPECT_TRUE(errors.ends_with("EOF\n")) << errors;
  }));
}

TEST_F(AppRestoreTest, LeavesTheDataOfWhatIsNotInstalledAlone) {
  EXPECT_TRUE(with_empty_list([] {
    put("/accounts/1000/appdata/a/data/f", "old");
    TarBuilder archive;
    add_data(archive, "p", "a");
    const Restored restored = restore_archive(archive);
    EXPECT_EQ(restored.status, 0);
    EXPECT_EQ(restored.errors, NOT_INSTALLED);
    EXPECT_EQ(restored.log, (Texts{"3 Application '/apps/a' does not exist"}));
    EXPECT_TRUE((Tree{dir("a", {dir("data", {file("f", "old")})})}.matches(APPLICATION_DATA)));
  }));
}

TEST_F(AppRestoreTest, SkipsDataThatDoesNotFitItsDescriptionAndFails) {
  EXPECT_TRUE(with_empty_list([] {
    struct Row {
      const char *directory, *data_directory, *path;
    };
    const std::string data = APPLICATION_DATA;
    for (const Row& row : {Row{"a", "/accounts/1000/appdata/b", "/accounts/1000/appdata/b/data/f"},
                           Row{"a", "/accounts/1000/appdata/a", "/accounts/1000/appdata/a/../b/data/f"},
                           Row{"a", "/accounts/1000/appdata/a", "/accounts/1000/appdata/ab/data/f"},
                           Row{"a", "/accounts/1000/appdata/a", "/accounts/1000/appdata/a/"},
                           Row{"..", "/accounts/1000/appdata/..", "/accounts/1000/appdata/../data/f"},
                           Row{".", "/accounts/1000/appdata/.", "/accounts/1000/appdata/./data/f"},
                           Row{"a/b", "/accounts/1000/appdata/a/b", "/accounts/1000/appdata/a/b/data/f"}}) {
      TarBuilder archive;
      add_metadata(archive, "/app/p/appdata",
                   {{"Package", "p"},
                    {"App-Directory", row.directory},
                    {"Data-Directory", row.data_directory},
                    record(S_IFREG | 0640, row.path)});
      archive.file("/app/p/appdata/data/f", "new");
      const Restored restored = restore_archive(archive);
      EXPECT_EQ(restored.status, 1) << row.path;
      EXPECT_EQ(restored.errors, DATA_MISFIT) << row.path;
      EXPECT_EQ((Texts{"2 ERROR: The package '/app/p/appdata' does not fit its description"}), restored.log)
          << row.path;
    }
    EXPECT_TRUE(Tree{}.matches(APPLICATION_DATA));
  }));
}

TEST_F(AppRestoreTest, RefusesBinariesOutsideOfTheirFolderAndTheDataThatFollows) {
  EXPECT_TRUE(with_empty_list([] {
    harbix::verbose = true;
    struct Row {
      std::string directory, path, reason;
    };
    const Row rows[] = {
        {"a/", "/apps/a/f", ""},
        {"a/b", "/apps/a/b/f", "Not rooted at apps: '/apps/a/b'\n"},
        {"../x", "/x/f", "Not rooted at apps: '/apps/../x'\n"},
        {"..", "/f", ""},
        {".", "/apps/f", ""},
        {"a", "/apps/b/f", ""},
        {"a", "/apps/ab/f", ""},
        {"a", "/apps/a", ""},
        {"a", "/apps/a/", ""},
        {"a", "/apps/a/../b/f", ""},
    };
    for (const Row& row : rows) {
      TarBuilder archive;
      add_package(archive, "/app/p/bin", row.directory, row.path, "f");
      add_data(archive, "p", "a");
      add_data(archive, "p", "b");
      const Restored restored = restore_archive(archive);
      EXPECT_EQ(restored.status, 1) << row.path;
      EXPECT_EQ(1U, count_of(restored.errors, row.reason + REFUSED))
          << row.directory << row.path << restored.errors;
      // Forgotten after the package that it concerned.
      EXPECT_EQ(count_of(restored.errors, "Data Package p\nSkipping package: p\n"), 1U) << restored.errors;
      EXPECT_EQ(count_of(restored.errors, NOT_INSTALLED), 1U) << restored.errors;
      EXPECT_EQ((Texts{"2 ERROR: The package '/app/p/bin' does not fit its description",
                       "3 Application '/apps/b' does not exist"}),
                restored.log)
          << row.path;
    }
    EXPECT_TRUE(Tree{}.matches("/apps"));
  }));
}

TEST_F(AppRestoreTest, SkipsOnlyTheDataOfThePackageThatWasRefused) {
  EXPECT_TRUE(with_empty_list([] {
    TarBuilder archive;
    add_binaries(archive, "p", "..");
    add_data(archive, "q", "a");
    add_data(archive, "p", "a");
    EXPECT_EQ(REFUSED + std::string(NOT_INSTALLED) + "Skipping package: p\n",
              restore_archive(archive).errors);
  }));
}

TEST_F(AppRestoreTest, RefusesToPutBinariesInThePlaceOfWhatIsNoFolder) {
  EXPECT_TRUE(with_empty_list([] {
    put("/out/f", "old");
    put("/apps/file", "old");
    std::filesystem::create_symlink("/out", "/apps/link");
    for (const char* directory : {"file", "link"}) {
      TarBuilder archive;
      add_binaries(archive, "p", directory);
      const Restored restored = restore_archive(archive);
      EXPECT_EQ(restored.status, 0) << directory;
      EXPECT_EQ(restored.errors, "Application binaries will not be restored.\n") << directory;
    }
    EXPECT_TRUE((Tree{file("f", "old")}.matches("/out")));
  }));
}

TEST_F(AppRestoreTest, GoesOnWithoutTheInstallerAndFailsInTheEnd) {
  EXPECT_TRUE(with_empty_list([] {
    put("/apps/there/f", "old");
    put("/accounts/1000/appdata/there/data/f", "old");
    TarBuilder archive;
    add_binaries(archive, "p", "there");
    add_data(archive, "p", "there");
    add_data(archive, "q", "there");
    add_binaries(archive, "r", "new");
    add_data(archive, "s", "gone");
    const Restored restored = restore_archive(archive);
    EXPECT_EQ(restored.status, 1);
    const std::string there = "Error: Installer request for '/apps/there' failed: Failed to create file '";
    const std::string fresh = "Error: Installer request for '/apps/new' failed: Failed to create file '";
    // Asked of the binaries, which are refused with their data, and of the data of another package.
    EXPECT_EQ(count_of(restored.errors, there), 2U) << restored.errors;
    EXPECT_EQ(count_of(restored.errors, "Application binaries will not be restored.\nSkipping package: p\n"),
              1U)
        << restored.errors;
    EXPECT_EQ(count_of(restored.errors, fresh), 1U) << restored.errors;
    EXPECT_TRUE(restored.errors.ends_with(NOT_INSTALLED)) << restored.errors;
    ASSERT_EQ(restored.log.size(), 4U);
    for (std::size_t i = 0; i < 3; ++i)
      EXPECT_EQ(restored.log[i].find("2 ERROR: Installer request for '/apps/"), 0U) << restored.log[i];
    EXPECT_TRUE((
        Tree{dir("there", {file("f", "old")}), dir("new", {file("f", "new", 0640)}, 0770)}.matches("/apps")));
    EXPECT_TRUE((Tree{dir("there", {dir("data", {file("f", "old")})})}.matches(APPLICATION_DATA)));
  }));
}

TEST_F(AppRestoreTest, UninstallsWhatTheStorefrontInstalledFirst) {
  EXPECT_TRUE(on_the_device([] {
    put_registered_applications(
        "a.id::a.p,1.0,source::shopvale\nb.id::b.p,1.0,source::websl\nc.id::c.p,1.0,source::shopvale\n");
    harbix::verbose = true;
    const Restored restored = restore_archive(TarBuilder());
    EXPECT_EQ(restored.status, 0) << "what cannot be uninstalled is not what is restored";
    EXPECT_EQ(restored.log, (Texts{"2 Unregister of 'a.id' failed", "2 Unregister of 'c.id' failed"}));
    EXPECT_EQ(count_of(restored.errors, "Error: Failed to create file '/pps/system/installer/upd/current/"),
              2U)
        << restored.errors;
  }));
}

TEST_F(AppRestoreTest, UninstallsNothingForAnArchiveThatCannotBeRead) {
  EXPECT_TRUE(on_the_device([] {
    put_registered_applications("a.id::a.p,1.0,source::shopvale\n");
    // A long name, and not the header that it belongs to.
    TarBuilder archive;
    archive.add('L', "long", std::string(200, 'n'));
    const Restored restored = restore_bytes(archive.truncated_text());
    EXPECT_EQ(restored.status, 1);
    EXPECT_EQ(restored.errors, "Error: Failed to read archive header Damaged tar archive\n");
    EXPECT_EQ(restored.log, (Texts{"2 ERROR: Failed to read archive header Damaged tar archive"}));
  }));
}

TEST_F(AppRestoreTest, FailsWhereTheArchiveIsDamagedAfterAPackage) {
  EXPECT_TRUE(with_empty_list([] {
    TarBuilder archive;
    add_data(archive, "p", "a");
    const Restored restored = restore_bytes(archive.truncated_text());
    EXPECT_EQ(restored.status, 1);
    EXPECT_EQ(restored.errors.find("Error: The archive is damaged, so that no application is uninstalled: "),
              0U)
        << restored.errors;
    EXPECT_EQ(count_of(restored.errors, NOT_INSTALLED), 1U) << restored.errors;
    EXPECT_EQ(count_of(restored.errors, "\nError: "), 1U) << restored.errors;
  }));
}

TEST_F(AppRestoreTest, FailsForAPackageWithoutItsDescription) {
  EXPECT_TRUE(with_empty_list([] {
    for (const char* kind : {"bin", "appdata"}) {
      TarBuilder archive;
      add_metadata(archive, "/app/p/" + std::string(kind), {{"Package", "p"}});
      const Restored restored = restore_archive(archive);
      EXPECT_EQ(restored.status, 1) << kind;
      EXPECT_EQ(restored.errors, "Error: Key App-Directory not found.\n") << kind;
    }
  }));
}

TEST_F(AppRestoreTest, StopsTheHomeScreenOnceBeforeItsFirstPackage) {
  EXPECT_TRUE(with_empty_list([] {
    TarBuilder archive;
    for (const char* name :
         {"/app/sys.systemtray/appdata", "/app/sys.navigator/appdata", "/app/sys.navigator/pps"})
      add_metadata(archive, name, described("x", "x"));
    const Restored restored = restore_archive(archive);
    EXPECT_EQ(restored.status, 0);
    EXPECT_EQ(restored.errors,
              "HMI component (sys.systemtray)\n"
              "Error slaying navigator No such file or directory\n"
              "Error executing /base/bin/sh launcher stop ('No such file or directory')\n"
              "HMI component (sys.navigator)\n"
              "HMI component (sys.navigator)\n");
    EXPECT_EQ(restored.log, (Texts{"3 Could not kill navigator", "3 Could not stop launcher"}));
  }));
}

TEST_F(AppRestoreTest, GivesTheMaskBack) {
  EXPECT_TRUE(with_empty_list([] {
    const mode_t before = ::umask(0123);
    static_cast<void>(restore_archive(TarBuilder()));
    EXPECT_EQ(::umask(before), 0123U);
  }));
}

}  // namespace
}  // namespace harbix::test
