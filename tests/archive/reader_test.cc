#include "archive/reader.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "archive/archive_test_support.h"
#include "archive/error.h"
#include "archive/metadata_entry.h"
#include "support/captured_output.h"
#include "support/child_process.h"
#include "support/process.h"
#include "support/recorded_log.h"
#include "support/tar_builder.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using fs::Path;
using harbix::ArchiveError;
using harbix::Section;
using test::message_of;
using test::Reader;
using test::RecordedLog;
using test::run_program;
using test::TarBuilder;
using test::TemporaryFolder;

using Names = std::vector<std::string>;

constexpr std::size_t RECORD = 512;
constexpr const char* UNREADABLE = "Could not read next archive header";

class ArchiveReaderTest : public ::testing::Test {
 protected:
  /// The path of an archive of these bytes.
  std::string archive(const std::string& bytes) {
    test::write_file(archive_, bytes);
    return archive_;
  }

  TemporaryFolder folder_;
  std::string archive_ = folder_ / "a.tar";
};

/// Three entries, the one in the middle with data of two records.
TarBuilder sample() {
  TarBuilder tar;
  tar.file("/media/a", "text").file("/media/b", std::string(600, 'b')).folder("/media/c");
  return tar;
}

TEST_F(ArchiveReaderTest, StepsThroughTheEntriesWithTheirData) {
  Reader reader(archive(sample().text()));
  auto entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ("/media/a", entry->name()->text());
  EXPECT_EQ(4, entry->size());
  EXPECT_EQ("text", reader.data());
  entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ(std::string(600, 'b'), reader.data());
  entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_FALSE(reader.next_header());
}

TEST_F(ArchiveReaderTest, KeepsAnsweringTheEndAfterTheEnd) {
  Reader reader(archive(sample().text()));
  EXPECT_EQ(3U, reader.names().size());
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(reader.next_header());
  EXPECT_EQ(ARCHIVE_EOF, reader.advance());
  reader.begin_section({});
  EXPECT_FALSE(reader.next_header());
}

TEST_F(ArchiveReaderTest, TakesOneSeparatorOffTheNamesOfFolders) {
  struct Row {
    const char *stored, *name;
  };
  for (const Row& row : {Row{"/media/d/", "/media/d"}, Row{"/media/d//", "/media/d/"}, Row{"/", "/"},
                         Row{"d", "d"}, Row{"./", "."}}) {
    Reader reader(archive(TarBuilder().folder(row.stored).text()));
    EXPECT_EQ(Names{row.name}, reader.names()) << row.stored;
  }
}

TEST_F(ArchiveReaderTest, HandsNamesOverByteForByte) {
  const Names names{"/media/\xC3\xA9", "/media/e\xCC\x81", "/media/\xFF\xFE", "/media/a b",
                    "/media/\x01\x7F"};
  TarBuilder tar;
  for (const std::string& name : names) tar.file(name, "");
  Reader reader(archive(tar.text()));
  EXPECT_EQ(names, reader.names());
  EXPECT_EQ(0, reader.error_number());
}

TEST_F(ArchiveReaderTest, ReadsTheArchivesOfOtherTars) {
  test::Tree{test::dir("in", {test::file("a", "text"), test::file("\xC3\xA9", "accent"), test::link("l", "a"),
                              test::file(std::string(250, 'n'), "long")})}
      .build(folder_.path());
  for (const std::string format :
       {"tar --format=gnu", "tar --format=pax", "tar --format=posix", "bsdtar --format=pax",
        "bsdtar --format=gnutar", "bsdtar --format=cpio", "bsdtar --format=zip", "bsdtar --format=7zip"}) {
    const auto made = run_program(
        {"sh", "-c", "cd '" + folder_.path() + "' && LC_ALL=C.UTF-8 " + format + " -cf a.tar in/a in/l"});
    ASSERT_EQ(0, made.status) << made.errors;
    Reader reader(archive_);
    EXPECT_EQ((Names{"in/a", "in/l"}), reader.names()) << format;
  }
}

