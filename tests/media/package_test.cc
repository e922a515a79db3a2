#include "media/package.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include <archive.h>
#include <gtest/gtest.h>

#include "archive/file_record.h"
#include "archive/metadata_entry.h"
#include "archive/reader.h"
#include "base/flags.h"
#include "fs/identity.h"
#include "support/captured_output.h"
#include "support/device_accounts.h"
#include "support/recorded_log.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using fs::File;
using fs::Path;
using harbix::ArchiveWriter;
using harbix::MediaPackage;
using test::CapturedOutput;
using test::dir;
using test::fifo;
using test::file;
using test::link;
using test::RecordedLog;
using test::TemporaryFolder;
using test::Tree;

std::vector<std::string> sorted_texts(const std::vector<Path>& paths) {
  std::vector<std::string> texts;
  texts.reserve(paths.size());
  for (const Path& path : paths) texts.push_back(path.text());
  std::ranges::sort(texts);
  return texts;
}

/// A folder that stands for a share, as working directory, and an archive elsewhere.
class Package : public ::testing::Test {
 protected:
  [[nodiscard]] MediaPackage dtm(const char* name) {
    MediaPackage package(File(Path(name)), writer_);
    package.collect_dtm_share();
    return package;
  }

  TemporaryFolder folder_;
  TemporaryFolder archives_;
  ArchiveWriter writer_{ARCHIVE_FORMAT_TAR, 0, archives_ / "a.tar"};
  test::InsideFolder inside_{folder_.path()};
};

TEST_F(Package, EstimateRoundsContentsUpTo512Bytes) {
  struct Row {
    std::size_t size;
    std::int64_t bytes;
  };
  for (const Row& row : {Row{0, 512}, Row{1, 1024}, Row{512, 1024}, Row{513, 1536}, Row{1024, 1536}}) {
    test::write_file("f", std::string(row.size, 'x'));
    const harbix::SizeResult estimate = dtm("f").estimate();
    // Its manifest's header and text, which fits into one record.
    EXPECT_EQ(1024 + row.bytes, estimate.bytes) << row.size;
    EXPECT_EQ(1, estimate.files) << row.size;
  }
}

TEST_F(Package, EstimateOfAnEmptyFolderCountsItselfAndItsManifest) {
  Tree{dir("d")}.build(folder_.path());
  const harbix::SizeResult estimate = dtm("d").estimate();
  EXPECT_EQ(512 + 512 + 512, estimate.bytes);
  EXPECT_EQ(1, estimate.files);
}

TEST_F(Package, EstimateCountsLinksAndFoldersWithoutContents) {
  Tree{dir("d", {link("l", std::string(1000, 't')), dir("e")})}.build(folder_.path());
  const harbix::SizeResult estimate = dtm("d").estimate();
  EXPECT_EQ(1024 + 3 * 512, estimate.bytes);
  EXPECT_EQ(3, estimate.files);
}

TEST_F(Package, EstimateRoundsTheManifestUp) {
  // A hundred records of "File: 1\nd/NNN\n" are longer than one record of 512 bytes.
  Tree{dir("d")}.build(folder_.path());
  std::size_t text =
      std::string("File: 4096\nd\n\n").size() - 4 + std::to_string(File(Path("d")).record().st_size).size();
  for (int i = 100; i < 200; ++i) {
    test::write_file("d/" + std::to_string(i), "x");
    text += std::string("File: 1\nd/100\n").size();
  }
  text += std::to_string(File(Path("d")).record().st_size).size() - std::string("4096").size();
  const auto manifest = static_cast<std::int64_t>((text + 511) / 512 * 512);
  const harbix::SizeResult estimate = dtm("d").estimate();
  EXPECT_EQ(512 + manifest + 512 + std::int64_t{100} * 1024, estimate.bytes);
  EXPECT_EQ(101, estimate.files);
}

TEST_F(Package, EstimateIsWhatTheArchiveTakesLessItsEndMark) {
  Tree{dir("d", {file("a", std::string(700, 'x')), link("l", "a"), dir("e", {file("b")})})}.build(
      folder_.path());
  MediaPackage package = dtm("d");
  const std::int64_t estimate = package.estimate().bytes;
  package.store(writer_, Path("/dtm"));
  writer_.close();
  EXPECT_EQ(estimate + 1024, writer_.compressed_position());
}

