#include "archive/extraction.h"

#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/archive_test_support.h"
#include "fs/identity.h"
#include "support/captured_output.h"
#include "support/recorded_log.h"
#include "support/tar_builder.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using fs::Path;
using harbix::Extraction;
using harbix::Keep;
using test::ANY_MODE;
using test::CapturedOutput;
using test::dir;
using test::file;
using test::link;
using test::message_of;
using test::Reader;
using test::RecordedLog;
using test::TarBuilder;
using test::TemporaryFolder;
using test::Tree;

class ExtractionTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, ::mkdir((folder_ / "out").c_str(), 0777)); }

  std::string archive(const std::string& bytes) {
    test::write_file(folder_ / "a.tar", bytes);
    return folder_ / "a.tar";
  }

  /// Extracts every entry below "out", under its own name.
  void extract_all(const std::string& bytes, Keep owner = Keep::NO, Keep permissions = Keep::NO) {
    Reader reader(archive(bytes));
    const test::InsideFolder inside(folder_ / "out");
    Extraction extraction(reader, owner, permissions);
    while (const auto entry = reader.next_header()) {
      extraction.extract(*entry, entry->destination(*entry->name()));
    }
  }

  [[nodiscard]] std::string out() const { return folder_ / "out"; }

  TemporaryFolder folder_;
  fs::FileMask mask_{007};
};

TEST_F(ExtractionTest, CreatesFilesFoldersAndLinks) {
  const CapturedOutput errors(STDERR_FILENO);
  extract_all(TarBuilder().folder("d").file("d/f", "text").file("empty", "").link("l", "d/f").text());
  EXPECT_TRUE(
      (Tree{dir("d", {file("f", "text", 0660)}, 0770), file("empty", "", 0660), link("l", "d/f")}.matches(
          out())));
  EXPECT_EQ("", errors.text());
}

TEST_F(ExtractionTest, LimitsModesByTheMaskAndDropsSetIdBits) {
  const fs::FileMask mask(027);
  extract_all(TarBuilder().file("f", "", 06777).folder("d", 03777).text());
  EXPECT_TRUE((Tree{file("f", "", 0750), dir("d", {}, 0750)}.matches(out())));
}

TEST_F(ExtractionTest, KeepsPermissionsWhereItIsTold) {
  const fs::FileMask mask(077);
  extract_all(TarBuilder().file("f", "", 0644).folder("d", 0755).file("d/g", "", 0606).text(), Keep::NO,
              Keep::YES);
  EXPECT_TRUE((Tree{file("f", "", 0644), dir("d", {file("g", "", 0606)}, 0755)}.matches(out())));
}

TEST_F(ExtractionTest, GivesWhatItCreatesToTheEffectiveIds) {
  ASSERT_EQ(0, ::chmod(out().c_str(), 0777));
  Reader reader(archive(TarBuilder().file("f", "text").text()));
  {
    const fs::EffectiveGroup group(4002);
    const fs::EffectiveUser user(4001);
    const test::InsideFolder inside(out());
    Extraction extraction(reader, Keep::NO, Keep::NO);
    const auto entry = reader.next_header();
    ASSERT_TRUE(entry);
    extraction.extract(*entry, entry->destination(Path("f")));
  }
  EXPECT_TRUE((Tree{file("f", "text", 0660).owned_by(4001, 4002)}.matches(out())));
}

TEST_F(ExtractionTest, KeepsOwnersWhereItIsTold) {
  Reader reader(archive(TarBuilder().file("f", "text").text()));
  {
    const test::InsideFolder inside(out());
    Extraction extraction(reader, Keep::YES, Keep::NO);
    const auto entry = reader.next_header();
    ASSERT_TRUE(entry);
    struct ::stat record = entry->destination(Path("f")).record();
    record.st_uid = 4001;
    record.st_gid = 4002;
    extraction.extract(*entry, fs::File(Path("f"), record));
  }
  EXPECT_TRUE((Tree{file("f", "text", ANY_MODE).owned_by(4001, 4002)}.matches(out())));
}

TEST_F(ExtractionTest, TakesNameAndStatusOfTheDestination) {
  Reader reader(archive(TarBuilder().file("/media/f", "text", 0600).text()));
  {
    const test::InsideFolder inside(out());
    Extraction extraction(reader, Keep::NO, Keep::NO);
    const auto entry = reader.next_header();
    ASSERT_TRUE(entry);
    struct ::stat record = entry->destination(Path("g")).record();
    record.st_mode = S_IFREG | 0640;
    extraction.extract(*entry, fs::File(Path("./misc/new/g"), record));
  }
  EXPECT_TRUE(
      (Tree{dir("misc", {dir("new", {file("g", "text", 0640)}, ANY_MODE)}, ANY_MODE)}.matches(out())));
}

TEST_F(ExtractionTest, SettlesTheModesOfFoldersWhenItEndsAndNeverAfterwards) {
  Reader reader(archive(TarBuilder().folder("d", 0570).file("d/f", "text").file("last", "").text()));
  {
    const test::InsideFolder inside(out());
    {
      Extraction extraction(reader, Keep::NO, Keep::NO);
      for (int i = 0; i < 2; ++i) {
        const auto entry = reader.next_header();
        ASSERT_TRUE(entry);
        extraction.extract(*entry, entry->destination(*entry->name()));
      }
    }
    struct ::stat record {};
    ASSERT_EQ(0, ::stat("d", &record));
    EXPECT_EQ(S_IFDIR | 0570U, record.st_mode);
    // What is set behind the end of the scope stays, also when the reader goes on and ends.
    ASSERT_EQ(0, ::chmod("d", 0700));
    while (reader.next_header()) continue;
    reader.close();
  }
  EXPECT_TRUE((Tree{dir("d", {file("f", "text", 0660)}, 0700)}.matches(out())));
}

