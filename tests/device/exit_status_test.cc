// The exit statuses that the manual promises, each with its reason: a row a reason.

#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/application_device.h"
#include "tests/support/crafted_package.h"
#include "tests/support/failing.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

struct Row {
  std::string name;
  std::string script;  ///< a shell script whose status is that of the run
  int status;
  std::string error;  ///< a line of what the run says; "" for one that says nothing
};

/// Shows the row's name alone.
void PrintTo(const Row& row, std::ostream* stream) { *stream << row.name; }

/// A device with something of each keyword, and archives: app.tar, media.tar and settings.tar, the same
/// cut, and others that are named for what is wrong with them.
class ExitStatus : public testing::TestWithParam<Row> {
 protected:
  ExitStatus() {
    device_.write(std::string(SHARED) + "/Music/song", "song");
    device_.write(std::string(DTM) + "/folder/item", "item");
    device_.write(std::string(SETTINGS_SCRIPTS) + "/lists",
                  "#!/bin/sh\n[ $1 != whitelist ] || echo whitelist " + std::string(SETTINGS) + "\n", 0755);
    device_.write(std::string(SETTINGS) + "/sub/one", "1");
    for (const InstalledApplication& each : {bought_application(), loaded_application()}) {
      device_.install(each);
      device_.add_file(each, "main", "program");
      device_.add_data(each, "data/state", "state");
    }
    write_archives();
  }

  void write_archives() {
    const TarBuilder media = TarBuilder().folder("/media/M", 0550).file("/media/M/a", std::string(9000, 'a'));
    const std::string settings = "/settings" + std::string(SETTINGS);
    TarBuilder some = TarBuilder();
    some.file("/settings/.backup.metadata", "File: 1\n/a\n\n", 0700);
    some.folder(settings + "/sub", 0711).file(settings + "/sub/one", std::string(9000, '2'));
    const CraftedPackage data =
        CraftedPackage::data("side.app").folder("data").file("data/state", std::string(9000, 's'));
    device_.write("/tmp/media.tar", media.text());
    device_.write("/tmp/settings.tar", some.text());
    device_.write("/tmp/app.tar", archive_of({data}));
    for (const char* keyword : {"media", "settings", "app"}) {
      const std::string whole = device_.read("/tmp/" + std::string(keyword) + ".tar");
      device_.write("/tmp/cut-" + std::string(keyword) + ".tar", whole.substr(0, whole.size() - 2048));
    }
    device_.write("/tmp/zeros", std::string(std::size_t{1} << 20, '\0'));
    device_.write("/tmp/empty", "");
    device_.write("/tmp/text", "This is no archive.\n");
    device_.write(
        "/tmp/foreign.tar",
        TarBuilder().file("/settings/.backup.metadata", "", 0700).file("/settings/etc/passwd", "x").text());
    device_.write("/tmp/long.tar", long_name_archive());
    write_application_archives(data);
  }

  /// Of media and settings, an entry of another name than its record's, which a header has no room for.
  static std::string long_name_archive() {
    const std::string name = std::string(120, 'n');
    return TarBuilder()
        .file("/media/M/.backup.metadata", "File: 1\nM/" + name + "\n\n", 0700)
        .file("/media/M/other", "1")
        .file("/settings/.backup.metadata", "File: 1\n" + std::string(SETTINGS) + "/" + name + "\n\n", 0700)
        .file("/settings" + std::string(SETTINGS) + "/other", "1")
        .text();
  }