TEST_F(ArchiveReaderTest, ReadsPaxNamesOfOtherTarsAsBytes) {
  test::Tree{test::dir("in", {test::file("\xC3\xA9"), test::file("e\xCC\x81"), test::file("\xFF"),
                              test::file(std::string(250, 'n'))})}
      .build(folder_.path());
  for (const std::string format : {"tar --format=gnu", "tar --format=posix"}) {
    const auto made = run_program(
        {"sh", "-c",
         "cd '" + folder_.path() + "' && LC_ALL=C " + format + " --sort=name --no-recursion -cf a.tar in/*"});
    ASSERT_EQ(0, made.status) << made.errors;
    Reader reader(archive_);
    EXPECT_EQ((Names{"in/e\xCC\x81", "in/" + std::string(250, 'n'), "in/\xC3\xA9", "in/\xFF"}),
              reader.names())
        << format;
  }
}

TEST_F(ArchiveReaderTest, HandsOverAnEntryWhoseNameHasNoFormInThisLocale) {
  test::Tree{test::dir("in", {test::file("\xC3\xA9", "1"), test::file("plain", "2")})}.build(folder_.path());
  const auto made = run_program(
      {"sh", "-c",
       "cd '" + folder_.path() + "/in' && LC_ALL=C.UTF-8 bsdtar --format=7zip -cf ../a.tar \xC3\xA9 plain"});
  ASSERT_EQ(0, made.status) << made.errors;
  Reader reader(archive_);
  EXPECT_EQ((Names{"(none)", "plain"}), reader.names());
}

TEST_F(ArchiveReaderTest, RestoresOnlyFilesFoldersAndLinks) {
  struct Row {
    char type;
    const char* target;
    bool restorable;
  };
  for (const Row& row :
       {Row{TarBuilder::FILE, "", true}, Row{TarBuilder::FOLDER, "", true},
        Row{TarBuilder::SYMBOLIC_LINK, "x", true}, Row{TarBuilder::HARD_LINK, "/media/x", false},
        Row{TarBuilder::CHARACTER_DEVICE, "", false}, Row{TarBuilder::BLOCK_DEVICE, "", false},
        Row{TarBuilder::FIFO, "", false}}) {
    Reader reader(archive(TarBuilder().add(row.type, "/media/x", "", 0644, row.target).text()));
    const auto entry = reader.next_header();
    ASSERT_TRUE(entry) << row.type;
    EXPECT_EQ(row.restorable, entry->is_restorable()) << row.type;
    EXPECT_EQ(row.type == TarBuilder::HARD_LINK, entry->is_hard_link()) << row.type;
    EXPECT_EQ(row.type == TarBuilder::SYMBOLIC_LINK, entry->link_target().has_value()) << row.type;
  }
}

TEST_F(ArchiveReaderTest, RefusesAnArchiveOfZeroBytesWhenItIsOpened) {
  EXPECT_EQ("Archive error: The archive is empty",
            message_of<ArchiveError>([this] { const Reader reader(archive("")); }));
}

TEST_F(ArchiveReaderTest, TellsWhyTheArchiveCannotBeOpened) {
  EXPECT_EQ("Archive error: Failed to open '/nonexistent/a.tar': No such file or directory",
            message_of<ArchiveError>([] { const Reader reader("/nonexistent/a.tar"); }));
  EXPECT_EQ("Archive error: Read error: Is a directory",
            message_of<ArchiveError>([this] { const Reader reader(folder_.path()); }));
}

TEST_F(ArchiveReaderTest, RefusesWhatIsNoArchiveWhenItIsOpened) {
  for (const std::string& bytes : {std::string("no archive at all"), std::string(5000, 'x'),
                                   std::string("\0", 1), std::string(1, '\n')}) {
    EXPECT_EQ("Archive error: Unrecognized archive format",
              message_of<ArchiveError>([&] { const Reader reader(archive(bytes)); }))
        << bytes.size();
  }
}

