#include "archive/metadata_entry.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/error.h"
#include "archive/extraction.h"
#include "base/file_descriptor.h"
#include "base/flags.h"
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
using harbix::find_manifest;
using harbix::METADATA_NAME;
using harbix::OtherEntries;

class MetadataEntry : public ::testing::Test {
 protected:
  void TearDown() override { harbix::verbose = false; }

  std::string archive(const std::string& bytes) {
    write_file(archive_, bytes);
    return archive_;
  }

  TemporaryFolder folder_;
  std::string archive_ = folder_ / "a.tar";
};

TEST_F(MetadataEntry, IsAPlainFileOfTheManifestsText) {
  const meta::Manifest manifest{{"Package", "x"}, {"Dir", "a/b"}};
  const RecordedLog log(3);
  const std::time_t before = std::time(nullptr);
  Writer writer(archive_);
  harbix::store_manifest(writer, Path("/media/Music"), METADATA_NAME, manifest);
  writer.close();
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"5 Storing manifest to '/media/Music'"}));

  Reader reader(archive_);
  const auto entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->name()->text(), "/media/Music/.backup.metadata");
  const fs::File stored = entry->destination(Path("x"));
  const struct ::stat& record = stored.record();
  EXPECT_EQ(record.st_mode, 0100700U);
  EXPECT_EQ(record.st_uid, 0U);
  EXPECT_EQ(record.st_gid, 0U);
  EXPECT_LE(before, record.st_mtim.tv_sec);
  EXPECT_GE(std::time(nullptr), record.st_mtim.tv_sec);
  EXPECT_EQ(reader.data(), "Package: x\nDir: a/b\n\n");
}

TEST_F(MetadataEntry, JoinsItsNameByTheRuleOfPaths) {
  struct Row {
    const char *directory, *name;
  };
  for (const Row& row : {Row{"/settings/", "/settings/.backup.metadata"}, Row{"", "/.backup.metadata"},
                         Row{"a", "a/.backup.metadata"}}) {
    Writer writer(archive_);
    harbix::store_manifest(writer, Path(row.directory), METADATA_NAME, {});
    writer.close();
    Reader reader(archive_);
    EXPECT_EQ(reader.names(), (std::vector<std::string>{row.name})) << row.directory;
  }
}

TEST_F(MetadataEntry, ThatCannotBeWrittenEndsTheArchive) {
  Writer writer("/dev/full");
  EXPECT_EQ(message_of<harbix::ArchiveError>([&] {
              harbix::store_manifest(writer, Path("/m"), METADATA_NAME,
                                     {{"A", std::string(std::size_t{2} << 20, 'x')}});
            }),
            "Archive error: Write error: No space left on device(28)");
}

TEST_F(MetadataEntry, IsFoundWithItsManifest) {
  Reader reader(
      archive(TarBuilder().file("/media/x/.backup.metadata", "Package: x\n\n").file("/m/x/a", "1").text()));
  const auto package = find_manifest(reader, METADATA_NAME, OtherEntries::REFUSE);
  ASSERT_TRUE(package);
  EXPECT_EQ(package->entry_name, "/media/x/.backup.metadata");
  EXPECT_EQ(package->manifest, (meta::Manifest{{"Package", "x"}}));
}

TEST_F(MetadataEntry, IsLookedForBehindOtherEntriesWhereThoseAreSkipped) {
  const std::string bytes = TarBuilder()
                                .file("/m/a", std::string(3000, 'x'))
                                .folder("/m/d")
                                .file("/media/x/.backup.metadata", "A: 1\n")
                                .file("/media/y/.backup.metadata", "A: 2\n")
                                .text();
  Reader reader(archive(bytes));
  auto package = find_manifest(reader, METADATA_NAME, OtherEntries::SKIP);
  ASSERT_TRUE(package);
  EXPECT_EQ(package->entry_name, "/media/x/.backup.metadata");
  package = find_manifest(reader, METADATA_NAME, OtherEntries::SKIP);
  ASSERT_TRUE(package);
  EXPECT_EQ(meta::look_up(package->manifest, "A"), "2");
  EXPECT_FALSE(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP));
}

TEST_F(MetadataEntry, OfAnotherNameIsRefusedWithItsPath) {
  for (const char* name :
       {"/m/a", "/m/.backup.metadata", "/media/m/.backup.metadatax", "/.backup.metadata/x"}) {
    Reader reader(archive(TarBuilder().file(name, "A: 1\n").text()));
    EXPECT_EQ(message_of<std::runtime_error>(
                  [&] { static_cast<void>(find_manifest(reader, METADATA_NAME, OtherEntries::REFUSE)); }),
              std::string("Not meta file: ") + name);
  }
}

TEST_F(MetadataEntry, WithoutAFolderIsAnError) {
  for (const char* name : {".backup.metadata", "a"}) {
    Reader reader(archive(TarBuilder().file(name, "A: 1\n").text()));
    EXPECT_EQ(message_of<std::runtime_error>(
                  [&] { static_cast<void>(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP)); }),
              "Error pathname")
        << name;
  }
}

TEST_F(MetadataEntry, NowhereInTheArchiveIsNoError) {
  const CapturedOutput errors(STDERR_FILENO);
  for (const bool verbose : {false, true}) {
    harbix::verbose = verbose;
    Reader reader(archive(TarBuilder().file("/m/a", "text").text()));
    EXPECT_FALSE(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP));
  }
  EXPECT_EQ(errors.text(), "EOF reached\n");
}