  void write_application_archives(const CraftedPackage& data) {
    const std::string path = loaded_application().data() + "/data/";
    device_.write("/tmp/unfit.tar", archive_of({CraftedPackage(data).attribute("Data-Directory", "/etc")}));
    device_.write("/tmp/missing.tar",
                  archive_of({CraftedPackage(data).record(S_IFREG | 0660U, path + "gone")}));
    device_.write(
        "/tmp/unlisted.tar",
        archive_of({CraftedPackage(data).entry(TarBuilder::FILE, "/app/side.app.pkg/appdata/data/x")}));
    device_.write(
        "/tmp/early.tar",
        archive_of(
            {CraftedPackage::data("fresh").file("data/a", "1"),
             CraftedPackage::binary("fresh").attribute("Extras", "source::sideload").file("main", "1")}));
    device_.write(
        "/tmp/binaries.tar",
        archive_of(
            {CraftedPackage::binary("fresh").attribute("Extras", "source::sideload").file("main", "1")}));
    device_.write("/tmp/kinds.tar",
                  archive_of({CraftedPackage::data("side.app")
                                  .record(S_IFLNK | 0777U, path + "file")
                                  .entry(TarBuilder::FILE, "/app/side.app.pkg/appdata/data/file")}));
    device_.write(
        "/tmp/large.tar",
        archive_of(
            {CraftedPackage::data("side.app").folder("data").file("data/l", std::string(400000, 'l'))}));
  }

  ApplicationDevice device_;
};

TEST_P(ExitStatus, IsThatOfTheManual) {
  const Row& row = GetParam();
  const Outcome outcome = device_.shell(row.script);
  EXPECT_EQ(outcome.status, row.status) << outcome.errors;
  if (row.error.empty()) {
    EXPECT_EQ(outcome.output + outcome.errors, "");
  } else {
    EXPECT_THAT(outcome.output + outcome.errors, testing::HasSubstr(row.error));
  }
}

/// The run while what is mounted at `folder` has room for little, or for what `options` say.
std::string on_a_disk(const std::string& folder, const std::string& options, const std::string& command) {
  return "mount -t tmpfs -o " + options + " none " + folder + "; chown --reference=/tmp/owner " + folder +
         "; " + command + "; result=$?; umount " + folder + "; exit $result";
}

/// The installer's list is replaced.
std::string with_list(const std::string& lines, const std::string& command) {
  return "mount -t tmpfs none /pps; mkdir -p /pps/system/installer/registeredapps; printf '@.all\\n" + lines +
         "' > /pps/system/installer/registeredapps/.all; " + command +
         "; result=$?; umount /pps; exit $result";
}

std::string restore(const std::string& archive, const std::string& keyword) {
  return "harbix -r -f /tmp/" + archive + " " + keyword;
}

/// The first run in which the call that fails is one that the run tells of with these words.
std::string when_told(const std::string& call, int error, const std::string& command,
                      const std::string& words, const std::string& nth = "$n") {
  return "for n in $(seq 80); do " + while_failing(call, nth, error) + command +
         " > /tmp/out 2>&1; result=$?; grep -q '" + words +
         "' /tmp/out && break; done; cat /tmp/out; exit $result";
}

std::string name_of_row(const testing::TestParamInfo<Row>& row) { return row.param.name; }

/// Of settings, whose scripts are told of a begin and of an end; says what they were told.
std::string restore_with_a_listener() {
  return "sh -c 'rm -f /tmp/told; " + restore("settings.tar", "settings") +
         "; result=$?; echo told: $(cat /tmp/told); exit $result'";
}

std::string listener() {
  const std::string path = std::string(SETTINGS_SCRIPTS) + "/listener";
  return "printf '#!/bin/sh\\ncase $1 in *_start|*_end) echo $1 >> /tmp/told;; esac\\n' > " + path +
         "; chmod 755 " + path + "; ";
}

/// Of an archive of both; says how many settings came back.
std::string restore_of_media_and_settings() {
  return "sh -c '" + restore("both.tar", "media_settings") +
         " 2> /tmp/errors; result=$?; cat /tmp/errors; echo settings: $(grep -c ^Restore: /tmp/errors); "
         "exit $result'";
}

