#include "archive/writer.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/error.h"
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
using harbix::ArchiveError;
using harbix::Source;

const std::string END_MARK(2 * RECORD, '\0');

class ArchiveWriterTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string content() const { return read_file(archive_); }

  /// Archives what `tree` describes, each top-level item below "/media".
  void archive(const Tree& tree) {
    ::mkdir((folder_ / "in").c_str(), 0755);
    tree.build(folder_ / "in");
    Writer writer(archive_);
    for (const TreeItem& item : tree.items()) {
      writer.add(folder_ / ("in/" + item.name), "/media/" + item.name);
    }
    writer.close();
  }

  TemporaryFolder folder_;
  fs::Folder root_{Path(folder_.path())};
  std::string archive_ = folder_ / "a.tar";
  Utf8Names names_;
};

TEST_F(ArchiveWriterTest, WritesRecordsOf512BytesAndTheEndMarkAndNothingMore) {
  struct Row {
    std::size_t size, records;
  };
  for (const Row& row : {Row{0, 1}, Row{1, 2}, Row{511, 2}, Row{512, 2}, Row{513, 3}, Row{32768, 65},
                         Row{32769, 66}, Row{100000, 197}}) {
    write_file(folder_ / "f", std::string(row.size, 'x'));
    Writer writer(archive_);
    writer.add(folder_ / "f", "/media/f");
    writer.close();
    const std::string bytes = content();
    EXPECT_EQ(bytes.size(), row.records * RECORD + END_MARK.size()) << row.size;
    EXPECT_EQ(bytes.substr(row.records * RECORD), END_MARK) << row.size;
    EXPECT_EQ(bytes.substr(RECORD, row.size), std::string(row.size, 'x')) << row.size;
    EXPECT_EQ(writer.compressed_position(), static_cast<std::int64_t>(bytes.size())) << row.size;
  }
}

TEST_F(ArchiveWriterTest, OfNothingIsTheEndMarkAlone) {
  Writer writer(archive_);
  writer.close();
  EXPECT_EQ(content(), END_MARK);
  EXPECT_EQ(writer.compressed_position(), 1024);
}