TEST_F(MetadataEntry, SearchEndsInDamageWithTheReason) {
  Reader reader(archive(TarBuilder().file("/m/a", "text").truncated_text()));
  const auto search = [&reader] {
    static_cast<void>(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP));
  };
  EXPECT_EQ(message_of<std::runtime_error>(search),
            "Failed to read archive header Truncated archive: the end mark is missing");
  // What was wrong before the search begins is reported in other words.
  EXPECT_EQ(message_of<std::runtime_error>(search),
            "Archive not ARCHIVE_OK Truncated archive: the end mark is missing");
}

TEST_F(MetadataEntry, SearchNamesDamageInTheSameWordsWhenItWasMetAheadOfItsTurn) {
  Reader reader(archive(TarBuilder().add('L', "././@LongLink", "name").truncated_text()));
  reader.begin_section({});
  EXPECT_EQ(message_of<std::runtime_error>(
                [&] { static_cast<void>(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP)); }),
            "Failed to read archive header Damaged tar archive");
}

TEST_F(MetadataEntry, CutInItsTextIsNoManifest) {
  const std::string text = "A: 1\nB: 2\n" + std::string(5000, '\n');
  Reader reader(archive(
      TarBuilder().file("/media/m/.backup.metadata", text).truncated_text().substr(0, std::size_t{2} * 512)));
  EXPECT_EQ(message_of<std::runtime_error>(
                [&] { static_cast<void>(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP)); }),
            "Archive not ARCHIVE_OK Truncated tar archive");
}

TEST_F(MetadataEntry, IsFoundBehindAnEntryThatCouldNotBeExtracted) {
  Reader reader(
      archive(TarBuilder().file("../x", "evil").file("/media/m/.backup.metadata", "A: 1\n").text()));
  const CapturedOutput errors(STDERR_FILENO);
  const auto entry = reader.next_header();
  ASSERT_TRUE(entry);
  harbix::Completeness completeness;
  harbix::Extraction(reader, {.user = 0, .group = 0}, Path(folder_.path()), harbix::Keep::NO, completeness)
      .extract(*entry, entry->destination(*entry->name()));
  EXPECT_TRUE(find_manifest(reader, METADATA_NAME, OtherEntries::REFUSE));
}

TEST_F(MetadataEntry, WithANullByteIsMalformed) {
  for (const std::string& text : {std::string("Key\0: value\n", 12), std::string("App-Directory: a\0\n", 18),
                                  std::string("File: 1\n/a\0b\n", 13), std::string("A: 1\n\0", 6)}) {
    Reader reader(archive(TarBuilder().file("/app/x/bin/.backup.metadata", text).text()));
    EXPECT_EQ(message_of<meta::malformed_manifest>(
                  [&] { static_cast<void>(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP)); }),
              "Manifest with a null byte");
  }
}

TEST_F(MetadataEntry, OfASmallFileTakesLittleMemory) {
  std::string text;
  for (int i = 0; i < 600'000; ++i) text += "a:b\n";
  archive(TarBuilder().file("/settings/.backup.metadata", text).text());
  const auto made = run_program({"sh", "-c", "gzip < '" + archive_ + "' > '" + archive_ + ".gz'"});
  ASSERT_EQ(made.status, 0) << made.errors;
  Reader reader(archive_ + ".gz");
  EXPECT_EQ(message_of<meta::malformed_manifest>(
                [&] { static_cast<void>(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP)); }),
            "Manifest that is compressed too far");
  Reader whole(archive_);
  EXPECT_EQ(find_manifest(whole, METADATA_NAME, OtherEntries::SKIP)->manifest.size(), 600'000U);
}

TEST_F(MetadataEntry, OfAHoleIsMalformedAtItsFirstByte) {
  ASSERT_EQ(::mkdir((folder_ / "settings").c_str(), 0755), 0);
  // On disk and in the archive no more than some kilobytes.
  const base::FileDescriptor hole(
      ::open((folder_ / "settings/.backup.metadata").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  ASSERT_EQ(::pwrite(hole.get(), "x", 1, off_t{257} << 20), 1);
  const auto made =
      run_program({"sh", "-c", "cd '" + folder_.path() + "' && tar -S -cf a.tar settings/.backup.metadata"});
  ASSERT_EQ(made.status, 0) << made.errors;
  Reader reader(archive_);
  EXPECT_EQ(message_of<meta::malformed_manifest>(
                [&] { static_cast<void>(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP)); }),
            "Manifest with a null byte");
}

TEST_F(MetadataEntry, OfMoreThan256MebibytesIsMalformed) {
  std::string text("Key: value\n");
  // Attributes that are dropped: none of them is too long.
  while (text.size() <= std::size_t{256} << 20) text.append(1000, ' ').append(1000, '\n').append(":");
  Reader reader(archive(TarBuilder().file("/settings/.backup.metadata", text).text()));
  EXPECT_EQ(message_of<meta::malformed_manifest>(
                [&] { static_cast<void>(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP)); }),
            "Manifest of more than 256 MiB");
}

}  // namespace
}  // namespace harbix::test