const std::string BACKUP = "harbix -f /tmp/a.tar ";
const std::string SIZE = "harbix -s ";
const std::string NO_ROOM = ": No space left on device\n";
const std::string ON_A_SMALL_SHARE = "touch /tmp/owner; chown media:1000_shared /tmp/owner; ";
const std::string NO_WAY_BACK = "ERROR: Could not restore effective uid";
const std::string DENIED = "chmod 0 /accounts/1000/shared; ";
const std::string UNFIT = "Error: The package '/app/side.app.pkg/appdata' does not fit its description\n";

INSTANTIATE_TEST_SUITE_P(
    Zero, ExitStatus,
    testing::Values(Row{"IsThatOfTheLastKeyword", BACKUP + "app_media mistyped", 0,
                        "Error: Package 'mistyped' not found.\n"},
                    Row{"IsThatOfTheLastKeywordInAnyOrder", BACKUP + "media_app mistyped", 0,
                        "Error: Package 'mistyped' not found.\n"},
                    Row{"IsThatOfTheLastKeywordOfASizeReport", SIZE + "app_media mistyped", 0,
                        "Error: Package 'mistyped' not found.\n"},
                    Row{"IsThatOfTheLastKeywordOfARestore",
                        "head -c -1024 /tmp/unfit.tar | cat - /tmp/media.tar > /tmp/both.tar; " +
                            restore("both.tar", "app_media"),
                        0, UNFIT},
                    Row{"IsForABackupWithoutWhatNoArchiveHolds",
                        "mkfifo /accounts/1000/shared/Music/fifo; chown media:1000_shared "
                        "/accounts/1000/shared/Music/fifo; " +
                            BACKUP + "media",
                        0, "not a file, folder or link: Music/fifo skipping\n"},
                    Row{"IsForABackupWithoutWhatVanished",
                        while_failing("none", "1", 0,
                                      with_act("closed", "/Music", "rm /accounts/1000/shared/Music/song")) +
                            BACKUP + "media",
                        0, "Error: Error opening: Music/song: No such file or directory\n"},
                    Row{"IsForABackupWithoutWhatCannotBeArchived",
                        when_told("openat", EACCES, BACKUP + "media",
                                  "Error opening: Music/song: Permission denied"),
                        0, "Error: Error opening: Music/song: Permission denied\n"},
                    Row{"IsForARestoreBesideMediaThatExist",
                        "mkdir -p /accounts/1000/shared/M; echo old > /accounts/1000/shared/M/a; chmod 0 "
                        "/accounts/1000/shared/M/a; chown -R media:1000_shared /accounts/1000/shared/M; " +
                            restore("media.tar", "media") + " && grep old /accounts/1000/shared/M/a",
                        0, "old\n"},
                    Row{"IsForARestoreWithoutSettingsOfAnotherDevice", restore("foreign.tar", "settings"), 0,
                        "Skip: /settings/etc/passwd\n"},
                    Row{"IsForASizeReportThatCannotBeOpened", "harbix -s -f /missing/report media", 0, ""},
                    Row{"IsForABeginWhateverTheScriptsSay",
                        "printf '#!/bin/sh\\nexit 3\\n' > /base/scripts/backup_and_restore/s; chmod 755 "
                        "/base/scripts/backup_and_restore/s; harbix -i",
                        0, ""},
                    Row{"IsForAnEndWhateverTheScriptsSay",
                        "printf '#!/bin/sh\\nexit 3\\n' > /base/scripts/backup_and_restore/s; chmod 755 "
                        "/base/scripts/backup_and_restore/s; harbix -t",
                        0, ""}),
    name_of_row);