TEST_F(Package, BeginsWithTheTopLevelItemItself) {
  Tree{dir("d", {file("a"), dir("e", {file("b")})})}.build(folder_.path());
  const MediaPackage package = dtm("d");
  ASSERT_FALSE(package.empty());
  EXPECT_EQ("d", package.paths().front().text());
  EXPECT_EQ((std::vector<std::string>{"d", "d/a", "d/e", "d/e/b"}), sorted_texts(package.paths()));
}

TEST_F(Package, MayBeASingleFile) {
  Tree{file("f", "text")}.build(folder_.path());
  EXPECT_EQ((std::vector<std::string>{"f"}), sorted_texts(dtm("f").paths()));
}

TEST_F(Package, LeavesOutWhatNoArchiveHoldsWithAMessage) {
  Tree{dir("d", {fifo("pipe"), file("f")})}.build(folder_.path());
  const RecordedLog log;
  const CapturedOutput errors(STDERR_FILENO);
  EXPECT_EQ((std::vector<std::string>{"d", "d/f"}), sorted_texts(dtm("d").paths()));
  EXPECT_EQ((std::vector<std::string>{"3 not a file, folder or link: 'd/pipe'; skipping."}), log.messages());
  EXPECT_EQ("not a file, folder or link: d/pipe skipping\n", errors.text());
}

TEST_F(Package, OfAFifoAloneIsEmpty) {
  Tree{fifo("pipe")}.build(folder_.path());
  const CapturedOutput errors(STDERR_FILENO);
  EXPECT_TRUE(dtm("pipe").empty());
}

TEST_F(Package, NeverHoldsTheArchiveItself) {
  Tree{dir("d", {file("f")})}.build(folder_.path());
  ASSERT_EQ(0, ::link((archives_ / "a.tar").c_str(), "d/a.tar"));
  const RecordedLog log;
  const CapturedOutput errors(STDERR_FILENO);
  EXPECT_EQ((std::vector<std::string>{"d", "d/f"}), sorted_texts(dtm("d").paths()));
  EXPECT_EQ((std::vector<std::string>{"3 is the archive itself: 'd/a.tar'; skipping."}), log.messages());
  EXPECT_EQ("is the archive itself: d/a.tar skipping\n", errors.text());
}

TEST_F(Package, StoresItsManifestBeforeItsItems) {
  Tree{dir("Music", {file("a.mp3", "text")})}.build(folder_.path());
  MediaPackage package = dtm("Music");
  package.store(writer_, Path("/media"));
  writer_.close();

  harbix::ArchiveReader reader(ARCHIVE_FORMAT_TAR_PAX_INTERCHANGE, 0, archives_ / "a.tar");
  const auto found = harbix::find_manifest(reader, harbix::METADATA_NAME, harbix::OtherEntries::REFUSE);
  ASSERT_TRUE(found);
  EXPECT_EQ("/media/Music/.backup.metadata", found->entry_name);
  EXPECT_EQ(2U, harbix::read_file_records(found->manifest).size());
  std::vector<std::string> names;
  while (const auto entry = reader.next_header()) names.push_back(entry->name()->text());
  EXPECT_EQ((std::vector<std::string>{"/media/Music", "/media/Music/a.mp3"}), names);
}

TEST_F(Package, OfMediaHoldsWhatTheSkipTestLetsPassAtAnyDepth) {
  Tree{dir("Music",
           {file("mine", "", 0400).owned_by(test::MEDIA_USER, 0), file("closed", "", 0600),
            file("read_only", "", 0444), file("protected", "", 0644).owned_by(0, test::PROTECTED_GROUP),
            dir("protected_dir", {file("inside")}).owned_by(0, test::PROTECTED_GROUP),
            dir("closed_dir", {file("inside")}, 0700)})}
      .build(folder_.path());
  EXPECT_TRUE(test::passes_with_device_accounts([this] {
    const RecordedLog log;
    const CapturedOutput errors(STDERR_FILENO);
    const fs::EffectiveUser user(test::MEDIA_USER);
    MediaPackage package(File(Path("Music")), writer_);
    package.collect_media();
    EXPECT_EQ(
        (std::vector<std::string>{"Music", "Music/mine", "Music/protected_dir/inside", "Music/read_only"}),
        sorted_texts(package.paths()));
    std::vector<std::string> messages = log.messages();
    std::ranges::sort(messages);
    EXPECT_EQ((std::vector<std::string>{"3 can't access: 'Music/closed'; skipping.",
                                        "3 can't access: 'Music/closed_dir'; skipping."}),
              messages);
    EXPECT_EQ("", errors.text());
  }));
}

}  // namespace
