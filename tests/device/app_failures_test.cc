#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/application_device.h"
#include "tests/support/crafted_package.h"

namespace harbix::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// A bought application and one from elsewhere, both with data: what goes wrong with one package of an
/// archive, and what becomes of the others.
class AppFailures : public testing::Test {
 protected:
  AppFailures() {
    for (const InstalledApplication& each : {bought_, loaded_}) {
      device_.install(each);
      device_.add_data(each, "data/state", "old");
    }
  }

  Outcome restore(const std::vector<CraftedPackage>& packages) {
    return device_.harbix({"-r", "app"}, archive_of(packages));
  }

  static CraftedPackage new_data(const std::string& id) {
    return CraftedPackage::data(id).folder("data").file("data/state", "new");
  }

  /// Backs up with this list in the place of the installer's.
  Outcome run_with_list(const std::string& lines, const std::string& command) {
    return device_.shell(
        "mount -t tmpfs none /pps && mkdir -p /pps/system/installer/registeredapps &&\n"
        "printf '@.all\\n" +
        lines + "' > /pps/system/installer/registeredapps/.all\n" + command +
        "; status=$?; umount /pps; exit $status");
  }

  ApplicationDevice device_;
  InstalledApplication bought_ = bought_application();
  InstalledApplication loaded_ = loaded_application();
};

TEST_F(AppFailures, OfOnePackageLeaveTheNextOnes) {
  struct Row {
    const char* name;
    CraftedPackage package;
    std::string error;
  };
  const std::string data = loaded_.data() + "/data";
  for (const Row& row :
       {Row{"no folder", CraftedPackage::data("side.app").file("data/a", "1").without("App-Directory"),
            "Error: Key App-Directory not found."},
        Row{"no data folder", CraftedPackage::data("side.app").file("data/a", "1").without("Data-Directory"),
            "Error: Key Data-Directory not found."},
        Row{"a null byte in the manifest",
            CraftedPackage::data("side.app").file("data/a", "1").attribute("Extras", std::string(1, '\0')),
            "Error: Manifest with a null byte"},
        Row{"another folder than its own",
            CraftedPackage::data("side.app").file("data/a", "1").attribute("Data-Directory", "/etc"),
            "Error: The package '/app/side.app.pkg/appdata' does not fit its description"},
        Row{"a path that leads out",
            CraftedPackage::data("side.app").file("data/a", "1").record(S_IFREG | 0660U, "/etc/passwd"),
            "Error: The package '/app/side.app.pkg/appdata' does not fit its description"},
        Row{"a folder of several names",
            CraftedPackage::data("side.app").file("data/a", "1").attribute("App-Directory", "a/b"),
            "Error: The package '/app/side.app.pkg/appdata' does not fit its description"},
        Row{"a name of the program's own", CraftedPackage::data(".harbix-data-1").file("data/a", "1"),
            "Error: The package '/app/.harbix-data-1.pkg/appdata' does not fit its description"}}) {
    device_.add_data(loaded_, "data/state", "old");
    const Outcome outcome =
        restore({CraftedPackage::binary("shop.app").file("main", row.name), row.package,
                 CraftedPackage::data("shop.app").folder("data").file("data/state", row.name)});
    EXPECT_EQ(outcome.status, 1) << row.name;
    EXPECT_THAT(lines_of(outcome.errors), Contains(row.error)) << row.name;
    EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR), ElementsAre("ERROR: " + row.error.substr(7)));
    EXPECT_EQ(device_.read(bought_.folder() + "/main"), row.name);
    EXPECT_EQ(device_.read(bought_.data() + "/data/state"), row.name);
    EXPECT_EQ(device_.read(loaded_.data() + "/data/state"), "old") << row.name;
    EXPECT_FALSE(device_.exists(data + "/a")) << row.name;
  }
}