TEST_F(ArchiveReaderTest, TakesTheEndMarkAloneForAnEmptyArchive) {
  Reader reader(archive(TarBuilder().text()));
  EXPECT_EQ(Names{}, reader.names());
}

TEST_F(ArchiveReaderTest, RefusesAnArchiveThatIsCutAtAnyRecordButTheLast) {
  const std::string whole = sample().text();
  ASSERT_EQ(8 * RECORD, whole.size());
  for (std::size_t size = RECORD; size < whole.size(); size += RECORD) {
    EXPECT_EQ(UNREADABLE, message_of<std::runtime_error>([&] {
                Reader reader(archive(whole.substr(0, size)));
                reader.names();
              }))
        << "cut at " << size;
  }
  EXPECT_EQ(3U, Reader(archive(whole)).names().size());
}

TEST_F(ArchiveReaderTest, NeverTakesAnArchiveThatIsCutInTheMiddleForAWholeOne) {
  const std::string whole = sample().text();
  for (std::size_t size = 1; size < whole.size() - RECORD; size += 37) {
    EXPECT_THROW(
        {
          Reader reader(archive(whole.substr(0, size)));
          reader.names();
        },
        std::runtime_error)
        << "cut at " << size;
  }
}

TEST_F(ArchiveReaderTest, HandsOverEverythingBeforeTheDamage) {
  Reader reader(archive(sample().truncated_text()));
  const RecordedLog log;
  for (const char* name : {"/media/a", "/media/b", "/media/c"}) {
    const auto entry = reader.next_header();
    ASSERT_TRUE(entry) << name;
    EXPECT_EQ(name, entry->name()->text());
  }
  EXPECT_EQ(UNREADABLE, message_of<std::runtime_error>([&] { static_cast<void>(reader.next_header()); }));
  EXPECT_EQ((Names{"3 Archive header: Truncated archive: the end mark is missing"}), log.messages());
  // Damage stays damage.
  EXPECT_EQ(UNREADABLE, message_of<std::runtime_error>([&] { static_cast<void>(reader.next_header()); }));
}

TEST_F(ArchiveReaderTest, SurvivesEverySingleBitFlip) {
  const std::string whole = sample().text();
  for (std::size_t position = 0; position < whole.size(); ++position) {
    // Every byte of the headers that says something, and a share of the others.
    if ((whole[position] == '\0' || whole[position] == 'b') && position % 64 != 0) continue;
    std::string damaged = whole;
    damaged[position] = static_cast<char>(damaged[position] ^ (1 << (position % 8)));
    archive(damaged);
    try {
      Reader reader(archive_);
      while (const auto entry = reader.next_header()) {
        if (entry->is_restorable()) static_cast<void>(reader.data());
      }
    } catch (const std::runtime_error&) {
      continue;  // refused: as good as read
    }
  }
}

TEST_F(ArchiveReaderTest, ReadsAPipe) {
  EXPECT_TRUE(test::passes_in_child([] {
    const std::string bytes = sample().text();
    std::array<int, 2> ends{};
    ASSERT_EQ(0, ::pipe(ends.data()));
    ASSERT_EQ(static_cast<ssize_t>(bytes.size()), ::write(ends[1], bytes.data(), bytes.size()));
    ::close(ends[1]);
    ASSERT_EQ(STDIN_FILENO, ::dup2(ends[0], STDIN_FILENO));
    Reader reader("");
    EXPECT_EQ((Names{"/media/a", "/media/b", "/media/c"}), reader.names());
    EXPECT_FALSE(reader.is_input(fs::File(Path("/"))));
  }));
}

TEST_F(ArchiveReaderTest, SkipsDataOfAnySizeAndNothingForSizeZero) {
  Reader reader(archive(sample().text()));
  while (const auto entry = reader.next_header()) {
    const std::int64_t size = entry->size();
    EXPECT_NO_THROW(reader.skip(*entry)) << size;
  }
}

