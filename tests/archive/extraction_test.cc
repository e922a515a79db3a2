#include "archive/extraction.h"

#include <sched.h>
#include <sys/mount.h>
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
#include "support/child_process.h"
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

constexpr harbix::Role ROOT{.user = 0, .group = 0};

class ExtractionTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, ::mkdir((folder_ / "out").c_str(), 0777)); }

  std::string archive(const std::string& bytes) {
    test::write_file(folder_ / "a.tar", bytes);
    return folder_ / "a.tar";
  }

  /// Extracts every entry below "out", under its own name.
  void extract_all(const std::string& bytes, Keep permissions = Keep::NO) {
    Reader reader(archive(bytes));
    Extraction extraction(reader, ROOT, Path(out()), permissions, completeness_);
    while (const auto entry = reader.next_header()) {
      extraction.extract(*entry, entry->destination(*entry->name()));
    }
  }

  /// Extracts a file whose data ends before its size.
  void extract_cut_file(const std::string& name) {
    const RecordedLog log;
    Reader reader(archive(TarBuilder().file(name, std::string(2000, 'x')).truncated_text().substr(0, 1024)));
    Extraction extraction(reader, ROOT, Path(out()), Keep::NO, completeness_);
    const auto entry = reader.next_header();
    ASSERT_TRUE(entry);
    EXPECT_NE("", message_of<std::runtime_error>(
                      [&] { extraction.extract(*entry, entry->destination(Path(name))); }));
  }

  [[nodiscard]] std::string out() const { return folder_ / "out"; }

  TemporaryFolder folder_;
  harbix::Completeness completeness_;
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
  extract_all(TarBuilder().file("f", "", 0644).folder("d", 0755).file("d/g", "", 0606).text(), Keep::YES);
  EXPECT_TRUE((Tree{file("f", "", 0644), dir("d", {file("g", "", 0606)}, 0755)}.matches(out())));
}

TEST_F(ExtractionTest, GivesWhatItCreatesToTheEffectiveIds) {
  ASSERT_EQ(0, ::chmod(out().c_str(), 0777));
  Reader reader(archive(TarBuilder().file("f", "text").text()));
  {
    Extraction extraction(reader, {.user = 4001, .group = 4002}, Path(out()), Keep::NO, completeness_);
    EXPECT_EQ(4001U, ::geteuid());
    EXPECT_EQ(4002U, ::getegid());
    const auto entry = reader.next_header();
    ASSERT_TRUE(entry);
    extraction.extract(*entry, entry->destination(Path("f")));
  }
  EXPECT_TRUE((Tree{file("f", "text", 0660).owned_by(4001, 4002)}.matches(out())));
}

TEST_F(ExtractionTest, TakesNameAndStatusOfTheDestination) {
  Reader reader(archive(TarBuilder().file("/media/f", "text", 0600).text()));
  {
    Extraction extraction(reader, ROOT, Path(out()), Keep::NO, completeness_);
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
    {
      Extraction extraction(reader, ROOT, Path(out()), Keep::NO, completeness_);
      for (int i = 0; i < 2; ++i) {
        const auto entry = reader.next_header();
        ASSERT_TRUE(entry);
        extraction.extract(*entry, entry->destination(*entry->name()));
      }
    }
    struct ::stat record {};
    ASSERT_EQ(0, ::stat((out() + "/d").c_str(), &record));
    EXPECT_EQ(S_IFDIR | 0570U, record.st_mode);
    // What is set behind the end of the scope stays, also when the reader goes on and ends.
    ASSERT_EQ(0, ::chmod((out() + "/d").c_str(), 0700));
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
    EXPECT_EQ("Warning: " + out() + "/escape/f: Not a directory\nWarning: " + out() +
                  "/escape/d: Not a directory\n",
              errors.text());
    EXPECT_EQ((std::vector<std::string>{
                  "3 Archive status not OK (-20) ('" + out() + "/escape/f: Not a directory')",
                  "3 Archive status not OK (-20) ('" + out() + "/escape/d: Not a directory')"}),
              log.messages());
    ASSERT_EQ(0, ::unlink((folder_ / "out/escape").c_str()));
    ASSERT_EQ(0, ::unlink((folder_ / "out/behind").c_str()));
  }
}

