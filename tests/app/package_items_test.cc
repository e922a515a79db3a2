#include "app/package_items.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "archive/archive_test_support.h"
#include "archive/file_record.h"
#include "fs/identity.h"
#include "support/captured_output.h"
#include "support/child_process.h"
#include "support/recorded_log.h"
#include "support/temporary_folder.h"
#include "support/tree.h"

namespace {

using fs::Path;
using harbix::PackageItems;
using test::CapturedOutput;
using test::dir;
using test::file;
using test::link;
using test::Tree;
using Texts = std::vector<std::string>;

constexpr uid_t NOBODY = 65534;

class PackageItemsTest : public ::testing::Test {
 protected:
  [[nodiscard]] Path path(const std::string& name) const { return Path(folder_ / name); }

  /// What the items are, relative to the test's folder, sorted.
  [[nodiscard]] Texts names() const {
    Texts names;
    for (const Path& item : items_.paths()) names.push_back(item.relative_to(Path(folder_.path())).text());
    std::ranges::sort(names);
    return names;
  }

  test::TemporaryFolder folder_;
  test::Writer writer_{folder_ / "archive.tar"};
  PackageItems items_{writer_};
};

TEST_F(PackageItemsTest, AreEverythingBelowAFolderAndNotTheFolder) {
  Tree{dir("d", {file("f"), file(".h"), dir("e", {link("l", "/")}), dir("empty")}), file("other")}.build(
      folder_.path());
  items_.add_tree(path("d"));
  EXPECT_EQ((Texts{"d/.h", "d/e", "d/e/l", "d/empty", "d/f"}), names());
}

TEST_F(PackageItemsTest, HaveARecordEachInTheSameOrder) {
  Tree{
      dir("d", {file("f", "12345", 0640).owned_by(7, 8), link("l", "abc"), dir("e", {file("g\n\\", "123")})})}
      .build(folder_.path());
  items_.add(path("d"));
  items_.add_tree(path("d"));
  const std::vector<harbix::FileRecord> records = harbix::read_file_records(items_.records());
  ASSERT_EQ(5U, items_.paths().size());
  ASSERT_EQ(items_.paths().size(), records.size());
  std::int64_t bytes = 0;
  for (std::size_t i = 0; i < records.size(); ++i) {
    const fs::File item(items_.paths()[i]);
    EXPECT_EQ(item.path(), records[i].path);
    EXPECT_EQ(static_cast<std::uint64_t>(item.record().st_size), records[i].size) << item.path();
    ASSERT_TRUE(records[i].status) << item.path();
    EXPECT_EQ(item.record().st_mode, records[i].status->mode) << item.path();
    EXPECT_EQ(item.record().st_uid, records[i].status->user) << item.path();
    EXPECT_EQ(item.record().st_gid, records[i].status->group) << item.path();
    EXPECT_EQ(item.record().st_mtime, records[i].status->modified) << item.path();
    bytes += item.record().st_size;
  }
  EXPECT_EQ(bytes, items_.bytes());
}

TEST_F(PackageItemsTest, AddUpWhatFilesAndLinksTake) {
  Tree{file("f", "12345"), link("l", "abc")}.build(folder_.path());
  items_.add(path("f"));
  EXPECT_EQ(5, items_.bytes());
  items_.add(path("l"));
  EXPECT_EQ(8, items_.bytes());
}

TEST_F(PackageItemsTest, KeepARecordOfWhatDoesNotExist) {
  const CapturedOutput errors(STDERR_FILENO);
  const test::RecordedLog log(5);
  items_.add(path("gone"));
  EXPECT_EQ((Texts{"gone"}), names());
  EXPECT_EQ((meta::Manifest{{"File", "0 0 0 0 0 " + path("gone").text()}}), items_.records());
  EXPECT_EQ(0, items_.bytes());
  EXPECT_EQ("", errors.text());
  EXPECT_EQ(
      (Texts{"7 Path '" + path("gone").text() + "' stat failed. [errno:2 'No such file or directory']"}),
      log.messages());
}

TEST_F(PackageItemsTest, AreNoneWhereThereIsNoFolder) {
  Tree{dir("d", {file("f")}), link("to_d", "d"), link("dangling", "x"), file("file")}.build(folder_.path());
  for (const char* name : {"gone", "to_d", "dangling", "file", "file/below"}) {
    items_.add_tree(path(name));
    EXPECT_EQ(Texts{}, names()) << name;
  }
  EXPECT_TRUE(items_.records().empty());
}

TEST_F(PackageItemsTest, LeaveOutWhatNoArchiveHoldsWithItsRecord) {
  Tree{dir("d", {test::fifo("fifo"), file("f")})}.build(folder_.path());
  const CapturedOutput errors(STDERR_FILENO);
  items_.add_tree(path("d"));
  items_.add(path("d/fifo"));
  items_.add(path("archive.tar"));
  EXPECT_EQ((Texts{"d/f"}), names());
  EXPECT_EQ(1U, items_.records().size());
  const std::string fifo = "not a file, folder or link: " + path("d/fifo").text() + " skipping\n";
  EXPECT_EQ(fifo + fifo + "is the archive itself: " + path("archive.tar").text() + " skipping\n",
            errors.text());
}

TEST_F(PackageItemsTest, DoWithoutAFolderThatCannotBeOpened) {
  Tree{dir("d", {dir("closed", {file("f")}, 0700), file("g")})}.build(folder_.path());
  EXPECT_TRUE(test::passes_in_child([this] {
    const fs::EffectiveUser user(NOBODY);
    const CapturedOutput errors(STDERR_FILENO);
    const test::RecordedLog log;
    items_.add_tree(path("d"));
    EXPECT_EQ((Texts{"d/closed", "d/g"}), names());
    const std::string reason =
        "Directory '" + path("d/closed").text() + "' could not be opened. [errno:13 'Permission denied']";
    EXPECT_EQ("Error: " + reason + "\n", errors.text());
    EXPECT_EQ((Texts{"2 ERROR: " + reason}), log.messages());
  }));
}

}  // namespace