TEST_F(ArchiveReaderTest, TellsAndLogsThatSkippingMetTheEnd) {
  const std::string whole = sample().text();
  // Through a pipe, where data can only be read on.
  EXPECT_TRUE(test::passes_in_child([&whole] {
    std::array<int, 2> ends{};
    ASSERT_EQ(0, ::pipe(ends.data()));
    ASSERT_EQ(static_cast<ssize_t>(4 * RECORD), ::write(ends[1], whole.data(), 4 * RECORD));
    ::close(ends[1]);
    ASSERT_EQ(STDIN_FILENO, ::dup2(ends[0], STDIN_FILENO));
    Reader reader("");
    static_cast<void>(reader.next_header());
    const auto entry = reader.next_header();
    ASSERT_TRUE(entry);
    const RecordedLog log(0);
    const std::string text = message_of<std::runtime_error>([&] { reader.skip(*entry); });
    EXPECT_EQ("Truncated input file (needed 1024 bytes, only 512 available)", text);
    EXPECT_EQ((Names{"2 Skip data failed '" + text + "'"}), log.messages());
  }));
}

TEST_F(ArchiveReaderTest, FindsDamageBeforeItsTurnAndLosesNoEntry) {
  EXPECT_EQ(UNREADABLE, message_of<std::runtime_error>([this] {
              Reader reader(archive(TarBuilder().add('L', "././@LongLink", "name").truncated_text()));
              reader.require_readable();
            }));
  Reader reader(archive(sample().text()));
  reader.require_readable();
  reader.require_readable();
  EXPECT_EQ((Names{"/media/a", "/media/b", "/media/c"}), reader.names());
  EXPECT_NO_THROW(reader.require_readable());
  EXPECT_FALSE(reader.next_header());
}

TEST_F(ArchiveReaderTest, AnswersTheEndOnceClosed) {
  Reader reader(archive(sample().text()));
  ASSERT_TRUE(reader.next_header());
  reader.close();
  EXPECT_FALSE(reader.next_header());
}

TEST_F(ArchiveReaderTest, KnowsItsOwnFile) {
  const Reader reader(archive(sample().text()));
  test::write_file(folder_ / "other", "");
  ASSERT_EQ(0, ::link(archive_.c_str(), (folder_ / "hard").c_str()));
  EXPECT_TRUE(reader.is_input(fs::File(Path(archive_))));
  EXPECT_TRUE(reader.is_input(fs::File(Path(folder_ / "hard"))));
  EXPECT_FALSE(reader.is_input(fs::File(Path(folder_ / "other"))));
}

/// An archive of three keywords: app, media with dtm, settings.
class ArchiveSections : public ArchiveReaderTest {
 protected:
  static TarBuilder all() {
    TarBuilder tar;
    tar.file("/app/x/.backup.metadata", "Package: x\n\n").file("/app/x/bin", "1");
    tar.file("/media/m/.backup.metadata", "File: 1\n/m/a\n\n").file("/media/m/a", "2");
    tar.file("/dtm/d/.backup.metadata", "File: 1\n/d/b\n\n").file("/dtm/d/b", "3");
    tar.file("/settings/.backup.metadata", "Settings: 1\n\n").file("/settings/s", "4");
    return tar;
  }

  static Section app(bool media_follows, bool settings_follow) {
    Section section;
    if (media_follows) section.later = {Path("/media"), Path("/dtm")};
    if (settings_follow) section.later.emplace_back("/settings");
    return section;
  }
  static Section media(bool settings_follow) {
    Section section{.earlier = {Path("/app")}, .later = {}};
    if (settings_follow) section.later.emplace_back("/settings");
    return section;
  }
  static Section settings() { return {.earlier = {Path("/app"), Path("/media"), Path("/dtm")}, .later = {}}; }
};