TEST_F(ExtractionTest, NotesWhatIsNotOnDisk) {
  struct Row {
    std::string archive;
    bool is_complete;
  };
  for (const Row& row : {Row{TarBuilder().file("f", "text").folder("d", 0570).file("d/f", "").text(), true},
                         Row{TarBuilder().file("f", "").file("f/g", "").text(), false},
                         Row{TarBuilder().file("../f", "").text(), false}}) {
    const CapturedOutput errors(STDERR_FILENO);
    completeness_ = {};
    extract_all(row.archive);
    EXPECT_EQ(row.is_complete, completeness_.is_complete()) << errors.text();
    EXPECT_EQ(row.is_complete ? 0 : 1, completeness_.result());
  }
}

TEST_F(ExtractionTest, NotesAFolderWhoseModeCannotBeSettled) {
  Reader reader(archive(TarBuilder().folder("d", 0570).text()));
  const CapturedOutput errors(STDERR_FILENO);
  {
    Extraction extraction(reader, ROOT, Path(out()), Keep::NO, completeness_);
    const auto entry = reader.next_header();
    ASSERT_TRUE(entry);
    extraction.extract(*entry, entry->destination(Path("./d")));
    ASSERT_EQ(0, ::rmdir((out() + "/d").c_str()));
    EXPECT_TRUE(completeness_.is_complete());
  }
  EXPECT_FALSE(completeness_.is_complete());
  EXPECT_EQ("Warning: " + out() + "/d: No such file or directory\n", errors.text());
}

TEST_F(ExtractionTest, RefusesNamesWithDotDotAndGoesOn) {
  for (const char* name : {"../f", "d/../../f", "..", "d/.."}) {
    const CapturedOutput errors(STDERR_FILENO);
    extract_all(TarBuilder().file(name, "evil").file("behind", "").text());
    EXPECT_TRUE((Tree{file("behind", "", 0660)}.matches(out()))) << name;
    EXPECT_EQ("Warning: " + out() + '/' + name + ": Path contains '..'\n", errors.text()) << name;
    ASSERT_EQ(0, ::unlink((folder_ / "out/behind").c_str()));
  }
  EXPECT_TRUE(
      (Tree{dir("out", {}, ANY_MODE), file("a.tar", test::read_file(folder_ / "a.tar"), ANY_MODE)}.matches(
          folder_.path())));
}

TEST_F(ExtractionTest, TellsAWarningOnceAndForgetsIt) {
  Reader reader(archive(TarBuilder().file("../f", "evil").file("g", "").text()));
  const CapturedOutput errors(STDERR_FILENO);
  const RecordedLog log(0);
  Extraction extraction(reader, ROOT, Path(out()), Keep::NO, completeness_);
  const auto entry = reader.next_header();
  ASSERT_TRUE(entry);
  extraction.extract(*entry, entry->destination(*entry->name()));
  EXPECT_EQ("Warning: " + out() + "/../f: Path contains '..'\n", errors.text());
  EXPECT_TRUE(log.lines().empty()) << "below level 1 only standard error hears of it";
  EXPECT_EQ(0, reader.error_number());
  EXPECT_EQ("", reader.error_text());
}

TEST_F(ExtractionTest, ThrowsWhereTheDataOfAFileIsCut) {
  TarBuilder tar;
  tar.file("before", "text").file("cut", std::string(2000, 'x'));
  Reader reader(archive(tar.truncated_text().substr(0, std::size_t{4} * 512)));
  const RecordedLog log(0);
  Extraction extraction(reader, ROOT, Path(out()), Keep::NO, completeness_);
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
  EXPECT_EQ("text", test::read_file(out() + "/before"));
}