TEST_F(AppFailures, OfAFirstManifestUninstallNothing) {
  const Outcome outcome =
      restore({CraftedPackage::data("side.app").file("data/a", "1").attribute("Extras", std::string(1, '\0')),
               new_data("side.app")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(device_.read(loaded_.data() + "/data/state"), "new");
  EXPECT_THAT(device_.registered(), testing::SizeIs(2));
  EXPECT_EQ(device_.read(bought_.data() + "/data/state"), "old");
}

TEST_F(AppFailures, OfNamesLeaveAnApplicationOutOfABackup) {
  struct Row {
    const char* id;
    const char* package;
  };
  for (const Row& row : {Row{"bad.app", ""}, Row{"bad.app", "a/b"}, Row{"bad.app", "/"}, Row{"bad.app", ".."},
                         Row{"", "bad.pkg"}, Row{"..", "bad.pkg"}, Row{"a/b", "bad.pkg"}, Row{".", "bad.pkg"},
                         Row{".harbix-data-1", "bad.pkg"}}) {
    const std::string list = std::string(row.id) + "::" + row.package +
                             ",1.0,source::sideload\\nside.app::side.app.pkg,1.0,source::sideload\\n";
    const std::string error = "Error: The application '" + std::string(row.id) + "' (package '" +
                              row.package + "') is left out: no restore would take these names";
    const Outcome backup = run_with_list(list, "harbix -f /tmp/a.tar app");
    EXPECT_EQ(backup.status, 1) << error;
    EXPECT_THAT(lines_of(backup.errors), Contains(error));
    EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR), Contains("ERROR: " + error.substr(7)));
    const std::vector<std::string> names = device_.names("/tmp/a.tar");
    EXPECT_EQ(names.front(), "/app/side.app.pkg/appdata/.backup.metadata") << error;
    EXPECT_THAT(names, Contains("/app/sys.navigator/appdata/.backup.metadata"));
    const Outcome size = run_with_list(list, "harbix -s -f /tmp/size app");
    EXPECT_EQ(size.status, 1) << error;
    EXPECT_THAT(lines_of(size.errors), Contains(error));
  }
}

TEST_F(AppFailures, OfAListingFailTheBackupAndTheSizeReport) {
  device_.add_file(bought_, "native/main", "program");
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "app"}).status, 0);
  const std::vector<std::string> whole = device_.names("/tmp/a.tar");
  int failures = 0;
  for (int nth = 1; nth < 80; ++nth) {
    const auto run = [&](const std::string& arguments) {
      return device_.shell(
          "export ASAN_OPTIONS=verify_asan_link_order=0 HARBIX_FAIL_CALL=readdir "
          "HARBIX_FAIL_ERRNO=5 HARBIX_FAIL_NTH=" +
          std::to_string(nth) + "\nLD_PRELOAD=/opt/harbix/bin/tests/libfailing_calls.so exec harbix " +
          arguments);
    };
    const Outcome backup = run("-f /tmp/a.tar app");
    if (backup.status == 0) {
      EXPECT_EQ(device_.names("/tmp/a.tar"), whole) << nth;
      break;
    }
    ++failures;
    EXPECT_EQ(backup.status, 1) << nth;
    EXPECT_THAT(backup.errors,
                testing::ContainsRegex("Error: Directory '/[^']+' could not be read. .errno:5 "))
        << nth;
    EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR), Contains(HasSubstr("could not be read."))) << nth;
    // The home screen does not count in a size report.
    if (failures < 4) {
      EXPECT_EQ(run("-s -f /tmp/size app").status, 1) << nth;
    }
  }
  EXPECT_GT(failures, 6);
}

TEST_F(AppFailures, OfPathsAreReportedAndFailTheRestore) {
  const std::string long_name(300, 'n');
  const std::string path = bought_.data() + "/data/" + long_name;
  const std::string name = "/app/shop.app.pkg/appdata/data/" + long_name;
  const std::string archive =
      archive_of({CraftedPackage::binary("shop.app").file("main", "1"),
                  CraftedPackage::data("shop.app").folder("data").file("data/a", "1")});
  device_.write("/tmp/m", "Package: shop.app.pkg\nApp-Directory: shop.app\nData-Directory: " +
                              bought_.data() + "\nFile: 1 100660 0 0 1 " + path + "\nFile: 1 100660 0 0 1 " +
                              bought_.data() + "/data/a\n\n");
  // A name that this disk cannot hold is packed by another program.
  device_.write("/tmp/1.tar", archive.substr(0, archive.size() - 1024));
  const Outcome outcome = device_.shell(
      "python3 - <<'END'\nimport io,tarfile\nt=tarfile.open('/tmp/2.tar','w',format=tarfile.PAX_FORMAT)\n"
      "def add(name,data):\n i=tarfile.TarInfo(name); i.size=len(data); t.addfile(i,io.BytesIO(data))\n"
      "add('/app/shop.app.pkg/bin/.backup.metadata',b'Package: shop.app.pkg\\nApp-Directory: shop.app\\n"
      "Data-Directory: " +
      bought_.data() +
      "\\nExtras: source::shopvale\\nFile: 1 100660 0 0 1 /apps/shop.app/main\\n\\n')\n"
      "add('/app/shop.app.pkg/bin/main',b'1')\n"
      "add('/app/shop.app.pkg/appdata/.backup.metadata',open('/tmp/m','rb').read())\n"
      "add('" +
      name +
      "',b'1')\nadd('/app/shop.app.pkg/appdata/data/a',b'2')\nt.close()\nEND\n"
      "harbix -r -f /tmp/2.tar app");
  EXPECT_EQ(outcome.status, 1) << outcome.errors;
  EXPECT_THAT(lines_of(outcome.errors), Contains("Warning: " + path + ": File name too long"));
  EXPECT_EQ(device_.read(bought_.data() + "/data/a"), "2");
}