const Names APP{"/app/x/.backup.metadata", "/app/x/bin"};
const Names MEDIA{"/media/m/.backup.metadata", "/media/m/a", "/dtm/d/.backup.metadata", "/dtm/d/b"};
const Names SETTINGS{"/settings/.backup.metadata", "/settings/s"};

TEST_F(ArchiveSections, HandEachOperationItsOwnPart) {
  Reader reader(archive(all().text()));
  reader.begin_section(app(true, true));
  EXPECT_EQ(APP, reader.names());
  EXPECT_FALSE(reader.next_header());
  reader.begin_section(media(true));
  EXPECT_EQ(MEDIA, reader.names());
  reader.begin_section(settings());
  EXPECT_EQ(SETTINGS, reader.names());
  EXPECT_FALSE(reader.next_header());
}

TEST_F(ArchiveSections, PassOverThePackagesOfEarlierKeywords) {
  Reader reader(archive(all().text()));
  reader.begin_section(settings());
  EXPECT_EQ(SETTINGS, reader.names());
}

TEST_F(ArchiveSections, PassOverWhatAnEarlierOperationLeftUnread) {
  Reader reader(archive(all().text()));
  reader.begin_section(app(true, false));
  ASSERT_TRUE(reader.next_header());
  reader.begin_section(media(false));
  Names expected = MEDIA;
  expected.insert(expected.end(), SETTINGS.begin(), SETTINGS.end());
  EXPECT_EQ(expected, reader.names());
}

TEST_F(ArchiveSections, HoldBackTheFirstEntryOfALaterKeywordWithItsData) {
  Reader reader(archive(all().text()));
  reader.begin_section(media(true));
  reader.names();
  reader.begin_section(settings());
  const auto package = harbix::find_manifest(reader, harbix::METADATA_NAME, harbix::OtherEntries::REFUSE);
  ASSERT_TRUE(package);
  EXPECT_EQ("/settings/.backup.metadata", package->entry_name);
  EXPECT_EQ((meta::Manifest{{"Settings", "1"}}), package->manifest);
}

TEST_F(ArchiveSections, SkipAWholeKeywordThatTheArchiveLacks) {
  TarBuilder tar;
  tar.file("/settings/.backup.metadata", "Settings: 1\n\n").file("/settings/s", "4");
  Reader reader(archive(tar.text()));
  reader.begin_section(media(true));
  EXPECT_EQ(Names{}, reader.names());
  reader.begin_section(settings());
  EXPECT_EQ(SETTINGS, reader.names());
}

TEST_F(ArchiveSections, HandStrangePackagesOnAsTheyAre) {
  Reader reader(archive(all().text()));
  reader.begin_section(app(false, false));
  EXPECT_EQ(8U, reader.names().size());
}

TEST_F(ArchiveSections, EndPrefixesOnAComponentBoundary) {
  TarBuilder tar;
  tar.file("/settingsx/.backup.metadata", "Settings: 1\n\n").file("/settingsx/s", "4");
  Reader reader(archive(tar.text()));
  reader.begin_section(media(true));
  EXPECT_EQ((Names{"/settingsx/.backup.metadata", "/settingsx/s"}), reader.names());
}

TEST_F(ArchiveSections, FindDamageThroughTheSectionsBefore) {
  Reader reader(archive(all().truncated_text()));
  reader.begin_section(settings());
  EXPECT_TRUE(reader.next_header());
  EXPECT_TRUE(reader.next_header());
  EXPECT_THROW(static_cast<void>(reader.next_header()), std::runtime_error);
}

TEST_F(ArchiveSections, AreReadAheadWithoutLoss) {
  Reader reader(archive(all().text()));
  reader.begin_section(media(true));
  reader.require_readable();
  EXPECT_EQ(MEDIA, reader.names());
  reader.begin_section(settings());
  reader.require_readable();
  EXPECT_EQ(SETTINGS, reader.names());
}

}  // namespace
