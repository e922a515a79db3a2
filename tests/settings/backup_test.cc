#include "settings/backup.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "archive/error.h"
#include "archive/metadata_entry.h"
#include "base/flags.h"
#include "fs/exception.h"
#include "tests/settings/settings_device.h"
#include "tests/support/archive.h"
#include "tests/support/captured_output.h"
#include "tests/support/recorded_log.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using harbix::SizeResult;

const std::string WALLPAPER = "/pps/services/navigator/wallpaper";
const std::string ARCHIVE = "/a.tar";

class SettingsBackup : public SettingsDevice {
 protected:
  static void back_up() {
    const Utf8Names names;
    Writer writer(ARCHIVE);
    EXPECT_EQ(harbix::settings::back_up(writer), 0);
    writer.close();
  }
  static SizeResult measure() {
    const Utf8Names names;
    SizeResult result{.bytes = 7, .files = 3};
    Writer writer(ARCHIVE);
    EXPECT_EQ(harbix::settings::measure(writer, result), 0);
    writer.close();
    return result;
  }
  /// The manifest that stands at the beginning of the archive.
  static meta::Manifest manifest() {
    Reader reader(ARCHIVE);
    std::optional<harbix::Package> package =
        find_manifest(reader, harbix::METADATA_NAME, harbix::OtherEntries::REFUSE);
    if (!package) return {};
    EXPECT_EQ(package->entry_name, "/settings/.backup.metadata");
    return package->manifest;
  }
  /// What the archive holds behind the manifest, by name.
  static std::map<std::string, std::string> contents() {
    Reader reader(ARCHIVE);
    EXPECT_TRUE(reader.next_header());
    std::map<std::string, std::string> contents;
    while (const std::optional<harbix::EntryView> entry = reader.next_header())
      contents.emplace(entry->name()->text(), reader.data());
    return contents;
  }
};

using Contents = std::map<std::string, std::string>;

TEST_F(SettingsBackup, HoldsObjectsAndFilesBehindTheirManifest) {
  EXPECT_TRUE(on_the_device([] {
    put("/var/pps/services/x/obj@y", "stored");
    put("/pps/services/x/obj", "live::1\n[n]b::2\n-c\n");
    put("/var/pps/gone", "not live");
    put("/w/folder/file", "-text\n[n]stays\n");
    put("/w/control", "x");
    std::filesystem::create_symlink("file", "/w/folder/link");
    put_script("1", naming({"/w/folder", "/w/control", "/w/missing"}));
    const CapturedOutput errors(STDERR_FILENO);
    back_up();
    EXPECT_EQ(errors.text(), "");
    EXPECT_EQ(contents(), (Contents{{"/settings/pps/services/x/obj", "live::1\n"},
                                    {"/settings/w/folder/file", "-text\n[n]stays\n"},
                                    {"/settings/w/folder/link", ""},
                                    {"/settings/w/control", "x"}}));
    EXPECT_EQ(events_in_the_end("backup_start\nbackup_end\n"), "backup_start\nbackup_end\n");
  }));
}

TEST_F(SettingsBackup, BeginsWithARecordAnItemInTheirOrder) {
  EXPECT_TRUE(on_the_device([] {
    put_object(WALLPAPER, "[n]12345\n");
    put("/w/a", "1");
    put("/w/b", "22");
    put_script("1", naming({"/w/b", "/w/a", "/w/b"}));
    back_up();
    const std::string text = meta::to_text(manifest());
    EXPECT_EQ(text.substr(0, text.find("\n" + WALLPAPER)) + "\n\n" + WALLPAPER + "\nFile: 9",
              "File: 9\n\n" + WALLPAPER + "\nFile: 9")
        << text;
    std::vector<std::string> names = Reader(ARCHIVE).names();
    EXPECT_EQ(names, (std::vector<std::string>{"/settings/.backup.metadata", "/settings" + WALLPAPER,
                                               "/settings" + WALLPAPER, "/settings/w/b", "/settings/w/a",
                                               "/settings/w/b"}));
  }));
}

TEST_F(SettingsBackup, OfNothingIsAManifestAlone) {
  EXPECT_TRUE(on_the_device([] {
    back_up();
    EXPECT_EQ(Reader(ARCHIVE).names(), std::vector<std::string>{"/settings/.backup.metadata"});
    EXPECT_TRUE(manifest().empty());
  }));
}

