#include <sys/stat.h>

#include <filesystem>
#include <string>

#include <gmock/gmock.h>

#include "tests/inspect/plan_run.h"
#include "tests/inspect/schema.h"
#include "tests/support/application_device.h"
#include "tests/support/crafted_package.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

/// Everything that a plan could change: files with their contents, owners and times; objects and the
/// installer's list. The sample's settings scripts note in /var/log when they are asked for their lists.
constexpr char PICTURE[] = R"(
picture() {
  find /accounts /apps /base /etc /root /var -path /var/log -prune -o -printf '%p %y %m %U %G %s %T@ %l\n' | sort
  find /accounts /apps /base /etc /root /var -path /var/log -prune -o -type f -print0 | sort -z | xargs -0 -r md5sum
  find /pps -printf '%p %y %m %U %G\n' | sort
  find /pps -type f -print0 | sort -z | xargs -0 cat
}
)";

/// Plans on a device, and restores.
class Plan : public ::testing::Test {
 protected:
  /// What a plan says, of which nothing may stay on the device.
  template <typename DeviceType>
  Foreseen plan(DeviceType& device, const std::string& keywords) {
    const Outcome outcome = device.shell(
        PICTURE +
        ("picture > /tmp/before; harbix-inspect plan --json /tmp/a.tar " + keywords +
         "; status=$?; picture > /tmp/after; diff /tmp/before /tmp/after >&2 || exit 99; exit $status"));
    EXPECT_LE(outcome.status, 1) << outcome.errors;
    EXPECT_EQ(schema_.faults_of(outcome.output), "");
    Foreseen all = foreseen(outcome.output);
    EXPECT_EQ(all.status, outcome.status);
    return all;
  }

  template <typename DeviceType>
  std::string restore(DeviceType& device, const std::string& keywords) {
    const Outcome outcome = device.shell("harbix -v -r -f /tmp/a.tar " + keywords);
    status_ = outcome.status;
    return outcome.errors;
  }

  /// A restore agrees with the plan of it on every package, and on every item.
  template <typename DeviceType>
  Foreseen expect_agreement(DeviceType& device, const std::string& keywords) {
    std::string operand = keywords;
    std::ranges::replace(operand, ' ', '_');
    const Foreseen all = plan(device, keywords);
    const std::string log = restore(device, operand);
    EXPECT_TRUE(status_ == 0 || all.status == 1);
    std::set<std::string> found;
    if (keywords.find("app") != std::string::npos) {
      const Happened happened = happened_to_applications(lines_of_keyword(log, "app"));
      for (const auto& [name, fate] : happened.fates) {
        const bool comes_back = all.fates.contains(name) && all.fates.at(name) == "restored";
        EXPECT_EQ(comes_back, fate == "restored") << name;
      }
      for (const std::string& path : happened.left_out) {
        // A folder of the navigator that is there is as good as one that comes back.
        const bool is_there = path.starts_with(NAVIGATOR_DATA) && !all.left_out.contains(path) &&
                              std::filesystem::is_directory(device.outside(path));
        if (!is_there) found.insert(path);
      }
      // Items that had vanished before the backup miss nothing.
      for (const std::string& path : happened.without_entry) {
        if (all.left_out.contains(path)) found.insert(path);
      }
    }
    if (keywords.find("media") != std::string::npos) add_media(device, all, log, found);
    if (keywords.find("settings") != std::string::npos) add_settings(log, found);
    EXPECT_EQ(difference_of(first_lines(all.left_out), found), "");
    return all;
  }

  /// As the restore's own lines show names with newlines.
  static std::set<std::string> first_lines(const std::set<std::string>& names) {
    std::set<std::string> lines;
    for (const std::string& name : names) lines.insert(name.substr(0, name.find('\n')));
    return lines;
  }

  static std::string difference_of(const std::set<std::string>& planned, const std::set<std::string>& found) {
    std::string text;
    for (const std::string& name : planned) {
      if (!found.contains(name)) text += "planned to be left out, and is there: " + name + "\n";
    }
    for (const std::string& name : found) {
      if (!planned.contains(name)) text += "left out without a plan: " + name + "\n";
    }
    return text;
  }