TEST_F(ExtractionTest, NeverWritesOverTheArchiveThatItReads) {
  const std::string bytes = TarBuilder().file("../a.tar", "evil").file("b.tar", "evil").text();
  Reader reader(archive(bytes));
  ASSERT_EQ(0, ::link((folder_ / "a.tar").c_str(), (folder_ / "out/b.tar").c_str()));
  const CapturedOutput errors(STDERR_FILENO);
  {
    Extraction extraction(reader, ROOT, Path(out()), Keep::NO, completeness_);
    while (const auto entry = reader.next_header()) {
      extraction.extract(*entry, entry->destination(*entry->name()));
    }
  }
  EXPECT_TRUE(bytes == test::read_file(folder_ / "a.tar"));
  EXPECT_EQ("Warning: " + out() + "/../a.tar: Path contains '..'\nWarning: " + out() +
                "/b.tar: it is the archive that is being read\n",
            errors.text());
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

TEST_F(ExtractionTest, GivesTheRoleUpAtItsEnd) {
  Reader reader(archive(TarBuilder().file("f", "").text()));
  {
    const Extraction extraction(reader, {.user = 4001, .group = 4002}, Path(out()), Keep::NO, completeness_);
  }
  EXPECT_EQ(0U, ::geteuid());
  EXPECT_EQ(0U, ::getegid());
}

TEST_F(ExtractionTest, KeepsTheOldFileWhereTheNewOneIsCut) {
  Tree{file("f", "old")}.build(out());
  extract_cut_file("f");
  EXPECT_TRUE((Tree{file("f", "old")}.matches(out())));
}

TEST_F(ExtractionTest, LeavesNothingOfANewFileThatIsCut) {
  extract_cut_file("f");
  EXPECT_TRUE(Tree{}.matches(out()));
}

TEST_F(ExtractionTest, CostsAFullDiskOnlyWhatDidNotFit) {
  EXPECT_TRUE(test::passes_in_child([this] {
    ASSERT_EQ(0, ::unshare(CLONE_NEWNS));
    ASSERT_EQ(0, ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr));
    ASSERT_EQ(0, ::mount("none", out().c_str(), "tmpfs", 0, "size=64k"));
    Tree{file("old", "kept")}.build(out());
    const CapturedOutput errors(STDERR_FILENO);
    const std::string large(std::size_t{128} << 10, 'x');
    extract_all(TarBuilder().file("old", large).file("new", large).file("small", "fits").text());
    EXPECT_TRUE((Tree{file("old", "kept"), file("small", "fits", 0660)}.matches(out())));
    EXPECT_EQ("Warning: " + out() + "/old: No space left on device\nWarning: " + out() +
                  "/new: No space left on device\n",
              errors.text());
    ASSERT_EQ(0, ::umount(out().c_str()));
  }));
}

TEST_F(ExtractionTest, ReplacesAnEmptyFolderAndNoOther) {
  Tree{dir("empty"), dir("full", {file("kept")})}.build(out());
  const CapturedOutput errors(STDERR_FILENO);
  extract_all(TarBuilder().file("empty", "new").file("full", "new").link("full", "x").text());
  EXPECT_TRUE((Tree{file("empty", "new", 0660), dir("full", {file("kept")})}.matches(out())));
  EXPECT_EQ(
      "Warning: " + out() + "/full: Directory not empty\nWarning: " + out() + "/full: Directory not empty\n",
      errors.text());
}

TEST_F(ExtractionTest, ReplacesOtherObjectsByFolders) {
  Tree{file("f"), link("l", "f"), dir("there", {}, 0500)}.build(out());
  extract_all(TarBuilder().folder("f").folder("l").folder("there").text());
  EXPECT_TRUE((Tree{dir("f", {}, 0770), dir("l", {}, 0770), dir("there", {}, 0500)}.matches(out())));
}

TEST_F(ExtractionTest, WritesNothingThroughAFolderThatBecomesALink) {
  Tree{dir("others", {file("f", "kept")})}.build(folder_.path());
  Tree{dir("d"), dir("e")}.build(out());
  Reader reader(archive(TarBuilder().file("d/f", "1").file("e/f", "2").file("d/f", "evil").text()));
  const CapturedOutput errors(STDERR_FILENO);
  {
    Extraction extraction(reader, ROOT, Path(out()), Keep::NO, completeness_);
    for (int i = 0; const auto entry = reader.next_header(); ++i) {
      if (i == 2) {
        ASSERT_EQ(0, ::rename((out() + "/d").c_str(), (folder_ / "away").c_str()));
        ASSERT_EQ(0, ::symlink("../others", (out() + "/d").c_str()));
      }
      extraction.extract(*entry, entry->destination(*entry->name()));
    }
  }
  EXPECT_EQ("kept", test::read_file(folder_ / "others/f"));
  EXPECT_EQ("Warning: " + out() + "/d/f: Not a directory\n", errors.text());
}

}  // namespace