TEST_F(AppFailures, OfBinariesLeaveTheApplicationUnregistered) {
  device_.write(
      "/tmp/a.tar",
      archive_of(
          {CraftedPackage::binary("shop.app").file("main", "1").file("too large", std::string(300000, 'x')),
           CraftedPackage::data("shop.app").folder("data").file("data/state", "new"),
           CraftedPackage::binary("small").attribute("Extras", "source::sideload").file("m", "2"),
           new_data("side.app")}));
  const Outcome outcome = device_.shell(
      "mount -t tmpfs -o size=128k,mode=755 none /apps; chown apps:apps /apps\n"
      "mkdir -m 750 /apps/side.app; chown apps /apps/side.app\n"
      "harbix -r -f /tmp/a.tar app; echo status $?; ls /apps; umount /apps");
  EXPECT_EQ(outcome.output, "status 1\nside.app\nsmall\n");
  EXPECT_THAT(lines_of(outcome.errors),
              AllOf(Contains("Error: The binaries of 'shop.app.pkg' are not complete: the application is "
                             "removed and not registered"),
                    Contains("Skipping package: shop.app.pkg")));
  EXPECT_THAT(device_.registered(), Not(Contains(testing::StartsWith("shop.app::"))));
  EXPECT_THAT(device_.registered(), Contains(testing::StartsWith("small::")));
  EXPECT_EQ(device_.read(loaded_.data() + "/data/state"), "new");
}

TEST_F(AppFailures, OfBinariesThatAreCutOffLeaveNoApplication) {
  const std::string archive = archive_of(
      {new_data("side.app"),
       CraftedPackage::binary("shop.app").file("main", "1").file("other", std::string(2000, '2'))});
  const Outcome outcome = device_.harbix({"-r", "app"}, archive.substr(0, archive.size() - 3 * 512));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_FALSE(device_.exists("/apps/shop.app"));
  EXPECT_THAT(device_.registered(), Not(Contains(testing::StartsWith("shop.app::"))));
  EXPECT_EQ(device_.read(loaded_.data() + "/data/state"), "new");
}

TEST_F(AppFailures, OfDataThatIsCutOffKeepTheOldData) {
  const Snapshot before = device_.snapshot(loaded_.data());
  CraftedPackage package = CraftedPackage::data("side.app").folder("data").file("data/first", "1");
  package.file("data/state", std::string(2000, '2'));
  const std::string archive = archive_of({package});
  for (const std::size_t missing : {3U, 5U, 7U}) {
    const Outcome outcome = device_.harbix({"-r", "app"}, archive.substr(0, archive.size() - missing * 512));
    EXPECT_EQ(outcome.status, 1) << missing;
    EXPECT_THAT(lines_of(outcome.errors), Contains("Error: The new data for '" + loaded_.data() +
                                                   "' is not complete: the old data stays"));
    EXPECT_EQ(difference(before, device_.snapshot(loaded_.data())), "") << missing;
  }
  EXPECT_EQ(device_.harbix({"-r", "app"}, archive).status, 0);
  EXPECT_EQ(device_.read(loaded_.data() + "/data/first"), "1");
}