TEST_F(ArchiveWriterTest, IsReadBackWholeByOtherTars) {
  const Tree tree{
      file("f", "text\n", 0640).owned_by(4001, 4002), link("l", "f"),
      link("long_link", std::string(300, 't')),       dir("d", {}, 0751),
      file(std::string(200, 'n'), "long name"),       file("large", std::string(70000, 'x'), 0600)};
  archive(tree);
  ASSERT_EQ(::mkdir((folder_ / "tar").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((folder_ / "bsdtar").c_str(), 0755), 0);
  const auto gnu = run_program({"tar", "-xpPf", archive_, "--same-owner", "--numeric-owner",
                                "--transform=s,^/media,.,", "-C", folder_ / "tar"});
  EXPECT_EQ(gnu.status, 0) << gnu.errors;
  EXPECT_EQ(gnu.errors, "");
  EXPECT_TRUE(tree.matches(folder_ / "tar"));
  const auto bsd =
      run_program({"bsdtar", "-xpf", archive_, "--numeric-owner", "-s,^/media,.,", "-C", folder_ / "bsdtar"});
  EXPECT_EQ(bsd.status, 0) << bsd.errors;
  EXPECT_TRUE(tree.matches(folder_ / "bsdtar"));
}

TEST_F(ArchiveWriterTest, IsListedWithTypeModeOwnerAndSize) {
  archive(Tree{file("f", "12345", 0640).owned_by(4001, 4002), dir("d", {}, 0750).owned_by(1, 2)});
  const auto listing = run_program({"tar", "-tvPf", archive_, "--numeric-owner"});
  EXPECT_EQ(listing.status, 0);
  EXPECT_EQ(listing.errors, "");
  EXPECT_TRUE(listing.output.starts_with("-rw-r----- 4001/4002 ")) << listing.output;
  EXPECT_NE(std::string::npos, listing.output.find(" 5 ")) << listing.output;
  EXPECT_NE(std::string::npos, listing.output.find(" /media/f\ndrwxr-x--- 1/2 ")) << listing.output;
  EXPECT_TRUE(listing.output.ends_with(" /media/d/\n")) << listing.output;
}

TEST_F(ArchiveWriterTest, StoresNamesByteForByte) {
  const std::vector<std::string> odd{"\xC3\xA9",             // composed
                                     "e\xCC\x81",            // the same to the eye, decomposed
                                     "\xFF\xFE",             // not UTF-8
                                     "caf\xE9 \xC3\xA9",     // both
                                     std::string(255, 'n'),  // the longest name of one component
                                     " blanks ",
                                     "a\nb",
                                     "a:",
                                     "\\",
                                     "'\"*?[",
                                     "-r"};
  std::vector<std::string> expected;
  {
    Writer writer(archive_);
    for (const std::string& name : odd) {
      write_file(folder_ / name, name);
      writer.add(folder_ / name, "/media/" + name);
      expected.push_back("/media/" + name);
    }
    // Longer than any ustar field: 4 components of 200 characters.
    std::string deep = "/media";
    for (int depth = 0; depth < 4; ++depth) deep += "/" + std::string(200, 'd');
    writer.add(folder_ / "\xFF\xFE", deep);
    expected.push_back(deep);
    writer.close();
  }
  EXPECT_TRUE(passes_in_child([&] {
    ASSERT_NE(std::setlocale(LC_ALL, "C"), nullptr);
    Reader reader(archive_);
    EXPECT_EQ(reader.names(), expected);
  }));
  const auto listing = run_program({"tar", "-tPf", archive_, "--quoting-style=literal"});
  std::string lines;
  for (const std::string& name : expected) lines += name + "\n";
  EXPECT_EQ(listing.output, lines);
}

TEST_F(ArchiveWriterTest, TakesAWarningOfTheLibraryForAWholeEntry) {
  write_file(folder_ / "\xFF", "text");
  write_file(folder_ / "next", "more");
  const RecordedLog log(4);
  const CapturedOutput errors(STDERR_FILENO);
  Writer writer(archive_);
  writer.add(folder_ / "\xFF", "/media/\xFF");
  writer.add(folder_ / "next", "/media/next");
  writer.close();
  EXPECT_EQ(errors.text(), "");
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_TRUE(log.messages()[0].starts_with("6 Archive header: Can't translate pathname"))
      << log.messages()[0];
  Reader reader(archive_);
  std::setlocale(LC_CTYPE, "C");
  EXPECT_EQ(reader.names(), (std::vector<std::string>{"/media/\xFF", "/media/next"}));
}

TEST_F(ArchiveWriterTest, StoresLinkTargetsByteForByte) {
  const Tree tree{link("latin", "caf\xE9"), link("decomposed", "e\xCC\x81"),
                  link("long", std::string(4095, 't')), link("blank", " "), link("slash", "d/")};
  archive(tree);
  std::setlocale(LC_CTYPE, "C");
  Reader reader(archive_);
  for (const TreeItem& item : tree.items()) {
    const auto entry = reader.next_header();
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->link_target(), item.text) << item.name;
  }
}

TEST_F(ArchiveWriterTest, NeverReadsTheContentsOfFoldersAndLinks) {
  archive(Tree{dir("d", {file("inside", "text")}), link("l", "d/inside")});
  EXPECT_EQ(content().size(), 2 * RECORD + END_MARK.size());
}

TEST_F(ArchiveWriterTest, StoresTheTimeOfTheLastChange) {
  write_file(folder_ / "f", "");
  const std::array<struct ::timespec, 2> times{
      {{.tv_sec = 1000000000, .tv_nsec = 0}, {.tv_sec = 1234567890, .tv_nsec = 0}}};
  ASSERT_EQ(::utimensat(AT_FDCWD, (folder_ / "f").c_str(), times.data(), 0), 0);
  Writer writer(archive_);
  writer.add(folder_ / "f", "/media/f");
  writer.close();
  Reader reader(archive_);
  const auto entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->destination(Path("f")).record().st_mtim.tv_sec, 1234567890);
}

