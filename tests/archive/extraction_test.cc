#include "archive/extraction.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fs/identity.h"
#include "tests/support/archive.h"
#include "tests/support/captured_output.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/recorded_log.h"
#include "tests/support/tar_builder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Path;
using harbix::Extraction;
using harbix::Keep;

constexpr harbix::Role ROOT{.user = 0, .group = 0};

class ExtractionTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(::mkdir((folder_ / "out").c_str(), 0777), 0); }

  std::string archive(const std::string& bytes) {
    write_file(folder_ / "a.tar", bytes);
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
    EXPECT_NE(
        message_of<std::runtime_error>([&] { extraction.extract(*entry, entry->destination(Path(name))); }),
        "");
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
  EXPECT_EQ(errors.text(), "");
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
  ASSERT_EQ(::chmod(out().c_str(), 0777), 0);
  Reader reader(archive(TarBuilder().file("f", "text").text()));
  {
    Extraction extraction(reader, {.user = 4001, .group = 4002}, Path(out()), Keep::NO, completeness_);
    EXPECT_EQ(::geteuid(), 4001U);
    EXPECT_EQ(::getegid(), 4002U);
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
    ASSERT_EQ(::stat((out() + "/d").c_str(), &record), 0);
    EXPECT_EQ(record.st_mode, S_IFDIR | 0570U);
    // What is set behind the end of the scope stays, also when the reader goes on and ends.
    ASSERT_EQ(::chmod((out() + "/d").c_str(), 0700), 0);
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
    EXPECT_EQ(errors.text(), "Warning: " + out() + "/escape/f: Not a directory\nWarning: " + out() +
                                 "/escape/d: Not a directory\n");
    EXPECT_EQ(log.messages(),
              (std::vector<std::string>{
                  "3 Archive status not OK (-20) ('" + out() + "/escape/f: Not a directory')",
                  "3 Archive status not OK (-20) ('" + out() + "/escape/d: Not a directory')"}));
    ASSERT_EQ(::unlink((folder_ / "out/escape").c_str()), 0);
    ASSERT_EQ(::unlink((folder_ / "out/behind").c_str()), 0);
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
    EXPECT_EQ(completeness_.is_complete(), row.is_complete) << errors.text();
    EXPECT_EQ(completeness_.result(), row.is_complete ? 0 : 1);
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
    ASSERT_EQ(::rmdir((out() + "/d").c_str()), 0);
    EXPECT_TRUE(completeness_.is_complete());
  }
  EXPECT_FALSE(completeness_.is_complete());
  EXPECT_EQ(errors.text(), "Warning: " + out() + "/d: No such file or directory\n");
}