INSTANTIATE_TEST_SUITE_P(
    One, ExitStatus,
    testing::Values(
        Row{"IsForAnUnknownOption", "harbix -x", 1, "harbix: "},
        Row{"IsForAMissingArgument", "harbix -f", 1, "harbix: "},
        Row{"IsForARefusal", "harbix nothing", 1, "Keyword missing\n"},
        Row{"IsForPretending", "harbix -p media", 1, ""}, Row{"IsForJ", "harbix -j media", 1, ""},
        Row{"IsForZ", "harbix -z media", 1, ""}, Row{"IsForWipingWithoutRestoring", "harbix -w media", 1, ""},
        Row{"IsThatOfTheLastKeyword",
            "head -c -1024 /tmp/app.tar | cat - /tmp/cut-media.tar > /tmp/both.tar; " +
                restore("both.tar", "app_media"),
            1, "Error: "},
        Row{"IsForABackupWithoutTheList",
            with_list("", "rm /pps/system/installer/registeredapps/.all; " + BACKUP + "app"), 1,
            "Error reading registered apps\n"},
        Row{"IsForASizeWithoutTheList",
            with_list("", "rm /pps/system/installer/registeredapps/.all; " + SIZE + "app"), 1,
            "Error reading registered apps\n"},
        Row{"IsForARestoreWithoutTheList",
            with_list("", "rm /pps/system/installer/registeredapps/.all; " + restore("app.tar", "app")), 1,
            "Error reading registered apps\n"},
        Row{"IsForABackupOfAnUnknownPackage", BACKUP + "app mistyped", 1,
            "Error: Package 'mistyped' not found.\n"},
        Row{"IsForASizeOfAnUnknownPackage", SIZE + "app mistyped", 1,
            "Error: Package 'mistyped' not found.\n"},
        Row{"IsForABackupOfANameThatNoRestoreTakes",
            with_list("bad.app::a/b,1.0,source::sideload\\n", BACKUP + "app"), 1,
            "Error: The application 'bad.app' (package 'a/b') is left out: no restore would take these "
            "names\n"},
        Row{"IsForASizeOfANameThatNoRestoreTakes",
            with_list("bad.app::a/b,1.0,source::sideload\\n", SIZE + "app"), 1,
            "Error: The application 'bad.app' (package 'a/b') is left out: no restore would take these "
            "names\n"},
        Row{"IsForABackupOfAFolderThatCannotBeListed",
            while_failing("readdir", "1", EIO) + BACKUP + "app shop.app.pkg", 1,
            "could not be read. [errno:5 "},
        Row{"IsForASizeOfAFolderThatCannotBeListed",
            while_failing("readdir", "1", EIO) + SIZE + "app shop.app.pkg", 1,
            "could not be read. [errno:5 "}),
    name_of_row);

INSTANTIATE_TEST_SUITE_P(
    OneOfARestoreOfApplications, ExitStatus,
    testing::Values(
        Row{"IsForAPackageThatDoesNotFitItsDescription", restore("unfit.tar", "app"), 1, UNFIT},
        Row{"IsForAnItemWithoutAnEntry", restore("missing.tar", "app"), 1,
            "Warning: No entry in the archive for /accounts/1000/appdata/side.app/data/gone\n"},
        Row{"IsForAnEntryWithoutAnItem", restore("unlisted.tar", "app"), 1,
            "Error: No record in the manifest for '/app/side.app.pkg/appdata/data/x'\n"},
        Row{"IsForAnItemOfAnotherKind", restore("kinds.tar", "app"), 1,
            "Error: The record of '/accounts/1000/appdata/side.app/data/file' describes another kind of item "
            "than its "
            "entry\n"},
        Row{"IsForDataBeforeItsBinaries", restore("early.tar", "app"), 1,
            "Error: The data of '/apps/fresh' stands before its binaries in the archive: it was not "
            "restored\n"},
        Row{"IsForAnItemThatCouldNotBeWritten",
            while_failing("pwrite", "1+", ENOSPC) + restore("app.tar", "app"), 1,
            "Error: The new data for '/accounts/1000/appdata/side.app' is not complete: the old data "
            "stays\n"},
        Row{"IsForBinariesThatCouldNotBeWritten",
            while_failing("pwrite", "1+", ENOSPC) + restore("binaries.tar", "app"), 1,
            "Error: The binaries of 'fresh.pkg' are not complete: the application is removed and not "
            "registered\n"},
        Row{"IsForAnInstallerThatRefuses",
            "echo refuse::query > /pps/system/installer/control; " + restore("app.tar", "app"), 1,
            "Error: Installer request for '/apps/side.app' failed: "},
        Row{"IsForADamagedFile", restore("cut-app.tar", "app"), 1,
            "Error: The archive is damaged, so that no application is uninstalled: "},
        Row{"IsForADamagedPipe", "harbix -r app < <(cat /tmp/cut-app.tar)", 1, "Error: "},
        Row{"IsForAnotherProgramsArchive", restore("foreign.tar", "app"), 1, "not recognized\n"},
        Row{"IsForMedia", restore("media.tar", "app"), 1, "Error: The archive holds no applications\n"},
        Row{"IsForWhatDoesNotFit",
            "touch /tmp/owner; chown apps:apps /tmp/owner; " +
                on_a_disk("/apps", "size=64k,mode=755",
                          on_a_disk("/accounts/1000/appdata", "size=64k,mode=755",
                                    restore("large.tar", "app"))),
            1, "Error: The applications need 400000 bytes, and there is room for "}),
    name_of_row);