/// A file whose size changes after it was opened; the entry behind it must stay readable.
class ChangingFile : public ArchiveWriterTest {
 protected:
  /// Archives "f", whose content changes from `before` to `after` in between, and "next"; returns the
  /// messages.
  std::vector<std::string> archive_changing(const std::string& before, const std::string& after) {
    const RecordedLog log;
    const CapturedOutput errors(STDERR_FILENO);
    write_file(folder_ / "f", before);
    write_file(folder_ / "next", "behind");
    Writer writer(archive_);
    const Source source = harbix::open_source(root_, Path(folder_ / "f"));
    write_file(folder_ / "f", after);
    writer.write(source, Path("/media/f"));
    writer.add(folder_ / "next", "/media/next");
    writer.close();
    std::vector<std::string> messages = log.messages();
    messages.push_back(errors.text());
    return messages;
  }

  /// The data of the two entries.
  [[nodiscard]] std::vector<std::string> stored() const {
    std::vector<std::string> data;
    Reader reader(archive_);
    while (reader.next_header()) data.push_back(reader.data());
    return data;
  }

  [[nodiscard]] std::vector<std::string> messages(const char* what) const {
    const std::string text = "File '" + (folder_ / "f") + "' " + what + " while it was archived";
    return {"3 " + text, "Warning: " + text + "\n"};
  }
};

TEST_F(ChangingFile, ThatGrewKeepsTheSizeOfItsHeader) {
  struct Row {
    std::size_t before, after;
  };
  for (const Row& row : {Row{0, 1}, Row{5, 6}, Row{512, 1024}, Row{32768, 32769}, Row{40000, 100000}}) {
    EXPECT_EQ(archive_changing(std::string(row.before, 'x'), std::string(row.after, 'x')), messages("grew"))
        << row.before << " to " << row.after;
    EXPECT_EQ(stored(), (std::vector<std::string>{std::string(row.before, 'x'), "behind"}))
        << row.before << " to " << row.after;
  }
}

TEST_F(ChangingFile, ThatShrankIsFilledUpWithZeros) {
  struct Row {
    std::size_t before, after;
  };
  for (const Row& row : {Row{1, 0}, Row{6, 5}, Row{1024, 512}, Row{32769, 32768}, Row{100000, 40000}}) {
    EXPECT_EQ(archive_changing(std::string(row.before, 'x'), std::string(row.after, 'x')), messages("shrank"))
        << row.before << " to " << row.after;
    EXPECT_EQ(stored(),
              (std::vector<std::string>{
                  std::string(row.after, 'x') + std::string(row.before - row.after, '\0'), "behind"}))
        << row.before << " to " << row.after;
  }
}

TEST_F(ChangingFile, ThatKeptItsSizeIsToldOfByNobody) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{5}, std::size_t{32768}, std::size_t{65536}}) {
    EXPECT_EQ(archive_changing(std::string(size, 'x'), std::string(size, 'y')),
              (std::vector<std::string>{""}))
        << size;
    EXPECT_EQ(stored(), (std::vector<std::string>{std::string(size, 'y'), "behind"})) << size;
  }
}

TEST_F(ChangingFile, ThatVanishedAfterItWasOpenedIsStoredWhole) {
  write_file(folder_ / "f", "text");
  Writer writer(archive_);
  const Source source = harbix::open_source(root_, Path(folder_ / "f"));
  ASSERT_EQ(::unlink((folder_ / "f").c_str()), 0);
  writer.write(source, Path("/media/f"));
  writer.close();
  EXPECT_EQ(stored(), (std::vector<std::string>{"text"}));
}

TEST_F(ArchiveWriterTest, StoresSizesBeyondTheOctalField) {
  EXPECT_TRUE(passes_in_child([this] {
    // The header is looked at; of the data, only what the limit lets through is written.
    ASSERT_NE(std::signal(SIGXFSZ, SIG_IGN), SIG_ERR);
    const struct ::rlimit limit { .rlim_cur = 1 << 20, .rlim_max = 1 << 20 };
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    struct ::stat record {};
    record.st_mode = S_IFREG | 0644;
    record.st_size = (off_t{8} << 30) + 1;
    Writer writer(archive_);
    const Source source{.file = fs::File(Path("huge"), record), .contents = {}, .link_target = {}};
    EXPECT_EQ(message_of<ArchiveError>([&] { writer.write(source, Path("/media/huge")); }),
              "Archive error: Write error: File too large");
  }));
  Reader reader(archive_);
  const auto entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->name()->text(), "/media/huge");
  EXPECT_EQ(entry->size(), (std::int64_t{8} << 30) + 1);
}