TEST_F(AppFailures, OfAFolderThatAppsCannotWriteKeepTheOldData) {
  const Snapshot before = device_.snapshot(loaded_.data());
  const std::string archive = archive_of(
      {new_data("side.app"),
       CraftedPackage::binary("fresh").attribute("Extras", "source::sideload").file("main", "new")});
  const Outcome outcome = device_.shell(
      "chown root:root /accounts/1000/appdata; chmod 0755 /accounts/1000/appdata; harbix -r app", archive);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.errors, HasSubstr("Permission denied"));
  EXPECT_EQ(difference(before, device_.snapshot(loaded_.data())), "");
  EXPECT_EQ(device_.read("/apps/fresh/main"), "new");
}

/// Restores on a data folder of limited size, of which the first lines of output tell what is there.
std::string on_a_small_disk(const std::string& size, const std::string& before) {
  return "mount -t tmpfs -o mode=755,size=" + size +
         " none /accounts/1000/appdata; chown apps:apps /accounts/1000/appdata\n"
         "mkdir -p /accounts/1000/appdata/side.app/data; cd /accounts/1000/appdata/side.app\n" +
         before +
         "\ncd /; harbix -r -f /tmp/a.tar app; echo status $?\n"
         "cd /accounts/1000/appdata; find . -type f | sort; cd /; umount /accounts/1000/appdata";
}

TEST_F(AppFailures, OfSpaceKeepTheOldDataWhereTheNewCannotFit) {
  device_.write(
      "/tmp/a.tar",
      archive_of(
          {CraftedPackage::data("side.app").folder("data").file("data/large", std::string(600000, 'x'))}));
  const Outcome outcome = device_.shell(on_a_small_disk("512k", "echo old > data/state"));
  EXPECT_EQ(outcome.output, "status 1\n./side.app/data/state\n");
  EXPECT_THAT(outcome.errors,
              testing::ContainsRegex("Error: The new data for '/accounts/1000/appdata/side.app'"
                                     " needs 602112 bytes, and there is room for [0-9]+: the "
                                     "old data stays\n"));
}

TEST_F(AppFailures, OfSpaceForBothRemoveTheOldDataFirst) {
  device_.write(
      "/tmp/a.tar",
      archive_of(
          {CraftedPackage::data("side.app").folder("data").file("data/large", std::string(300000, 'x'))}));
  const Outcome outcome =
      device_.shell(on_a_small_disk("512k", "head -c 300000 /dev/zero > data/state; chown -R apps ."));
  EXPECT_EQ(outcome.output, "status 0\n./side.app/data/large\n") << outcome.errors;
}

TEST_F(AppFailures, OfAnInterruptedRunLeaveNothingBehindTheNext) {
  device_.make_owned_folder("/accounts/1000/appdata/.harbix-data-77/side.app/data", 0700,
                            device_.user("apps"), 0);
  device_.write("/accounts/1000/appdata/.harbix-data-77/side.app/data/half", "half");
  EXPECT_EQ(restore({new_data("side.app")}).status, 0);
  EXPECT_FALSE(device_.exists("/accounts/1000/appdata/.harbix-data-77"));
  EXPECT_EQ(device_.read(loaded_.data() + "/data/state"), "new");
}

TEST_F(AppFailures, OfADataPackageWithoutRecordsReplaceNothing) {
  const Snapshot before = device_.snapshot(loaded_.data());
  const Outcome outcome = restore({CraftedPackage::data("side.app")});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(difference(before, device_.snapshot(loaded_.data())), "");
}

TEST_F(AppFailures, OfRunningProgramsMixNoOldDataWithNew) {
  // What a program saves while the new data is being made goes with the old data.
  device_.write("/tmp/a.tar", archive_of({CraftedPackage::data("side.app")
                                              .folder("data")
                                              .file("data/first", "1")
                                              .file("data/large", std::string(3000000, 'x'))
                                              .file("data/state", "new")}));
  const Outcome outcome = device_.shell(
      "{ head -c 2000000; sleep 0.5; cd /accounts/1000/appdata/side.app/data && echo late > late\n"
      "cat; } < /tmp/a.tar | harbix -r app");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_FALSE(device_.exists(loaded_.data() + "/data/late"));
  EXPECT_EQ(device_.read(loaded_.data() + "/data/state"), "new");
}