/// A keyword whose items lie in one folder.
struct FolderKeyword {
  std::string name;
  std::string folder;
  std::string inner;    ///< a folder in it that its archive holds
  std::string item;     ///< a file that its archive holds
  std::string package;  ///< in its archive
};

/// The rows that are alike for media and for settings.
std::vector<Row> rows_of_media_and_settings() {
  std::vector<Row> rows;
  const std::string settings = SETTINGS;
  for (const FolderKeyword& keyword :
       {FolderKeyword{"media", SHARED, shared("M"), shared("M/a"), "/media/M"},
        FolderKeyword{"settings", settings, settings + "/sub", settings + "/sub/one", "/settings"}}) {
    const auto add = [&](const std::string& name, const std::string& script, const std::string& error) {
      rows.push_back({name + "_" + keyword.name, script, 1, error});
    };
    const std::string whole = restore(keyword.name + ".tar", keyword.name);
    for (const auto& [name, command] : {std::pair{"IsForABackupOfAFolderThatCannotBeListed", BACKUP},
                                        {"IsForASizeOfAFolderThatCannotBeListed", SIZE}}) {
      add(name, when_told("readdir", EIO, command + keyword.name, keyword.folder + ". could not be read"),
          "Error: Directory '" + keyword.folder + "' could not be read. [errno:5 ");
    }
    add("IsForAnItemWithoutRoom",
        ON_A_SMALL_SHARE + on_a_disk(keyword.folder, "size=8k,mode=777",
                                     "cat /tmp/" + keyword.name + ".tar | harbix -r " + keyword.name),
        "Warning: " + keyword.item + NO_ROOM);
    add("IsForAnItemThatCannotBeWritten", while_failing("pwrite", "1+", EIO) + whole,
        "Warning: " + keyword.item + ": Input/output error\n");
    add("IsForAFolderWithoutItsMode", while_failing("fchmod", "1+", EIO) + whole,
        "Warning: " + keyword.inner + ": Input/output error\n");
    add("IsForADamagedArchive", restore("cut-" + keyword.name + ".tar", keyword.name), "Error: ");
    add("IsForItemsUnderOtherNames", restore("long.tar", keyword.name),
        "Warning: " + keyword.package + ": holds items under names that it does not list\n");
  }
  return rows;
}

INSTANTIATE_TEST_SUITE_P(OneOfMediaAndSettings, ExitStatus, testing::ValuesIn(rows_of_media_and_settings()),
                         name_of_row);