  template <typename DeviceType>
  static void add_media(const DeviceType& device, const Foreseen& all, const std::string& log,
                        std::set<std::string>& found) {
    for (const std::string& line : lines_of_keyword(log, "media")) {
      if (const std::string name = behind(line, "Skipping ./"); !name.empty()) {
        // A folder that is there is as good as one that comes back.
        const std::string path =
            std::filesystem::path((name.starts_with("D/") ? DTM + ("/" + name) : shared(name)))
                .lexically_normal();
        if (all.left_out.contains(path) || !std::filesystem::is_directory(device.outside(path)))
          found.insert(path);
      } else if (line.starts_with("Warning: /accounts/")) {
        found.insert(path_before_reason(behind(line, "Warning: ")));
      }
    }
  }

  static void add_settings(const std::string& log, std::set<std::string>& found) {
    for (const std::string& line : lines_of_keyword(log, "settings")) {
      if (const std::string name = behind(line, "Skip: /settings"); !name.empty()) found.insert(name);
      if (const std::string path = behind(line, "Warning: /"); !path.empty())
        found.insert(path_before_reason("/" + path));
      if (std::string name = behind(line, "WARNING: File "); !name.empty()) {
        name.resize(name.find(" could not be restored"));
        found.insert(name.starts_with("/settings/") ? behind(name, "/settings") : name);
      }
    }
  }

  JsonSchema schema_{HARBIX_INSPECT_SCHEMA};
  int status_ = -1;  ///< of the last restore
};

/// The sample device, kept in a folder of the test's own.
class SampleDevice {
 public:
  Outcome shell(const std::string& script) {
    return run_program({HARBIX_DEVICE_PROGRAM, "--state", folder_ / "device", "--log", folder_ / "log",
                        "bash", "-c", script});
  }

  [[nodiscard]] std::filesystem::path outside(const std::string& path) const {
    return folder_ / "device" + path;
  }

 private:
  TemporaryFolder folder_;
};

/// A function of the shell.
const std::string UNINSTALL = R"(
uninstall() {
  exec 3<>"/pps/system/installer/upd/current/test?wait,delta"
  printf 'action::uninstall\npackage_id::%s\n' "$1" >&3
  while read -r line <&3; do if [[ $line == result::* ]]; then break; fi; done
  exec 3>&-
  rm -f /pps/system/installer/upd/current/test
}
)";

class PlanOfSample : public Plan {
 protected:
  PlanOfSample() {
    EXPECT_EQ(device_.shell("harbix -f /tmp/a.tar app_media_settings 2>/dev/null").status, 0);
  }

  SampleDevice device_;
};

TEST_F(PlanOfSample, AgreesWithTheRestoreOfEverything) {
  const Foreseen all = expect_agreement(device_, "app media settings");
  EXPECT_GE(all.fates.size(), 25U);
  EXPECT_FALSE(all.removed.empty());
}

TEST_F(PlanOfSample, AgreesWithTheRestoreAfterALoss) {
  ASSERT_EQ(
      device_
          .shell(UNINSTALL + "for package in $(sed -n 's/^[^:]*::\\([^,]*\\),.*source::shopvale.*/\\1/p' "
                             "/pps/system/installer/registeredapps/.all); do uninstall $package; done\n"
                             "find /accounts/1000/appdata/*/data -mindepth 1 -delete\n"
                             "find /accounts/1000/shared /accounts/1000/sys/dtm -mindepth 1 -delete\n"
                             "find /accounts/1000/settings -type f -delete")
          .status,
      0);
  expect_agreement(device_, "app media settings");
}

TEST_F(PlanOfSample, AgreesWithTheRestoreWhereAnApplicationIsGone) {
  // One that no archive brings back: it was not bought.
  const Outcome gone = device_.shell(
      UNINSTALL +
      "id=$(sed -n 's/^\\([^:]*\\)::.*source::sideload.*/\\1/p' /pps/system/installer/registeredapps/.all | "
      "head -n 1)\n"
      "package=$(sed -n \"s/^$id::\\([^,]*\\),.*/\\1/p\" /pps/system/installer/registeredapps/.all)\n"
      "uninstall $package; echo $package");
  ASSERT_EQ(gone.status, 0) << gone.errors;
  const std::string package = lines_of(gone.output).back();
  const Foreseen all = expect_agreement(device_, "app");
  EXPECT_EQ(all.fates.at("/app/" + package + "/appdata"), "skipped");
}

