#include "archive/metadata_entry.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/archive_test_support.h"
#include "archive/error.h"
#include "archive/extraction.h"
#include "base/file_descriptor.h"
#include "base/flags.h"
#include "support/captured_output.h"
#include "support/process.h"
#include "support/recorded_log.h"
#include "support/tar_builder.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using fs::Path;
using harbix::find_manifest;
using harbix::METADATA_NAME;
using harbix::OtherEntries;
using test::CapturedOutput;
using test::message_of;
using test::Reader;
using test::RecordedLog;
using test::TarBuilder;
using test::TemporaryFolder;

class MetadataEntry : public ::testing::Test {
 protected:
  void TearDown() override { harbix::verbose = false; }

  std::string archive(const std::string& bytes) {
    test::write_file(archive_, bytes);
    return archive_;
  }

  TemporaryFolder folder_;
  std::string archive_ = folder_ / "a.tar";
};

TEST_F(MetadataEntry, IsAPlainFileOfTheManifestsText) {
  const meta::Manifest manifest{{"Package", "x"}, {"Dir", "a/b"}};
  const RecordedLog log(3);
  const std::time_t before = std::time(nullptr);
  test::Writer writer(archive_);
  harbix::store_manifest(writer, Path("/media/Music"), METADATA_NAME, manifest);
  writer.close();
  EXPECT_EQ((std::vector<std::string>{"5 Storing manifest to '/media/Music'"}), log.messages());

  Reader reader(archive_);
  const auto entry = reader.next_header();
  ASSERT_TRUE(entry);
  EXPECT_EQ("/media/Music/.backup.metadata", entry->name()->text());
  const fs::File stored = entry->destination(Path("x"));
  const struct ::stat& record = stored.record();
  EXPECT_EQ(0100700U, record.st_mode);
  EXPECT_EQ(0U, record.st_uid);
  EXPECT_EQ(0U, record.st_gid);
  EXPECT_LE(before, record.st_mtim.tv_sec);
  EXPECT_GE(std::time(nullptr), record.st_mtim.tv_sec);
  EXPECT_EQ("Package: x\nDir: a/b\n\n", reader.data());
}

TEST_F(MetadataEntry, JoinsItsNameByTheRuleOfPaths) {
  struct Row {
    const char *directory, *name;
  };
  for (const Row& row : {Row{"/settings/", "/settings/.backup.metadata"}, Row{"", "/.backup.metadata"},
                         Row{"a", "a/.backup.metadata"}}) {
    test::Writer writer(archive_);
    harbix::store_manifest(writer, Path(row.directory), METADATA_NAME, {});
    writer.close();
    Reader reader(archive_);
    EXPECT_EQ((std::vector<std::string>{row.name}), reader.names()) << row.directory;
  }
}

TEST_F(MetadataEntry, ThatCannotBeWrittenEndsTheArchive) {
  test::Writer writer("/dev/full");
  EXPECT_EQ("Archive error: Write error: No space left on device(28)",
            test::message_of<harbix::ArchiveError>([&] {
              harbix::store_manifest(writer, Path("/m"), METADATA_NAME,
                                     {{"A", std::string(std::size_t{2} << 20, 'x')}});
            }));
}

TEST_F(MetadataEntry, IsFoundWithItsManifest) {
  Reader reader(
      archive(TarBuilder().file("/m/x/.backup.metadata", "Package: x\n\n").file("/m/x/a", "1").text()));
  const auto package = find_manifest(reader, METADATA_NAME, OtherEntries::REFUSE);
  ASSERT_TRUE(package);
  EXPECT_EQ("/m/x/.backup.metadata", package->entry_name);
  EXPECT_EQ((meta::Manifest{{"Package", "x"}}), package->manifest);
}

TEST_F(MetadataEntry, IsLookedForBehindOtherEntriesWhereThoseAreSkipped) {
  const std::string bytes = TarBuilder()
                                .file("/m/a", std::string(3000, 'x'))
                                .folder("/m/d")
                                .file("/m/x/.backup.metadata", "A: 1\n")
                                .file("/m/y/.backup.metadata", "A: 2\n")
                                .text();
  Reader reader(archive(bytes));
  auto package = find_manifest(reader, METADATA_NAME, OtherEntries::SKIP);
  ASSERT_TRUE(package);
  EXPECT_EQ("/m/x/.backup.metadata", package->entry_name);
  package = find_manifest(reader, METADATA_NAME, OtherEntries::SKIP);
  ASSERT_TRUE(package);
  EXPECT_EQ("2", meta::look_up(package->manifest, "A"));
  EXPECT_FALSE(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP));
}