INSTANTIATE_TEST_SUITE_P(
    OneOfOneKeyword, ExitStatus,
    testing::Values(
        Row{"IsForABackupOfAShareThatCannotBeSearched", DENIED + BACKUP + "media", 1,
            "Error: Failed to chdir to '/accounts/1000/shared' [errno:13 "},
        Row{"IsForMediaThatDoNotFit",
            ON_A_SMALL_SHARE +
                on_a_disk("/accounts/1000/shared", "size=8k,mode=770", restore("media.tar", "media")),
            1, "Error: The media of the archive take 9000 bytes, but at most 8192 bytes can be made free\n"},
        Row{"IsForAnArchiveWithoutMedia", restore("settings.tar", "media"), 1,
            "Error: The archive holds no media\n"},
        Row{"IsForAnArchiveWithoutSettings", restore("media.tar", "settings"), 1,
            "Error: Not meta file: /media/M\n"},
        Row{"IsForARestoreOfSettingsWithoutTheFolderOfScripts",
            when_told("readdir", EIO, restore("settings.tar", "settings"), "Error: Directory"), 1,
            "Error: Directory '/base/scripts/backup_and_restore/settings' could not be read. [errno:5 "},
        Row{"IsForARestoreOfSettingsWithoutAScript",
            while_failing("popen", "1", EAGAIN) + restore("settings.tar", "settings"), 1,
            "Could not popen b&r settings script /base/scripts/backup_and_restore/settings/lists\n"}),
    name_of_row);

/// The rows that are alike for each keyword.
std::vector<Row> rows_of_all_keywords() {
  std::vector<Row> rows;
  const std::string full = "ERROR: Archive error: Write error: No space left on device\n";
  for (const std::string keyword : {"app", "media", "settings"}) {
    const auto add = [&](const std::string& name, const std::string& script, const std::string& error) {
      rows.push_back({name + "_" + keyword, script, 2, error});
    };
    add("IsForAMissingArchive", restore("none.tar", keyword),
        "ERROR: Archive error: Failed to open '/tmp/none.tar': ");
    add("IsForAnArchiveThatCannotBeMade", "harbix -f /missing/a.tar " + keyword,
        "ERROR: Archive error: Failed to open '/missing/a.tar': ");
    add("IsForAnEmptyArchive", restore("empty", keyword), "ERROR: Archive error: ");
    add("IsForWhatIsNoArchive", restore("text", keyword),
        "ERROR: Archive error: Unrecognized archive format\n");
    add("IsForZeros", restore("zeros", keyword), "ERROR: Archive error: ");
    add("IsForAnArchiveThatCannotBeWritten", "harbix -f /dev/full " + keyword, full);
    add("IsForASizeThatCannotBeWritten", "harbix -s " + keyword + " > /dev/full", "ERROR: ");
    for (const std::string call : {"fsync", "close"}) {
      add("IsForAnArchiveThatIsNotOnTheMedium_" + call,
          when_told(call, EIO, BACKUP + keyword, "Write error: Input/output error"),
          "ERROR: Archive error: Write error: Input/output error\n");
    }
    add("IsForARestoreThatIsNotOnTheMedium",
        while_failing("syncfs", "1", EIO) + restore(keyword + ".tar", keyword),
        "ERROR: What was restored may not be on the medium: Input/output error\n");
    add("IsForABackupWithTooFewDescriptors", with_descriptors(6) + BACKUP + keyword, "ERROR: ");
    add("IsForASizeWithTooFewDescriptors", while_failing("openat", "1", EMFILE) + SIZE + keyword,
        "Too many open files'");
    for (const auto& [call, id] : {std::pair{"setresuid", "uid"}, {"setresgid", "gid"}}) {
      const std::string words = "ERROR: Could not restore effective " + std::string(id);
      add("IsForARestoreThatCannotGoBackToIts_" + std::string(id),
          when_told(call, EAGAIN, restore(keyword + ".tar", keyword), words, "$n+"), words);
      if (keyword == "media")
        add("IsForABackupThatCannotGoBackToIts_" + std::string(id),
            when_told(call, EAGAIN, BACKUP + keyword, words, "$n+"), words);
    }
  }
  return rows;
}