TEST_F(PlanOfSample, AgreesWithTheRestoreWhereTheScriptsSayOtherwise) {
  ASSERT_EQ(device_
                .shell("printf '#!/bin/sh\\n[ $1 = blacklist ] && echo blacklist /accounts/1000/settings\\n"
                       "[ $1 = blacklist ] && echo blacklist /pps/services/d\\nexit 0\\n' > "
                       "/base/scripts/backup_and_restore/settings/zz; chmod 755 "
                       "/base/scripts/backup_and_restore/settings/zz")
                .status,
            0);
  const Foreseen all = expect_agreement(device_, "settings");
  EXPECT_EQ(all.status, 1);
  EXPECT_THAT(all.left_out, Contains(StartsWith("/accounts/1000/settings/")));
}

TEST_F(PlanOfSample, IsReadFromAPipeAsWell) {
  const std::string from_file = device_.shell("harbix-inspect plan --json /tmp/a.tar").output;
  const std::string from_pipe = device_.shell("cat /tmp/a.tar | harbix-inspect plan --json -").output;
  const auto fates = [](const std::string& output) { return foreseen(output).fates; };
  EXPECT_EQ(fates(from_pipe), fates(from_file));
  EXPECT_EQ(foreseen(from_pipe).left_out, foreseen(from_file).left_out);
}

/// Crafted archives, on a device with applications, media, objects and settings.
class PlanOfCrafted : public Plan {
 protected:
  PlanOfCrafted() {
    for (const InstalledApplication& each : {a_, bought_, built_in_}) {
      device_.install(each);
      device_.add_file(each, "main", "old");
      device_.add_data(each, "data/state", "old");
    }
    device_.write("/tmp/victim/file", "untouched");
    device_.write(shared("Old/photo"), "old");
    device_.link(shared("Old/out"), "/tmp/victim");
    device_.write(shared(".hidden/photo"), "old");
    device_.write(shared("Kept/protected"), "old", 0600);
    device_.own(shared("Kept/protected"), "media", "protected_media");
    device_.write(shared("Kept/locked/photo"), "old");
    device_.own(shared("Kept/locked"), "root", "root");
    const std::string script = std::string(SETTINGS_SCRIPTS) + "/lists";
    device_.write(script, "#!/bin/sh\n[ $1 = whitelist ] && echo whitelist /accounts/1000/settings\nexit 0\n",
                  0755);
    device_.own(script, "root", "root");
    device_.make_folder("/accounts/1000/settings/folder", 0755);
    device_.write("/accounts/1000/settings/there", "old");
    device_.link("/accounts/1000/settings/link", "/tmp/victim");
  }

  Foreseen expect_agreement_on(const std::string& archive, const std::string& keywords) {
    device_.write("/tmp/a.tar", archive);
    return expect_agreement(device_, keywords);
  }
  Foreseen expect_agreement_on(const std::vector<CraftedPackage>& packages) {
    return expect_agreement_on(archive_of(packages), "app");
  }

  /// Not bought: the next restore leaves it installed.
  static CraftedPackage binary(const std::string& id = "a") {
    return CraftedPackage::binary(id).attribute("Extras", "source::sideload");
  }
  static CraftedPackage data(const std::string& id = "a") { return CraftedPackage::data(id); }

  template <typename Add>
  static void add_hostile(const Add& add) {
    add(TarBuilder::HARD_LINK, "hard", "/tmp/victim/file");
    add(TarBuilder::CHARACTER_DEVICE, "device", "");
    add(TarBuilder::FIFO, "fifo", "");
    add(TarBuilder::SYMBOLIC_LINK, "out", "/tmp/victim");
    add(TarBuilder::FILE, "out/evil", "");
    add(TarBuilder::FILE, "file", "");
    add(TarBuilder::FILE, "file/below", "");
    add(TarBuilder::FOLDER, "folder", "");
    add(TarBuilder::FILE, "folder/inside", "");
    add(TarBuilder::FILE, "folder", "");
    add(TarBuilder::FILE, "file", "");
    add(TarBuilder::FILE, "up/../../../../tmp/evil", "");
    add(TarBuilder::FILE, "deep/er/last", "");
    add(TarBuilder::FILE, std::string(60, 'n') + "/last", "");
  }

  ApplicationDevice device_;
  InstalledApplication a_{.id = "a", .package = "a.pkg", .group = 10200, .extras = "source::sideload"};
  InstalledApplication bought_ = bought_application();
  InstalledApplication built_in_ = built_in_application();
};

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