TEST_F(SettingsBackup, ThatOnlyMeasuresTellsNobodyAndWritesHeaders) {
  EXPECT_TRUE(on_the_device([] {
    put_object("/pps/a", "a::1\n[n]gone\n");
    put("/w/b", "text");
    std::filesystem::create_symlink("b", "/w/link");
    put_script("1", naming({"/w"}));
    EXPECT_EQ(measure().files, 3 + 3);
    EXPECT_EQ(contents(), (Contents{{"/settings/pps/a", std::string(13, '\0')},
                                    {"/settings/w/b", std::string(4, '\0')},
                                    {"/settings/w/link", ""}}));
    EXPECT_EQ(read_file("/events"), "");
  }));
}

TEST_F(SettingsBackup, GoesOnBehindAnItemThatCannotBeArchived) {
  EXPECT_TRUE(on_the_device([] {
    put("/w/a", "a");
    put("/pps/folder/x");
    put("/w/z", "z");
    // A folder below "/pps" is no object.
    std::filesystem::create_directories("/pps/white/inner");
    put_script("1", naming({"/w/a", "/pps/white", "/w/z"}));
    const RecordedLog log;
    const CapturedOutput errors(STDERR_FILENO);
    back_up();
    EXPECT_EQ(errors.text(), "Error: Error reading pps object [errno:21 'Is a directory']\n");
    EXPECT_EQ(log.messages(),
              (std::vector<std::string>{"2 ERROR: Error reading pps object [errno:21 'Is a directory']"}));
    EXPECT_EQ(contents(), (Contents{{"/settings/w/a", "a"}, {"/settings/w/z", "z"}}));
  }));
}

TEST_F(SettingsBackup, LeavesOutOtherKindsAndTheArchiveItselfFromManifestAndEntries) {
  EXPECT_TRUE(on_the_device([] {
    put("/w/a", "a");
    ASSERT_EQ(::mkfifo("/w/fifo", 0600), 0);
    ASSERT_EQ(::mkfifo("/pps/fifo", 0600), 0);
    put("/var/pps/fifo");
    put_script("1", naming({"/w", ARCHIVE, "/dev/null"}));
    const CapturedOutput errors(STDERR_FILENO);
    back_up();
    EXPECT_EQ(contents(), (Contents{{"/settings/w/a", "a"}}));
    EXPECT_EQ(manifest().size(), 1U);
    EXPECT_EQ(errors.text(),
              "not a file, folder or link: /pps/fifo skipping\nnot a file, folder or link: /w/fifo skipping\n"
              "is the archive itself: /a.tar skipping\nnot a file, folder or link: /dev/null skipping\n");
  }));
}

TEST_F(SettingsBackup, EndsWhereTheArchiveCannotBeWritten) {
  EXPECT_TRUE(on_the_device([] {
    put("/w/large", std::string(std::size_t{3} << 20, 'x'));
    put_script("1", naming({"/w/large"}));
    Writer writer("/dev/full");
    EXPECT_THROW(harbix::settings::back_up(writer), harbix::ArchiveError);
    EXPECT_EQ(events_in_the_end("backup_start\nbackup_end\n"), "backup_start\nbackup_end\n");
  }));
}

TEST_F(SettingsBackup, TellsOfItsEndWhereTheSettingsCannotBeListed) {
  EXPECT_TRUE(on_the_device([] {
    put_script("1", naming({}));
    std::filesystem::remove_all("/var/pps");
    Writer writer(ARCHIVE);
    EXPECT_NE(message_of<fs::Exception>([&] { harbix::settings::back_up(writer); }), "");
    EXPECT_EQ(events_in_the_end("backup_start\nbackup_end\n"), "backup_start\nbackup_end\n");
  }));
}

TEST_F(SettingsBackup, AsksForTheListsBeforeItTellsOfItsStart) {
  EXPECT_TRUE(on_the_device([] {
    put_script("1", "echo $1 >> /events\n");
    back_up();
    const std::string expected = "whitelist\nblacklist\nbackup_start\nwhitelist\nblacklist\nbackup_end\n";
    EXPECT_EQ(events_in_the_end(expected), expected);
  }));
}

TEST_F(SettingsBackup, ShowsItemsWithMuchOutput) {
  EXPECT_TRUE(on_the_device([] {
    put("/w/a");
    put_script("1", naming({"/w/a"}));
    harbix::verbose = true;
    const CapturedOutput errors(STDERR_FILENO);
    back_up();
    EXPECT_TRUE(errors.text().ends_with(WALLPAPER + "\n/w/a\nArchive: /w/a\n")) << errors.text();
  }));
}

}  // namespace
}  // namespace harbix::test