TEST_F(ExtractionTest, NeverGoesThroughALinkOrADotDot) {
  Tree{dir("outside")}.build(folder_.path());
  for (const std::string& target : {std::string(".."), folder_ / "outside"}) {
    const RecordedLog log;
    const CapturedOutput errors(STDERR_FILENO);
    extract_all(TarBuilder()
                    .link("escape", target)
                    .file("escape/f", "evil")
                    .folder("escape/d")
                    .file("behind", "still restored")
                    .text());
    EXPECT_TRUE((Tree{link("escape", target), file("behind", "still restored", 0660)}.matches(out())));
    EXPECT_TRUE(Tree{}.matches(folder_ / "outside"));
    EXPECT_EQ(
        "Warning: Cannot extract through symlink escape/f\nWarning: Cannot extract through symlink "
        "escape/d\n",
        errors.text());
    EXPECT_EQ((std::vector<std::string>{
                  "3 Archive status not OK (-20) ('Cannot extract through symlink escape/f')",
                  "3 Archive status not OK (-20) ('Cannot extract through symlink escape/d')"}),
              log.messages());
    ASSERT_EQ(0, ::unlink((folder_ / "out/escape").c_str()));
    ASSERT_EQ(0, ::unlink((folder_ / "out/behind").c_str()));
  }
}

TEST_F(ExtractionTest, RefusesNamesWithDotDotAndGoesOn) {
  for (const char* name : {"../f", "d/../../f", "..", "d/.."}) {
    const CapturedOutput errors(STDERR_FILENO);
    extract_all(TarBuilder().file(name, "evil").file("behind", "").text());
    EXPECT_TRUE((Tree{file("behind", "", 0660)}.matches(out()))) << name;
    EXPECT_EQ("Warning: Path contains '..'\n", errors.text()) << name;
    ASSERT_EQ(0, ::unlink((folder_ / "out/behind").c_str()));
  }
  EXPECT_TRUE(
      (Tree{dir("out", {}, ANY_MODE), file("a.tar", test::read_file(folder_ / "a.tar"), ANY_MODE)}.matches(
          folder_.path())));
}

TEST_F(ExtractionTest, TellsAWarningOnceAndForgetsIt) {
  Reader reader(archive(TarBuilder().file("../f", "evil").file("g", "").text()));
  const test::InsideFolder inside(out());
  const CapturedOutput errors(STDERR_FILENO);
  const RecordedLog log(0);
  Extraction extraction(reader, Keep::NO, Keep::NO);
  const auto entry = reader.next_header();
  ASSERT_TRUE(entry);
  extraction.extract(*entry, entry->destination(*entry->name()));
  EXPECT_EQ("Warning: Path contains '..'\n", errors.text());
  EXPECT_TRUE(log.lines().empty()) << "below level 1 only standard error hears of it";
  EXPECT_EQ(0, reader.error_number());
  EXPECT_EQ("", reader.error_text());
}

TEST_F(ExtractionTest, ThrowsWhereTheDataOfAFileIsCut) {
  TarBuilder tar;
  tar.file("before", "text").file("cut", std::string(2000, 'x'));
  Reader reader(archive(tar.truncated_text().substr(0, std::size_t{4} * 512)));
  const test::InsideFolder inside(out());
  const RecordedLog log(0);
  Extraction extraction(reader, Keep::NO, Keep::NO);
  auto entry = reader.next_header();
  ASSERT_TRUE(entry);
  extraction.extract(*entry, entry->destination(Path("before")));
  entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ("Extracting data for './cut' failed ('%s')", message_of<std::runtime_error>([&] {
              extraction.extract(*entry, entry->destination(Path("./cut")));
            }));
  EXPECT_EQ((std::vector<std::string>{"2 Failed restoring './cut' due to 'Truncated tar archive'"}),
            log.messages());
  EXPECT_EQ("text", test::read_file("before"));
}

TEST_F(ExtractionTest, NeverWritesOverTheArchiveThatItReads) {
  const std::string bytes = TarBuilder().file("../a.tar", "evil").file("b.tar", "evil").text();
  Reader reader(archive(bytes));
  ASSERT_EQ(0, ::link((folder_ / "a.tar").c_str(), (folder_ / "out/b.tar").c_str()));
  const test::InsideFolder inside(out());
  const CapturedOutput errors(STDERR_FILENO);
  {
    Extraction extraction(reader, Keep::NO, Keep::NO);
    while (const auto entry = reader.next_header()) {
      extraction.extract(*entry, entry->destination(*entry->name()));
    }
  }
  EXPECT_TRUE(bytes == test::read_file(folder_ / "a.tar"));
}

TEST_F(ExtractionTest, ReplacesAFileThatIsThere) {
  Tree{file("f", "something longer")}.build(out());
  extract_all(TarBuilder().file("f", "new").text());
  EXPECT_TRUE((Tree{file("f", "new", 0660)}.matches(out())));
}

TEST_F(ExtractionTest, ReplacesALinkInsteadOfWritingThroughIt) {
  Tree{file("target", "kept")}.build(folder_.path());
  Tree{link("f", "../target")}.build(out());
  extract_all(TarBuilder().file("f", "new").text());
  EXPECT_TRUE((Tree{file("f", "new", 0660)}.matches(out())));
  EXPECT_EQ("kept", test::read_file(folder_ / "target"));
}

}  // namespace