TEST_F(PlanOfCrafted, AgreesOnHostileMedia) {
  TarBuilder tar;
  tar.file("/media/M/.backup.metadata", "\n");
  add_hostile([&](char type, const std::string& name, const std::string& target) {
    tar.add(type, "/media/M/" + name, "", 0660, target);
    tar.add(type, "/dtm/D/" + name, "", 0660, target);
  });
  tar.folder("/media/Old").file("/media/Old/photo", "new").file("/media/Old/out/evil", "evil");
  tar.file("/media/.hidden/photo", "new")
      .file("/media/Kept/protected", "new")
      .file("/media/Kept/locked/photo", "new");
  tar.file("/media/Kept/locked/other", "new").folder("/media/Kept/locked").file("/media/Kept", "new");
  tar.file("/media/bookmarks/mark", "new")
      .file("/media/bookmarks/deep/mark", "new")
      .file("/media//twice", "1");
  tar.file("/media/./twice", "2").file("/media/..", "evil").file("/dtm../../evil", "evil");
  const Foreseen all = expect_agreement_on(tar.text(), "media");
  EXPECT_EQ(all.removed.at(shared("Old")), 2U);
  EXPECT_FALSE(all.removed.contains(shared(".hidden")));
  EXPECT_TRUE(all.left_out.contains(shared("Kept/protected")));
}

TEST_F(PlanOfCrafted, AgreesOnMediaOfADamagedFile) {
  TarBuilder tar;
  tar.file("/media/Old/.backup.metadata", "\n")
      .file("/media/Old/photo", "new")
      .file("/media/Old/other", "new");
  const Foreseen all = expect_agreement_on(tar.truncated_text(), "media");
  EXPECT_TRUE(all.removed.empty());
  EXPECT_THAT(all.left_out, ElementsAre(shared("Old/photo")));
  EXPECT_THAT(all.troubles, ElementsAre("Could not read next archive header"));
}

TEST_F(PlanOfCrafted, HasLinesOfEveryKindThatIsDescribed) {
  TarBuilder tar;
  tar.file("/media/M/.backup.metadata", "\n").add(TarBuilder::FIFO, "/media/M/fifo");
  for (const std::string& archive : {tar.text(), tar.truncated_text()}) {
    device_.write("/tmp/a.tar", archive);
    plan(device_, "media");
  }
  EXPECT_THAT(schema_.unmet(), Not(Contains(StartsWith("plan_"))));
}

TEST_F(PlanOfCrafted, AgreesOnHostileSettings) {
  TarBuilder tar;
  tar.file("/settings/.backup.metadata", "\n");
  const std::string base = "/settings/accounts/1000/settings/";
  add_hostile([&](char type, const std::string& name, const std::string& target) {
    tar.add(type, base + name, "", 0660, target);
  });
  tar.file(base + "there", "new")
      .file(base + "link/evil", "evil")
      .file(base + "link", "evil")
      .folder(base + "folder");
  tar.file("/settings/etc/passwd", "evil").file("/settingsx/evil", "evil").file(base + "x/./y", "evil");
  tar.link(base + "beside", "there").link(base + "beside", "there").folder(base + "new").folder(base + "new");
  tar.file("/settings/pps/system/unknown", "a::b\n");
  tar.owner(device_.user("media")).file(base + "mine", "new").file(base + "new/mine", "new");
  expect_agreement_on(tar.text(), "settings");
}

TEST_F(PlanOfCrafted, HasTheRestoresOwnMessageForAWholeArchive) {
  const std::string media =
      TarBuilder().file("/media/M/.backup.metadata", "\n").file("/media/M/a", "1").text();
  const std::string large = TarBuilder()
                                .file("/media/M/.backup.metadata", "\n")
                                .add(TarBuilder::FILE, "/media/M/a", "", 0660, "", std::uint64_t{1} << 33)
                                .truncated_text();
  struct Row {
    std::string archive;
    const char* keyword;
  };
  for (const Row& row :
       {Row{TarBuilder().file("letter/a", "text").text(), "media"}, Row{media, "app"}, Row{media, "settings"},
        Row{TarBuilder().file("letter/a", "text").text(), "app"}, Row{large, "media"},
        Row{TarBuilder().text(), "media"}, Row{cut_archive_of({binary().file("main", "new")}), "app"}}) {
    device_.write("/tmp/a.tar", row.archive);
    const Foreseen all = plan(device_, row.keyword);
    const Outcome outcome = device_.harbix({"-r", "-f", "/tmp/a.tar", row.keyword});
    EXPECT_EQ(all.status, outcome.status) << row.keyword << outcome.errors;
    for (const std::string& trouble : all.troubles) {
      const std::string shown = trouble.substr(0, trouble.find(" '/"));
      EXPECT_THAT(outcome.errors + "Package not recognized", HasSubstr(shown));
    }
    EXPECT_EQ(all.troubles.empty(), outcome.status == 0) << row.keyword;
  }
}