TEST_F(ArchiveWriterTest, ThrowsWhereTheDiskIsFullInTheMiddle) {
  write_file(folder_ / "f", std::string(std::size_t{2} << 20, 'x'));
  Writer writer("/dev/full");
  EXPECT_EQ(message_of<ArchiveError>([&] { writer.add(folder_ / "f", "/media/f"); }),
            "Archive error: Write error: No space left on device(28)");
  EXPECT_EQ(message_of<ArchiveError>([&] { writer.close(); }),
            "Archive error: Write error: No space left on device");
}

TEST_F(ArchiveWriterTest, ThrowsWhereTheDiskIsFullAtTheVeryEnd) {
  write_file(folder_ / "f", "text");
  Writer writer("/dev/full");
  writer.add(folder_ / "f", "/media/f");
  EXPECT_EQ(message_of<ArchiveError>([&] { writer.close(); }),
            "Archive error: Write error: No space left on device");
}

TEST_F(ArchiveWriterTest, TellsWhyTheArchiveCannotBeCreated) {
  EXPECT_EQ(message_of<ArchiveError>([] { const Writer writer("/nonexistent/a.tar"); }),
            "Archive error: Failed to open '/nonexistent/a.tar': No such file or directory");
}

TEST_F(ArchiveWriterTest, WritesToStandardOutputForAnEmptyName) {
  const CapturedOutput output(STDOUT_FILENO);
  Writer writer("");
  writer.close();
  EXPECT_EQ(output.text(), END_MARK);
}

TEST_F(ArchiveWriterTest, RefusesAnObjectThatTarCannotHoldAloneAndGoesOn) {
  write_file(folder_ / "f", "text");
  struct ::stat record {};
  record.st_mode = S_IFSOCK | 0644;
  Writer writer(archive_);
  const Source socket{.file = fs::File(Path("socket"), record), .contents = {}, .link_target = {}};
  EXPECT_EQ(message_of<std::runtime_error>([&] {
              try {
                writer.write(socket, Path("/media/socket"));
              } catch (const ArchiveError& error) {
                ADD_FAILURE() << "taken for the end of the archive: " << error.what();
              }
            }),
            "Archive error: /media/socket: pax format cannot archive sockets");
  writer.add(folder_ / "f", "/media/f");
  writer.close();
  Reader reader(archive_);
  EXPECT_EQ(reader.names(), (std::vector<std::string>{"/media/f"}));
}

TEST_F(ArchiveWriterTest, KnowsItsOwnFile) {
  const Writer writer(archive_);
  write_file(folder_ / "other", "");
  ASSERT_EQ(::link(archive_.c_str(), (folder_ / "hard").c_str()), 0);
  EXPECT_TRUE(writer.is_output(fs::File(Path(archive_))));
  EXPECT_TRUE(writer.is_output(fs::File(Path(folder_ / "hard"))));
  EXPECT_FALSE(writer.is_output(fs::File(Path(folder_ / "other"))));
  EXPECT_FALSE(writer.is_output(fs::File(Path(folder_.path()))));
}

TEST_F(ArchiveWriterTest, IsNoItemWhenItIsADevice) {
  const Writer writer("/dev/null");
  EXPECT_FALSE(writer.is_output(fs::File(Path("/dev/null"))));
}

TEST_F(ArchiveWriterTest, StoresATextAsAPlainFile) {
  struct ::stat record {};
  record.st_mode = S_IFREG | 0700;
  record.st_size = 4;
  Writer writer(archive_);
  writer.write_text(Path("/media/.backup.metadata"), record, "text");
  writer.close();
  Reader reader(archive_);
  const auto entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->name()->text(), "/media/.backup.metadata");
  EXPECT_EQ(entry->destination(Path("x")).record().st_mode, S_IFREG | 0700U);
  EXPECT_EQ(reader.data(), "text");
}

}  // namespace
}  // namespace harbix::test