INSTANTIATE_TEST_SUITE_P(Two, ExitStatus, testing::ValuesIn(rows_of_all_keywords()), name_of_row);

INSTANTIATE_TEST_SUITE_P(
    TwoOfOneKeyword, ExitStatus,
    testing::Values(
        Row{"IsForABackupWithoutTheStoreOfObjects", "mount -t tmpfs none /var; " + BACKUP + "settings", 2,
            "ERROR: Failed to chdir to '/var/pps' "},
        Row{"IsForASizeWithoutTheStoreOfObjects", "mount -t tmpfs none /var; " + SIZE + "settings", 2,
            "ERROR: Failed to chdir to '/var/pps' "},
        Row{"IsForABackupOfSettingsWithoutAScript", while_failing("popen", "1", ENOMEM) + BACKUP + "settings",
            2, "Could not popen b&r settings script /base/scripts/backup_and_restore/settings/lists\n"},
        Row{"IsForASizeOfSettingsWithoutAScript", while_failing("popen", "1", ENOMEM) + SIZE + "settings", 2,
            "Could not popen b&r settings script /base/scripts/backup_and_restore/settings/lists\n"},
        Row{"IsForARestoreOfSettingsWithoutMemoryForAScript",
            while_failing("popen", "1", ENOMEM) + restore("settings.tar", "settings"), 2,
            "ERROR: Settings script '/base/scripts/backup_and_restore/settings/lists' could not be "
            "started. "},
        Row{"IsForARestoreOfSettingsWithoutMemoryForTheListOfScripts",
            when_told("readdir", ENOMEM, restore("settings.tar", "settings"), "scripts.* could not be read"),
            2, "ERROR: Directory '/base/scripts/backup_and_restore/settings' could not be read. [errno:12 "},
        Row{"IsForARestoreOfSettingsWithoutMemoryForTheStoreOfObjects",
            when_told("readdir", ENOMEM, restore("settings.tar", "settings"), "var.pps. could"), 2,
            "ERROR: Directory '/var/pps' could not be read. [errno:12 "},
        Row{"IsForABackupWithoutTheFolderOfScripts",
            when_told("readdir", EIO, BACKUP + "settings", "ERROR: Directory"), 2,
            "ERROR: Directory '/base/scripts/backup_and_restore/settings' could not be read. [errno:5 "},
        Row{"IsForASizeWithoutTheFolderOfScripts",
            when_told("readdir", EIO, SIZE + "settings", "ERROR: Directory"), 2,
            "ERROR: Directory '/base/scripts/backup_and_restore/settings' could not be read. [errno:5 "},
        Row{"IsForSettingsThatCannotGoBackWithoutAWordOfTheirEnd",
            listener() + when_told("setresuid", EAGAIN, restore_with_a_listener(), NO_WAY_BACK, "$n+"), 2,
            "told: restore_start\n"},
        Row{"IsForMediaThatCannotGoBackWithoutALaterKeyword",
            "head -c -1024 /tmp/media.tar | cat - /tmp/settings.tar > /tmp/both.tar; " +
                when_told("setresuid", EAGAIN, restore_of_media_and_settings(), NO_WAY_BACK, "$n+"),
            2, "settings: 0\n"},
        Row{"IsForABackupWhoseInstallerRefuses",
            "echo refuse::query > /pps/system/installer/control; " + BACKUP + "app", 2, "ERROR: "},
        Row{"IsForTheSizeOfAnApplicationWithoutItsFolder", "rm -r /apps/shop.app; " + SIZE + "app", 2,
            "ERROR: "}),
    name_of_row);

}  // namespace
}  // namespace harbix::test