TEST_F(PlanOfCrafted, RefusesWhatCannotFit) {
  device_.write("/tmp/a.tar",
                archive_of({CraftedPackage::binary(bought_.id).file("large", std::string(900000, 'x'))}));
  const Outcome outcome = device_.shell(
      "mount -t tmpfs -o size=256k,mode=755 none /apps; mount -t tmpfs -o size=256k,mode=755 none "
      "/accounts/1000/appdata\nharbix-inspect plan /tmp/a.tar; echo $?; harbix -r -f /tmp/a.tar app; umount "
      "/apps "
      "/accounts/1000/appdata");
  const std::string message = outcome.errors.substr(0, outcome.errors.find('\n'));
  EXPECT_THAT(message, StartsWith("Error: The applications need 900000 bytes, and there is room for "));
  EXPECT_EQ(lines_of(outcome.output).front(), "end app: " + behind(message, "Error: "));
}

TEST_F(PlanOfCrafted, IsPrintedForPeople) {
  device_.write("/tmp/a.tar",
                archive_of({binary().file("main", "new"), data("absent").file("data/\033[31m", "red"),
                            data().folder("data").file("data/\033[31m", "red").file("x\ty", "")}));
  const Outcome outcome = device_.shell("harbix-inspect plan /tmp/a.tar");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(
      lines_of(outcome.output),
      ElementsAre(StartsWith("removed app files "), StartsWith("removed app files "),
                  "restored app binaries 1 0 /app/a.pkg/bin",
                  "skipped app data 0 1 /app/absent.pkg/appdata: the application is not installed",
                  "  /app/a.pkg/appdata/x\\ty: of an application's data only what lies in data, logs and tmp "
                  "comes back",
                  "restored app data 2 1 /app/a.pkg/appdata",
                  "/tmp/a.tar: 2 packages, 3 items would come back; 1 packages and 2 items would not"));
  EXPECT_THAT(device_.shell("harbix-inspect plan --color always /tmp/a.tar").output,
              HasSubstr("\033[32mrestored"));
}

TEST_F(PlanOfCrafted, EndsWithZeroWhereAllComesBack) {
  device_.write("/tmp/a.tar", archive_of({binary().file("main", "new")}));
  const Outcome outcome =
      device_.shell("cat /tmp/a.tar | harbix-inspect plan - app | tail -n 1; exit ${PIPESTATUS[1]}");
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, "-: all would come back: 1 packages, 1 items\n");
}

TEST_F(PlanOfCrafted, NeedsADeviceAndRootAndAnArchive) {
  EXPECT_EQ(device_.shell("harbix-inspect plan /missing").status, 2);
  EXPECT_EQ(device_.shell("harbix-inspect plan /dev/null").status, 2);
  EXPECT_EQ(device_.shell("harbix-inspect plan /tmp/a.tar photos").status, 64);
  device_.write("/tmp/a.tar", TarBuilder().text());
  EXPECT_THAT(device_.shell("harbix-inspect plan /tmp/a.tar").errors,
              HasSubstr("The archive holds no packages"));
  EXPECT_THAT(device_.shell("setpriv --reuid media harbix-inspect plan /tmp/a.tar").errors,
              HasSubstr("Only root can plan a restore"));
  const Outcome elsewhere = run_program({HARBIX_INSPECT_PROGRAM, "plan", "/tmp/a.tar"});
  EXPECT_EQ(elsewhere.status, 2);
  EXPECT_THAT(elsewhere.errors, StartsWith("harbix-inspect: Not on a device: there is no '"));
}

}  // namespace
}  // namespace harbix::test