TEST_F(MetadataEntry, OfAnotherNameIsRefusedWithItsPath) {
  for (const char* name : {"/m/a", "/m/.backup.metadatax", "/m/x.backup.metadata", "/.backup.metadata/x"}) {
    Reader reader(archive(TarBuilder().file(name, "A: 1\n").text()));
    EXPECT_EQ(std::string("Not meta file: ") + name, message_of<std::runtime_error>([&] {
                static_cast<void>(find_manifest(reader, METADATA_NAME, OtherEntries::REFUSE));
              }));
  }
}

TEST_F(MetadataEntry, WithoutAFolderIsAnError) {
  for (const char* name : {".backup.metadata", "a"}) {
    Reader reader(archive(TarBuilder().file(name, "A: 1\n").text()));
    EXPECT_EQ("Error pathname", message_of<std::runtime_error>([&] {
                static_cast<void>(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP));
              }))
        << name;
  }
}

TEST_F(MetadataEntry, WithoutANameIsAnError) {
  test::write_file(folder_ / "\xC3\xA9", "1");
  const auto made = test::run_program(
      {"sh", "-c", "cd '" + folder_.path() + "' && LC_ALL=C.UTF-8 bsdtar --format=7zip -cf a.tar \xC3\xA9"});
  ASSERT_EQ(0, made.status) << made.errors;
  Reader reader(archive_);
  EXPECT_THROW(static_cast<void>(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP)),
               std::runtime_error);
}

TEST_F(MetadataEntry, NowhereInTheArchiveIsNoError) {
  const CapturedOutput errors(STDERR_FILENO);
  for (const bool verbose : {false, true}) {
    harbix::verbose = verbose;
    Reader reader(archive(TarBuilder().file("/m/a", "text").text()));
    EXPECT_FALSE(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP));
  }
  EXPECT_EQ("EOF reached\n", errors.text());
}

TEST_F(MetadataEntry, SearchEndsInDamageWithTheReason) {
  Reader reader(archive(TarBuilder().file("/m/a", "text").truncated_text()));
  const auto search = [&reader] {
    static_cast<void>(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP));
  };
  EXPECT_EQ("Failed to read archive header Truncated archive: the end mark is missing",
            message_of<std::runtime_error>(search));
  // What was wrong before the search begins is told in other words.
  EXPECT_EQ("Archive not ARCHIVE_OK Truncated archive: the end mark is missing",
            message_of<std::runtime_error>(search));
}

TEST_F(MetadataEntry, CutInItsTextIsNoManifest) {
  const std::string text = "A: 1\nB: 2\n" + std::string(5000, '\n');
  Reader reader(archive(
      TarBuilder().file("/m/.backup.metadata", text).truncated_text().substr(0, std::size_t{2} * 512)));
  EXPECT_EQ("Archive not ARCHIVE_OK Truncated tar archive", message_of<std::runtime_error>([&] {
              static_cast<void>(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP));
            }));
}

TEST_F(MetadataEntry, IsFoundBehindAnEntryThatCouldNotBeExtracted) {
  Reader reader(archive(TarBuilder().file("../x", "evil").file("/m/.backup.metadata", "A: 1\n").text()));
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
    EXPECT_EQ("Manifest with a null byte", message_of<meta::malformed_manifest>([&] {
                static_cast<void>(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP));
              }));
  }
}

TEST_F(MetadataEntry, OfMoreThan256MebibytesIsMalformed) {
  ASSERT_EQ(0, ::mkdir((folder_ / "m").c_str(), 0755));
  // A hole on disk and in the archive: no more than some kilobytes in either.
  const base::FileDescriptor hole(
      ::open((folder_ / "m/.backup.metadata").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  ASSERT_EQ(1, ::pwrite(hole.get(), "x", 1, off_t{257} << 20));
  const auto made =
      test::run_program({"sh", "-c", "cd '" + folder_.path() + "' && tar -S -cf a.tar m/.backup.metadata"});
  ASSERT_EQ(0, made.status) << made.errors;
  Reader reader(archive_);
  EXPECT_EQ("Manifest of more than 256 MiB", message_of<meta::malformed_manifest>([&] {
              static_cast<void>(find_manifest(reader, METADATA_NAME, OtherEntries::SKIP));
            }));
}

TEST(MetadataName, IsTheLastComponentToTheLetter) {
  struct Row {
    const char* name;
    bool is_metadata;
  };
  for (const Row& row :
       {Row{"/m/.backup.metadata", true}, Row{".backup.metadata", true}, Row{"/.backup.metadata", true},
        Row{"/m/.backup.metadata/", false}, Row{"/m/x.backup.metadata", false},
        Row{"/m/.Backup.metadata", false}, Row{"", false}}) {
    EXPECT_EQ(row.is_metadata, harbix::is_metadata_name(row.name)) << row.name;
  }
}

}  // namespace
