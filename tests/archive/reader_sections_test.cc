#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/metadata_entry.h"
#include "archive/reader.h"
#include "tests/support/archive.h"
#include "tests/support/tar_builder.h"

namespace harbix::test {
namespace {

using fs::Path;
using harbix::Section;

using Names = std::vector<std::string>;

/// An archive of three keywords: app, media with dtm, settings.
class ArchiveSections : public ArchiveReaderTest {
 protected:
  static TarBuilder all() {
    TarBuilder tar;
    tar.file("/app/x/bin/.backup.metadata", "Package: x\n\n").file("/app/x/bin/f", "1");
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

const Names APP_NAMES{"/app/x/bin/.backup.metadata", "/app/x/bin/f"};
const Names MEDIA_NAMES{"/media/m/.backup.metadata", "/media/m/a", "/dtm/d/.backup.metadata", "/dtm/d/b"};
const Names SETTINGS_NAMES{"/settings/.backup.metadata", "/settings/s"};

TEST_F(ArchiveSections, HandEachOperationItsOwnPart) {
  Reader reader(archive(all().text()));
  reader.begin_section(app(true, true));
  EXPECT_EQ(reader.names(), APP_NAMES);
  EXPECT_FALSE(reader.next_header());
  reader.begin_section(media(true));
  EXPECT_EQ(reader.names(), MEDIA_NAMES);
  reader.begin_section(settings());
  EXPECT_EQ(reader.names(), SETTINGS_NAMES);
  EXPECT_FALSE(reader.next_header());
}

TEST_F(ArchiveSections, PassOverThePackagesOfEarlierKeywords) {
  Reader reader(archive(all().text()));
  reader.begin_section(settings());
  EXPECT_EQ(reader.names(), SETTINGS_NAMES);
}

TEST_F(ArchiveSections, PassOverWhatAnEarlierOperationLeftUnread) {
  Reader reader(archive(all().text()));
  reader.begin_section(app(true, false));
  ASSERT_TRUE(reader.next_header());
  reader.begin_section(media(false));
  Names expected = MEDIA_NAMES;
  expected.insert(expected.end(), SETTINGS_NAMES.begin(), SETTINGS_NAMES.end());
  EXPECT_EQ(reader.names(), expected);
}

TEST_F(ArchiveSections, HoldBackTheFirstEntryOfALaterKeywordWithItsData) {
  Reader reader(archive(all().text()));
  reader.begin_section(media(true));
  reader.names();
  reader.begin_section(settings());
  const auto package = harbix::find_manifest(reader, harbix::METADATA_NAME, harbix::OtherEntries::REFUSE);
  ASSERT_TRUE(package);
  EXPECT_EQ(package->entry_name, "/settings/.backup.metadata");
  EXPECT_EQ(package->manifest, (meta::Manifest{{"Settings", "1"}}));
}

TEST_F(ArchiveSections, SkipAWholeKeywordThatTheArchiveLacks) {
  TarBuilder tar;
  tar.file("/settings/.backup.metadata", "Settings: 1\n\n").file("/settings/s", "4");
  Reader reader(archive(tar.text()));
  reader.begin_section(media(true));
  EXPECT_EQ(reader.names(), Names{});
  reader.begin_section(settings());
  EXPECT_EQ(reader.names(), SETTINGS_NAMES);
}

TEST_F(ArchiveSections, HandStrangePackagesOnAsTheyAre) {
  Reader reader(archive(all().text()));
  reader.begin_section(app(false, false));
  EXPECT_EQ(reader.names().size(), 8U);
}

TEST_F(ArchiveSections, EndAtALaterKeywordOnceAPackageOfTheirOwnWasMet) {
  Section section = app(false, false);
  section.own = {Path("/app")};
  section.rest = {Path("/media"), Path("/dtm"), Path("/settings")};
  Reader reader(archive(all().text()));
  reader.begin_section(section);
  EXPECT_EQ(reader.names(), APP_NAMES);
  TarBuilder tar;
  tar.file("/media/m/.backup.metadata", "");
  Reader foreign(archive(tar.text()));
  foreign.begin_section(section);
  EXPECT_EQ(foreign.names(), Names{"/media/m/.backup.metadata"});
}

TEST_F(ArchiveSections, EndPrefixesOnAComponentBoundary) {
  TarBuilder tar;
  tar.file("/settingsx/.backup.metadata", "Settings: 1\n\n").file("/settingsx/s", "4");
  Reader reader(archive(tar.text()));
  reader.begin_section(media(true));
  EXPECT_EQ(reader.names(), (Names{"/settingsx/.backup.metadata", "/settingsx/s"}));
}

TEST_F(ArchiveSections, TakeNamesWithoutTheLeadingSeparatorForTheSameNames) {
  TarBuilder tar;
  tar.file("app/x/bin/.backup.metadata", "Package: x\n\n").file("app/x/bin/f", "1");
  tar.file("./settings/.backup.metadata", "Settings: 1\n\n").file("./settings/s", "4");
  Reader reader(archive(tar.text()));
  reader.begin_section(app(true, true));
  EXPECT_EQ(reader.names(), APP_NAMES);
  reader.begin_section(settings());
  EXPECT_EQ(reader.names(), SETTINGS_NAMES);
}

TEST_F(ArchiveSections, AreNotEndedByAFileOfTheNameOfAMetadataEntry) {
  TarBuilder tar;
  tar.file("/media/m/.backup.metadata", "").file("/media/m/settings/.backup.metadata", "");
  tar.file("/settings/x/.backup.metadata", "").folder("/settings/.backup.metadata");
  Reader reader(archive(tar.text()));
  reader.begin_section(media(true));
  EXPECT_EQ(reader.names().size(), 4U);
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
  EXPECT_EQ(reader.names(), MEDIA_NAMES);
  reader.begin_section(settings());
  reader.require_readable();
  EXPECT_EQ(reader.names(), SETTINGS_NAMES);
}

}  // namespace
}  // namespace harbix::test
