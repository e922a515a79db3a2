#include "archive/package_writer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/error.h"
#include "archive/file_record.h"
#include "archive/metadata_entry.h"
#include "fs/identity.h"
#include "tests/support/archive.h"
#include "tests/support/captured_output.h"
#include "tests/support/folder.h"
#include "tests/support/program.h"
#include "tests/support/recorded_log.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::File;
using fs::Path;
using harbix::PackageBounds;
using harbix::PackageStyle;
using harbix::PackageWriter;
using Texts = std::vector<std::string>;

constexpr PackageStyle STYLE{
    .record = harbix::plain_record, .announce = harbix::announce_with_name, .write = harbix::write_object};

class PackageWriterTest : public ::testing::Test {
 protected:
  File item(const Path& relative) {
    const File found = folder_.file(relative);
    return {relative, found.record()};
  }
  std::unique_ptr<PackageWriter> package_of(const std::vector<Path>& paths) {
    auto package = std::make_unique<PackageWriter>(writer_, folder_, STYLE);
    for (const Path& path : paths) package->add(item(path));
    return package;
  }
  Texts stored_names() {
    writer_.close();
    return Reader(archive_).names();
  }

  TemporaryFolder temporary_;
  TemporaryFolder archives_;
  fs::Folder folder_{Path(temporary_.path())};
  std::string archive_ = archives_ / "a.tar";
  Writer writer_{archive_};
};

TEST_F(PackageWriterTest, TakesPlainFilesFoldersAndLinks) {
  Tree{file("f"), file("secret", "", 0000), dir("d"), link("l", "nowhere"), link("to_fifo", "p"), fifo("p")}
      .build(temporary_.path());
  const RecordedLog log;
  const CapturedOutput errors(STDERR_FILENO);
  PackageWriter package(writer_, folder_, STYLE);
  for (const char* name : {"f", "secret", "d", "l", "to_fifo"}) EXPECT_TRUE(package.add(item(name))) << name;
  EXPECT_EQ(package.items().size(), 5U);
  EXPECT_EQ(errors.text(), "");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(PackageWriterTest, LeavesOutWhatNoArchiveHoldsWithItsRecord) {
  Tree{fifo("p")}.build(temporary_.path());
  const RecordedLog log;
  const CapturedOutput errors(STDERR_FILENO);
  PackageWriter package(writer_, folder_, STYLE);
  EXPECT_FALSE(package.add(item("p")));
  EXPECT_FALSE(package.add(File(Path("/dev/null"))));
  EXPECT_TRUE(package.items().empty());
  EXPECT_EQ(errors.text(),
            "not a file, folder or link: p skipping\nnot a file, folder or link: /dev/null skipping\n");
  EXPECT_EQ(log.messages(), (Texts{"3 not a file, folder or link: 'p'; skipping.",
                                   "3 not a file, folder or link: '/dev/null'; skipping."}));
}

TEST_F(PackageWriterTest, LeavesOutWhatItsManifestHasNoRoomFor) {
  Tree{file("a"), file("b"), file("with a long name"), file("c")}.build(temporary_.path());
  struct Row {
    PackageBounds bounds;
    Texts taken;
  };
  const std::size_t text = std::string("File: 0\na\n").size();
  for (const Row& row : {Row{{.items = 2}, {"a", "b"}}, Row{{.record_text = 2 * text}, {"a", "b"}},
                         Row{{.record_text = 3 * text}, {"a", "b", "c"}}}) {
    const RecordedLog log;
    const CapturedOutput errors(STDERR_FILENO);
    PackageWriter package(writer_, folder_, STYLE, row.bounds);
    std::string left_out;
    for (const char* name : {"a", "b", "with a long name", "c"}) {
      const bool is_taken = std::ranges::find(row.taken, name) != row.taken.end();
      EXPECT_EQ(package.add(item(name)), is_taken) << name;
      if (!is_taken) left_out += "the manifest is full: " + std::string(name) + " skipping\n";
    }
    EXPECT_EQ(errors.text(), left_out);
    EXPECT_EQ(package.items().size(), row.taken.size());
    EXPECT_EQ(log.lines().size(), 4 - row.taken.size());
  }
}

TEST_F(PackageWriterTest, NeverTakesTheArchiveItselfUnderAnyName) {
  ASSERT_EQ(::link(archive_.c_str(), (temporary_ / "other_name").c_str()), 0);
  const RecordedLog log;
  const CapturedOutput errors(STDERR_FILENO);
  PackageWriter package(writer_, folder_, STYLE);
  EXPECT_FALSE(package.add(item("other_name")));
  EXPECT_EQ(errors.text(), "is the archive itself: other_name skipping\n");
  EXPECT_EQ(log.messages(), (Texts{"3 is the archive itself: 'other_name'; skipping."}));
}

TEST_F(PackageWriterTest, AddsUpWhatFilesAndLinksTake) {
  Tree{file("f", "12345"), link("l", "abc")}.build(temporary_.path());
  EXPECT_EQ(package_of({"f", "l"})->bytes(), 8);
}

TEST_F(PackageWriterTest, KeepsARecordOfWhatDoesNotExist) {
  const RecordedLog log(0);
  const CapturedOutput errors(STDERR_FILENO);
  PackageWriter package(writer_, folder_,
                        {.record = harbix::status_record,
                         .announce = harbix::announce_with_name,
                         .write = harbix::write_object,
                         .error_prefix = ""});
  const Path gone(temporary_ / "gone");
  package.add_missing(gone);
  EXPECT_EQ(package.estimate().files, 1);
  EXPECT_EQ(package.bytes(), 0);
  package.store("/app/x/appdata", Path(temporary_.path()));
  writer_.close();
  Reader reader(archive_);
  const auto found = harbix::find_manifest(reader, METADATA_NAME, harbix::OtherEntries::REFUSE);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->manifest, (meta::Manifest{{"File", "0 0 0 0 0 " + gone.text()}}));
  EXPECT_TRUE(reader.names().empty());
  EXPECT_EQ(errors.text(), "Error opening: " + gone.text() + ": No such file or directory\n");
  EXPECT_EQ(log.messages(),
            (Texts{"2 ERROR: Error opening: " + gone.text() + ": No such file or directory"}));
}