TEST_F(AppFailures, DoNotComeFromTheOrderOfEntries) {
  for (int i = 0; i < 3; ++i) {
    const std::string number = std::to_string(i);
    device_.add_data(loaded_, "data/z" + number, number);
    device_.add_data(loaded_, "data/m" + number + "/f", number);
  }
  const Snapshot data = device_.snapshot(loaded_.data());
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "app", "side.app.pkg"}).status, 0);
  for (const char* order : {"sort", "sort -r", "cat"}) {
    device_.add_data(loaded_, "data/state", "changed");
    const Outcome outcome = device_.shell(
        "rm -rf /tmp/x; mkdir /tmp/x; cd /tmp/x; tar -xf ../a.tar 2> /dev/null\n"
        "find . -mindepth 5 > ../found; find . -mindepth 4 -maxdepth 4 >> ../found\n"
        "sed 's,^./,,' ../found > ../names; grep metadata ../names > ../first\n"
        "grep -v metadata ../names | " +
        std::string(order) +
        " >> ../first\n"
        "tar --no-recursion -cf ../again -T ../first && harbix -r -f /tmp/again app");
    EXPECT_EQ(outcome.status, 0) << order << outcome.errors;
    EXPECT_EQ(difference(data, device_.snapshot(loaded_.data())), "") << order;
  }
}

TEST_F(AppFailures, OfEntriesWithoutARecordFailTheRestore) {
  const Outcome outcome =
      restore({new_data("side.app")
                   .entry(TarBuilder::FILE, "/app/side.app.pkg/appdata/data/stranger", "s")
                   .entry(TarBuilder::FILE, "/app/other/stranger", "s")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(
      lines_of(outcome.errors),
      AllOf(Contains("Error: No record in the manifest for '/app/side.app.pkg/appdata/data/stranger'"),
            Contains("Skip: /app/side.app.pkg/appdata/data/stranger"), Contains("Skip: /app/other/stranger"),
            Not(Contains(HasSubstr("for '/app/other")))));
  EXPECT_EQ(device_.read(loaded_.data() + "/data/state"), "new");
  EXPECT_FALSE(device_.exists(loaded_.data() + "/data/stranger"));
}

TEST_F(AppFailures, OfRecordsWithoutAnEntryFailTheRestoreIfTheItemExisted) {
  const std::string path = loaded_.data() + "/data/vanished";
  for (const unsigned mode : {0U, S_IFREG | 0660U}) {
    const Outcome outcome = restore({new_data("side.app").record(mode, path)});
    EXPECT_EQ(outcome.status, mode == 0 ? 0 : 1) << mode;
    EXPECT_THAT(lines_of(outcome.errors), Contains("Warning: No entry in the archive for " + path));
    EXPECT_EQ(device_.read(loaded_.data() + "/data/state"), "new");
  }
}

TEST_F(AppFailures, OfOneBitInAManifestAreNeverSilent) {
  const CraftedPackage binary =
      CraftedPackage::binary("shop.app").folder("native").file("native/main", "program");
  const CraftedPackage data =
      CraftedPackage::data("shop.app").folder("data").file("data/state", "kept").link("data/link", "state");
  const std::string archive = archive_of({binary, data});
  ASSERT_EQ(device_.harbix({"-r", "app"}, archive).status, 0);
  const auto contents = [&] {
    std::vector<std::string> all;
    for (const std::string& folder : {bought_.folder(), bought_.data()}) {
      if (!device_.exists(folder)) continue;
      for (const auto& [path, item] : device_.snapshot(folder)) all.push_back(folder + path + item.content);
    }
    return all;
  };
  const std::vector<std::string> whole = contents();
  for (const std::size_t manifest : {archive.find("Package: "), archive.rfind("Package: ")}) {
    const std::size_t end = archive.find("\n\n", manifest);
    for (std::size_t position = manifest; position < end; position += 11) {
      std::string damaged = archive;
      damaged[position] = static_cast<char>(damaged[position] ^ (1 << (position % 7)));
      const Outcome outcome = device_.harbix({"-r", "app"}, damaged);
      EXPECT_TRUE(outcome.status == 1 || (outcome.status == 0 && contents() == whole))
          << "byte " << position - manifest << ": " << archive.substr(position, 20) << outcome.errors;
    }
  }
}

}  // namespace
}  // namespace harbix::test