TEST_F(ExtractionTest, RefusesNamesWithDotDotAndGoesOn) {
  for (const char* name : {"../f", "d/../../f", "..", "d/.."}) {
    const CapturedOutput errors(STDERR_FILENO);
    extract_all(TarBuilder().file(name, "evil").file("behind", "").text());
    EXPECT_TRUE((Tree{file("behind", "", 0660)}.matches(out()))) << name;
    EXPECT_EQ(errors.text(), "Warning: " + out() + '/' + name + ": Path contains '..'\n") << name;
    ASSERT_EQ(::unlink((folder_ / "out/behind").c_str()), 0);
  }
  EXPECT_TRUE((Tree{dir("out", {}, ANY_MODE), file("a.tar", read_file(folder_ / "a.tar"), ANY_MODE)}.matches(
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
  EXPECT_EQ(errors.text(), "Warning: " + out() + "/../f: Path contains '..'\n");
  EXPECT_TRUE(log.lines().empty()) << "below level 1 only standard error hears of it";
  EXPECT_EQ(reader.error_number(), 0);
  EXPECT_EQ(reader.error_text(), "");
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
  EXPECT_EQ(
      message_of<std::runtime_error>([&] { extraction.extract(*entry, entry->destination(Path("./cut"))); }),
      "Extracting data for './cut' failed ('%s')");
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{"2 Failed restoring './cut' due to 'Truncated tar archive'"}));
  EXPECT_EQ(read_file(out() + "/before"), "text");
}

TEST_F(ExtractionTest, NeverWritesOverTheArchiveThatItReads) {
  const std::string bytes = TarBuilder().file("../a.tar", "evil").file("b.tar", "evil").text();
  Reader reader(archive(bytes));
  ASSERT_EQ(::link((folder_ / "a.tar").c_str(), (folder_ / "out/b.tar").c_str()), 0);
  const CapturedOutput errors(STDERR_FILENO);
  {
    Extraction extraction(reader, ROOT, Path(out()), Keep::NO, completeness_);
    while (const auto entry = reader.next_header()) {
      extraction.extract(*entry, entry->destination(*entry->name()));
    }
  }
  EXPECT_TRUE(bytes == read_file(folder_ / "a.tar"));
  EXPECT_EQ(errors.text(), "Warning: " + out() + "/../a.tar: Path contains '..'\nWarning: " + out() +
                               "/b.tar: it is the archive that is being read\n");
}

TEST_F(ExtractionTest, ReplacesAFileThatIsThere) {
  Tree{file("f", "something longer")}.build(out());
  extract_all(TarBuilder().file("f", "new").text());
  EXPECT_TRUE((Tree{file("f", "new", 0660)}.matches(out())));
}

TEST_F(ExtractionTest, LeavesWhatIsThereWhereItIsTold) {
  const Tree old{file("f", "old"), link("l", "nowhere"),  dir("d", {file("f", "old")}, 0700),
                 dir("empty"),     file("folder", "old"), dir("link"),
                 link("file", "f")};
  old.build(out());
  const CapturedOutput errors(STDERR_FILENO);
  Reader reader(archive(TarBuilder()
                            .file("f", "new")
                            .file("l", "new")
                            .folder("d")
                            .file("empty", "new")
                            .folder("folder")
                            .link("link", "x")
                            .file("file", "new")
                            .file("d/new", "new")
                            .text()));
  std::vector<std::string> made;
  {
    Extraction extraction(reader, ROOT, Path(out()), Keep::NO, completeness_);
    while (const auto entry = reader.next_header()) {
      if (extraction.extract_new(*entry, entry->destination(*entry->name())))
        made.push_back(entry->name()->text());
    }
  }
  EXPECT_EQ(made, std::vector<std::string>{"d/new"});
  EXPECT_EQ(read_file(out() + "/d/new"), "new");
  std::filesystem::remove(out() + "/d/new");
  EXPECT_TRUE(old.matches(out()));
  EXPECT_EQ(errors.text(), "");
  EXPECT_TRUE(completeness_.is_complete());
}

TEST_F(ExtractionTest, ReplacesALinkInsteadOfWritingThroughIt) {
  Tree{file("target", "kept")}.build(folder_.path());
  Tree{link("f", "../target")}.build(out());
  extract_all(TarBuilder().file("f", "new").text());
  EXPECT_TRUE((Tree{file("f", "new", 0660)}.matches(out())));
  EXPECT_EQ(read_file(folder_ / "target"), "kept");
}

TEST_F(ExtractionTest, GivesTheRoleUpAtItsEnd) {
  Reader reader(archive(TarBuilder().file("f", "").text()));
  {
    const Extraction extraction(reader, {.user = 4001, .group = 4002}, Path(out()), Keep::NO, completeness_);
  }
  EXPECT_EQ(::geteuid(), 0U);
  EXPECT_EQ(::getegid(), 0U);
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
  EXPECT_TRUE(passes_in_child([this] {
    ASSERT_EQ(::unshare(CLONE_NEWNS), 0);
    ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    ASSERT_EQ(::mount("none", out().c_str(), "tmpfs", 0, "size=64k"), 0);
    Tree{file("old", "kept")}.build(out());
    const CapturedOutput errors(STDERR_FILENO);
    const std::string large(std::size_t{128} << 10, 'x');
    extract_all(TarBuilder().file("old", large).file("new", large).file("small", "fits").text());
    EXPECT_TRUE((Tree{file("old", "kept"), file("small", "fits", 0660)}.matches(out())));
    EXPECT_EQ(errors.text(), "Warning: " + out() + "/old: No space left on device\nWarning: " + out() +
                                 "/new: No space left on device\n");
    ASSERT_EQ(::umount(out().c_str()), 0);
  }));
}

TEST_F(ExtractionTest, ReplacesAnEmptyFolderAndNoOther) {
  Tree{dir("empty"), dir("full", {file("kept")})}.build(out());
  const CapturedOutput errors(STDERR_FILENO);
  extract_all(TarBuilder().file("empty", "new").file("full", "new").link("full", "x").text());
  EXPECT_TRUE((Tree{file("empty", "new", 0660), dir("full", {file("kept")})}.matches(out())));
  EXPECT_EQ(errors.text(), "Warning: " + out() + "/full: Directory not empty\nWarning: " + out() +
                               "/full: Directory not empty\n");
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
        ASSERT_EQ(::rename((out() + "/d").c_str(), (folder_ / "away").c_str()), 0);
        ASSERT_EQ(::symlink("../others", (out() + "/d").c_str()), 0);
      }
      extraction.extract(*entry, entry->destination(*entry->name()));
    }
  }
  EXPECT_EQ(read_file(folder_ / "others/f"), "kept");
  EXPECT_EQ(errors.text(), "Warning: " + out() + "/d/f: Not a directory\n");
}

}  // namespace
}  // namespace harbix::test