TEST_F(PackageWriterTest, EstimatesContentsInWholeRecords) {
  struct Row {
    std::size_t size;
    std::int64_t bytes;
  };
  for (const Row& row : {Row{0, 512}, Row{1, 1024}, Row{512, 1024}, Row{513, 1536}, Row{1024, 1536}}) {
    write_file(temporary_ / "f", std::string(row.size, 'x'));
    const harbix::SizeResult estimate = package_of({"f"})->estimate();
    // Its manifest's header and text, which fits into one record.
    EXPECT_EQ(estimate.bytes, 1024 + row.bytes) << row.size;
    EXPECT_EQ(estimate.files, 1) << row.size;
  }
}

TEST_F(PackageWriterTest, EstimatesLinksAndFoldersWithoutContents) {
  Tree{dir("d", {link("l", std::string(1000, 't')), dir("e")})}.build(temporary_.path());
  EXPECT_EQ(package_of({"d", "d/l", "d/e"})->estimate().bytes, 1024 + 3 * 512);
}

TEST_F(PackageWriterTest, EstimatesTheManifestInWholeRecords) {
  // A hundred records of "File: 1\nd/NNN\n", 14 bytes each, and the empty line at the end.
  std::vector<Path> paths;
  Tree{dir("d")}.build(temporary_.path());
  for (int i = 100; i < 200; ++i) {
    paths.push_back(Path("d/" + std::to_string(i)));
    write_file(temporary_ / paths.back().text(), "x");
  }
  EXPECT_EQ(package_of(paths)->estimate().bytes, 512 + 1536 + 100 * 1024);
}

TEST_F(PackageWriterTest, EstimatesWhatTheArchiveTakesLessItsEndMark) {
  Tree{dir("d", {file("a", std::string(700, 'x')), link("l", "a"), dir("e", {file("b")})})}.build(
      temporary_.path());
  const auto package = package_of({"d", "d/a", "d/l", "d/e", "d/e/b"});
  const std::int64_t estimate = package->estimate().bytes;
  package->store("/dtm/d", "d");
  writer_.close();
  EXPECT_EQ(writer_.compressed_position(), estimate + 1024);
}

TEST_F(PackageWriterTest, StoresTheManifestBeforeTheItems) {
  Tree{dir("Music", {file("a.mp3", "text")})}.build(temporary_.path());
  const RecordedLog log(3);
  package_of({"Music", "Music/a.mp3"})->store("/media/Music", "Music", {{"Key", "value"}});
  EXPECT_EQ(log.messages(), (Texts{"5 Storing manifest to '/media/Music'", "5 Archive: Music to /media/Music",
                                   "5 Archive: Music/a.mp3 to /media/Music/a.mp3"}));
  writer_.close();
  Reader reader(archive_);
  const auto found = harbix::find_manifest(reader, harbix::METADATA_NAME, harbix::OtherEntries::REFUSE);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->entry_name, "/media/Music/.backup.metadata");
  EXPECT_EQ(meta::look_up(found->manifest, "Key"), "value");
  EXPECT_EQ(harbix::read_file_records(found->manifest).size(), 2U);
  EXPECT_EQ(reader.names(), (Texts{"/media/Music", "/media/Music/a.mp3"}));
}

TEST_F(PackageWriterTest, NamesEntriesByTheirPathBelowTheBase) {
  Tree{dir("app", {file("f"), dir("lib", {file("g")})})}.build(temporary_.path());
  const Path base(temporary_ / "app");
  PackageWriter package(writer_, folder_, STYLE);
  for (const char* name : {"app/f", "app/lib/g"}) package.add(folder_.file(name));
  package.store("/app/x/bin", base);
  EXPECT_EQ(stored_names(), (Texts{"/app/x/bin/.backup.metadata", "/app/x/bin/f", "/app/x/bin/lib/g"}));
}

