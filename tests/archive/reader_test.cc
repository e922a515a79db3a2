#include "archive/reader.h"

#include <stdlib.h>  // NOLINT(modernize-deprecated-headers): setenv is POSIX's, not C's
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/error.h"
#include "tests/support/archive.h"
#include "tests/support/program.h"
#include "tests/support/tar_builder.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Path;

using harbix::ArchiveError;

using Names = std::vector<std::string>;

TEST_F(ArchiveReaderTest, StepsThroughTheEntriesWithTheirData) {
  Reader reader(archive(three_entries().text()));
  auto entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->name()->text(), "/media/a");
  EXPECT_EQ(entry->size(), 4);
  EXPECT_EQ(reader.data(), "text");
  entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ(reader.data(), std::string(600, 'b'));
  entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_FALSE(reader.next_header());
}

TEST_F(ArchiveReaderTest, KeepsAnsweringTheEndAfterTheEnd) {
  Reader reader(archive(three_entries().text()));
  EXPECT_EQ(reader.names().size(), 3U);
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(reader.next_header());
  EXPECT_EQ(reader.advance(), ARCHIVE_EOF);
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
    EXPECT_EQ(reader.names(), Names{row.name}) << row.stored;
  }
}

TEST_F(ArchiveReaderTest, HandsNamesOverByteForByte) {
  const Names names{"/media/\xC3\xA9", "/media/e\xCC\x81", "/media/\xFF\xFE", "/media/a b",
                    "/media/\x01\x7F"};
  TarBuilder tar;
  for (const std::string& name : names) tar.file(name, "");
  Reader reader(archive(tar.text()));
  EXPECT_EQ(reader.names(), names);
  EXPECT_EQ(reader.error_number(), 0);
}

TEST_F(ArchiveReaderTest, ReadsTheArchivesOfOtherTars) {
  Tree{dir("in", {file("a", "text"), file("\xC3\xA9", "accent"), link("l", "a"),
                  file(std::string(250, 'n'), "long")})}
      .build(folder_.path());
  for (const std::string format :
       {"tar --format=gnu", "tar --format=pax", "tar --format=posix", "bsdtar --format=pax",
        "bsdtar --format=gnutar", "bsdtar --format=cpio", "bsdtar --format=zip"}) {
    const auto made = run_program(
        {"sh", "-c", "cd '" + folder_.path() + "' && LC_ALL=C.UTF-8 " + format + " -cf a.tar in/a in/l"});
    ASSERT_EQ(made.status, 0) << made.errors;
    Reader reader(archive_);
    EXPECT_EQ(reader.names(), (Names{"in/a", "in/l"})) << format;
  }
}

TEST_F(ArchiveReaderTest, ReadsPaxNamesOfOtherTarsAsBytes) {
  Tree{dir("in", {file("\xC3\xA9"), file("e\xCC\x81"), file("\xFF"), file(std::string(250, 'n'))})}.build(
      folder_.path());
  for (const std::string format : {"tar --format=gnu", "tar --format=posix"}) {
    const auto made = run_program(
        {"sh", "-c",
         "cd '" + folder_.path() + "' && LC_ALL=C " + format + " --sort=name --no-recursion -cf a.tar in/*"});
    ASSERT_EQ(made.status, 0) << made.errors;
    Reader reader(archive_);
    EXPECT_EQ(reader.names(),
              (Names{"in/e\xCC\x81", "in/" + std::string(250, 'n'), "in/\xC3\xA9", "in/\xFF"}))
        << format;
  }
}

TEST_F(ArchiveReaderTest, RefusesFormatsThatNoBackupAndNoRepackingHas) {
  Tree{dir("in", {file("a", "text")})}.build(folder_.path());
  for (const std::string format : {"7zip", "ar", "xar", "mtree", "warc"}) {
    const auto made = run_program(
        {"sh", "-c", "cd '" + folder_.path() + "/in' && bsdtar --format=" + format + " -cf ../a.tar a"});
    ASSERT_EQ(made.status, 0) << made.errors;
    EXPECT_EQ(message_of<ArchiveError>([this] { const Reader reader(archive_); }),
              "Archive error: Unrecognized archive format")
        << format;
  }
}

TEST_F(ArchiveReaderTest, RefusesADiskImageForItsZeros) {
  const auto made =
      run_program({"sh", "-c", "cd '" + folder_.path() + "' && bsdtar --format=iso9660 -cf a.tar ."});
  ASSERT_EQ(made.status, 0) << made.errors;
  Reader reader(archive_);
  EXPECT_EQ(message_of<ArchiveError>([&reader] { reader.begin_section({}); }),
            "Archive error: The archive holds nothing but zeros");
}

TEST_F(ArchiveReaderTest, ReadsTheFiltersOfTheLibrary) {
  archive(three_entries().text());
  for (const std::string filter : {"gzip", "bzip2", "xz", "lzma", "zstd", "lz4", "compress"}) {
    const auto made =
        run_program({"sh", "-c", "cd '" + folder_.path() + "' && bsdtar --" + filter + " -Pcf b.tar @a.tar"});
    ASSERT_EQ(made.status, 0) << made.errors;
    EXPECT_EQ(Reader(folder_ / "b.tar").names(), (Names{"/media/a", "/media/b", "/media/c"})) << filter;
  }
}