TEST_F(PackageWriterTest, LeavesOutWhatWouldTakeTheNameOfItsManifest) {
  Tree{file(".backup.metadata", "mine"), file("a"), dir("d", {file(".backup.metadata", "mine")})}.build(
      temporary_.path());
  const RecordedLog log(1);
  const CapturedOutput errors(STDERR_FILENO);
  const auto package = package_of({".backup.metadata", "a", "d/.backup.metadata"});
  package->store("/media/x", "");
  EXPECT_EQ(stored_names(),
            (Texts{"/media/x/.backup.metadata", "/media/x/a", "/media/x/d/.backup.metadata"}));
  EXPECT_EQ(errors.text(), "has the name of a manifest: .backup.metadata skipping\n");
  EXPECT_EQ(log.messages(), (Texts{"3 has the name of a manifest: '.backup.metadata'; skipping."}));
  Reader reader(archive_);
  const auto found = harbix::find_manifest(reader, METADATA_NAME, harbix::OtherEntries::REFUSE);
  ASSERT_TRUE(found);
  EXPECT_EQ(harbix::read_file_records(found->manifest).size(), 2U);
}

TEST_F(PackageWriterTest, GoesOnBehindAnItemThatVanished) {
  Tree{file("a"), file("b"), file("c")}.build(temporary_.path());
  const RecordedLog log(0);
  const CapturedOutput errors(STDERR_FILENO);
  const auto package = package_of({"a", "b", "c"});
  std::filesystem::remove(temporary_ / "b");
  package->store("/media/x", "");
  EXPECT_EQ(stored_names(), (Texts{"/media/x/.backup.metadata", "/media/x/a", "/media/x/c"}));
  EXPECT_EQ(errors.text(), "Error: Error opening: b: No such file or directory\n");
  EXPECT_EQ(log.messages(), (Texts{"2 ERROR: Error opening: b: No such file or directory"}));
}

TEST_F(PackageWriterTest, ArchivesNothingElseThatTookAnItemsPlace) {
  Tree{dir("mine", {file("a", "mine")}), dir("last", {file("b", "mine")}), file("c", "mine"), dir("d"),
       dir("others", {file("a", "secret")})}
      .build(temporary_.path());
  const CapturedOutput errors(STDERR_FILENO);
  const auto package = package_of({"mine/a", "c", "d", "last/b"});
  // A folder on the way becomes a link, a file a link or another file, and a folder another one.
  std::filesystem::rename(temporary_ / "mine", temporary_ / "away");
  std::filesystem::create_symlink("others", temporary_ / "mine");
  std::filesystem::rename(temporary_ / "last/b", temporary_ / "away/b");
  std::filesystem::create_hard_link(temporary_ / "others/a", temporary_ / "last/b");
  std::filesystem::rename(temporary_ / "c", temporary_ / "away/c");
  std::filesystem::create_symlink("others/a", temporary_ / "c");
  std::filesystem::rename(temporary_ / "d", temporary_ / "away/d");
  std::filesystem::rename(temporary_ / "others", temporary_ / "d");
  package->store("/media/x", "");
  EXPECT_EQ(stored_names(), (Texts{"/media/x/.backup.metadata"}));
  EXPECT_EQ(errors.text(),
            "Error: Error opening: mine/a: Not a directory\n"
            "Error: Error opening: c: another object took its place\n"
            "Error: Error opening: d: another object took its place\n"
            "Error: Error opening: last/b: another object took its place\n");
}

TEST_F(PackageWriterTest, EndsWhereTheArchiveCannotBeWrittenAnyFurther) {
  write_file(temporary_ / "large", std::string(std::size_t{2} << 20, 'x'));
  Tree{file("b")}.build(temporary_.path());
  const RecordedLog log;
  Writer writer("/dev/full");
  PackageWriter package(writer, folder_, STYLE);
  for (const char* name : {"large", "b"}) package.add(item(name));
  EXPECT_EQ(message_of<harbix::ArchiveError>([&] { package.store("/media/x", ""); }),
            "Archive error: Write error: No space left on device(28)");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(PackageWriterTest, EndsWhereAnIdentityIsLost) {
  Tree{file("a"), file("b")}.build(temporary_.path());
  PackageWriter package(writer_, folder_,
                        {.record = harbix::plain_record,
                         .announce = harbix::announce_with_name,
                         .write = [](harbix::ArchiveWriter&, fs::Folder&, const File&, const Path&) {
                           throw fs::IdentityError("Could not set effective uid: x");
                         }});
  package.add(item("a"));
  EXPECT_THROW(package.store("/media/x", ""), fs::IdentityError);
}

}  // namespace
}  // namespace harbix::test