TEST_F(ArchiveReaderTest, RunsNoProgramThatAnArchiveAsksFor) {
  const std::string mark = folder_ / "mark";
  for (const char* program : {"lrzip", "lzop", "grzip"}) {
    write_file(folder_ / program, "#!/bin/sh\necho \"$0\" >> '" + mark + "'\n");
    ASSERT_EQ(::chmod((folder_ / program).c_str(), 0755), 0);
  }
  EXPECT_TRUE(passes_in_child([&] {
    ASSERT_EQ(::setenv("PATH", folder_.path().c_str(), 1), 0);
    for (const std::string& magic : {std::string("LRZI\0\6", 6), std::string("\x89LZO\0\r\n\x1a\n", 9),
                                     std::string("GRZipII\0\2\4:)", 12)}) {
      EXPECT_EQ(
          message_of<ArchiveError>([&] { const Reader reader(archive(magic + std::string(600, '\0'))); }),
          "Archive error: Unrecognized archive format");
    }
    EXPECT_FALSE(fs::exists(Path(mark))) << read_file(mark);
  }));
}

TEST_F(ArchiveReaderTest, TakesNamesAndTargetsOfUpTo64Kibibytes) {
  const std::size_t longest = std::size_t{64} << 10;
  for (const char kind : {'L', 'K'}) {
    for (const std::size_t size : {longest, longest + 1}) {
      TarBuilder tar;
      tar.add(kind, "././@LongLink", std::string(size, 'n') + std::string(1, '\0'));
      Reader reader(archive(tar.link("/media/x", "y").text()));
      if (size > longest) {
        EXPECT_THROW(static_cast<void>(reader.next_header()), std::runtime_error) << kind;
      } else {
        EXPECT_TRUE(reader.next_header()) << kind;
      }
    }
  }
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
    EXPECT_EQ(entry->is_restorable(), row.restorable) << row.type;
    EXPECT_EQ(entry->is_hard_link(), row.type == TarBuilder::HARD_LINK) << row.type;
    EXPECT_EQ(entry->link_target().has_value(), row.type == TarBuilder::SYMBOLIC_LINK) << row.type;
  }
}

TEST_F(ArchiveReaderTest, ReadsAPipe) {
  EXPECT_TRUE(passes_in_child([] {
    const std::string bytes = three_entries().text();
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    ASSERT_EQ(::write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    ::close(ends[1]);
    ASSERT_EQ(::dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
    Reader reader("");
    EXPECT_EQ(reader.names(), (Names{"/media/a", "/media/b", "/media/c"}));
    EXPECT_FALSE(reader.is_input(fs::File(Path("/"))));
  }));
}

TEST_F(ArchiveReaderTest, SkipsDataOfAnySizeAndNothingForSizeZero) {
  Reader reader(archive(three_entries().text()));
  while (const auto entry = reader.next_header()) {
    const std::int64_t size = entry->size();
    EXPECT_NO_THROW(reader.skip(*entry)) << size;
  }
}

TEST_F(ArchiveReaderTest, AnswersTheEndOnceClosed) {
  Reader reader(archive(three_entries().text()));
  ASSERT_TRUE(reader.next_header());
  reader.close();
  EXPECT_FALSE(reader.next_header());
}

TEST_F(ArchiveReaderTest, TellsWhereAnEntryBegins) {
  Reader reader(archive(three_entries().text()));
  std::vector<std::int64_t> positions;
  while (reader.next_header()) positions.push_back(reader.position());
  EXPECT_EQ(positions, (std::vector<std::int64_t>{0, 1024, 2560}));
}

TEST_F(ArchiveReaderTest, SeesWhatFollowsTheEndMark) {
  const std::string whole = three_entries().text();
  const std::string zeros(300'000, '\0');
  struct Row {
    std::string behind;
    bool is_more;
  };
  for (const Row& row : {Row{"", false}, Row{zeros, false}, Row{"x", true}, Row{zeros + "x", true},
                         Row{whole, true}, Row{zeros.substr(0, 511) + "x" + zeros, true}}) {
    Reader reader(archive(whole + row.behind));
    EXPECT_FALSE(reader.has_more_behind_end()) << "asked before the end";
    EXPECT_EQ(reader.names().size(), 3U);
    EXPECT_EQ(reader.has_more_behind_end(), row.is_more) << row.behind.size();
  }
}

TEST_F(ArchiveReaderTest, SeesThatItsFileGrows) {
  Reader reader(archive(three_entries().text()));
  EXPECT_FALSE(reader.input().has_changed());
  write_file(archive_, three_entries().text() + "x");
  EXPECT_TRUE(reader.input().has_changed());
}

TEST_F(ArchiveReaderTest, KnowsItsOwnFile) {
  const Reader reader(archive(three_entries().text()));
  write_file(folder_ / "other", "");
  ASSERT_EQ(::link(archive_.c_str(), (folder_ / "hard").c_str()), 0);
  EXPECT_TRUE(reader.is_input(fs::File(Path(archive_))));
  EXPECT_TRUE(reader.is_input(fs::File(Path(folder_ / "hard"))));
  EXPECT_FALSE(reader.is_input(fs::File(Path(folder_ / "other"))));
}

}  // namespace
}  // namespace harbix::test
