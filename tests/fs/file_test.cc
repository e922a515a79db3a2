#include "fs/file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fs/exception.h"
#include "fs/identity.h"
#include "tests/support/folder.h"
#include "tests/support/recorded_log.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::File;
using fs::Path;

struct ::stat record_of(mode_t mode, uid_t user = 0, gid_t group = 0) {
  struct ::stat record {};
  record.st_mode = mode;
  record.st_uid = user;
  record.st_gid = group;
  return record;
}

class FileTest : public ::testing::Test {
 protected:
  [[nodiscard]] Path path(const std::string& name) const { return Path(folder_ / name); }
  TemporaryFolder folder_;
};

TEST_F(FileTest, TakesItsStatusAtOnce) {
  Tree{file("f", "12345", 0640).owned_by(1, 2)}.build(folder_.path());
  const File item(path("f"));
  EXPECT_EQ(item.path(), path("f"));
  EXPECT_EQ(item.record().st_size, 5);
  EXPECT_EQ(item.record().st_mode, S_IFREG | 0640U);
  EXPECT_EQ(item.record().st_uid, 1U);
  EXPECT_EQ(item.record().st_gid, 2U);
  EXPECT_TRUE(item.is_regular());
  EXPECT_FALSE(item.is_directory());
  EXPECT_FALSE(item.is_symbolic_link());
}

TEST_F(FileTest, DescribesLinksInsteadOfFollowingThem) {
  Tree{dir("d"), link("to_d", "d"), link("dangling", "nowhere")}.build(folder_.path());
  EXPECT_TRUE(File(path("d")).is_directory());
  for (const char* name : {"to_d", "dangling"}) {
    const File item(path(name));
    EXPECT_TRUE(item.is_symbolic_link()) << name;
    EXPECT_FALSE(item.is_directory()) << name;
  }
}

TEST_F(FileTest, IsZeroedUntilExamined) {
  const File nothing;
  EXPECT_TRUE(nothing.path().empty());
  EXPECT_EQ(nothing.record().st_mode, 0U);
  EXPECT_EQ(nothing.record().st_size, 0);
  const File unexamined(path("missing"), {});
  EXPECT_EQ(unexamined.path(), path("missing"));
  EXPECT_EQ(unexamined.record().st_mode, 0U);
}

TEST_F(FileTest, CopiesItsPathAndStatus) {
  Tree{file("f", "12")}.build(folder_.path());
  const File item(path("f"));
  const File copy = item;  // NOLINT(performance-unnecessary-copy-initialization): the copy is the claim
  EXPECT_EQ(copy.path(), item.path());
  EXPECT_EQ(copy.record().st_size, 2);
}

TEST_F(FileTest, StatFailureQuotesThePathAndTheSystem) {
  try {
    const File item(path("missing"));
    ADD_FAILURE();
  } catch (const fs::Exception& error) {
    EXPECT_EQ(error.what(),
              "Path '" + (folder_ / "missing") + "' stat failed. [errno:2 'No such file or directory']");
    EXPECT_EQ(error.error(), ENOENT);
  }
}

TEST_F(FileTest, KeepsItsRecordWhenANewLookFails) {
  Tree{file("f", "123")}.build(folder_.path());
  File item(path("f"));
  ASSERT_EQ(::unlink(item.path().c_str()), 0);
  EXPECT_THROW(item.stat(), fs::Exception);
  EXPECT_EQ(item.record().st_size, 3);
}

TEST_F(FileTest, SeesChangesOnlyWhenItLooksAgain) {
  Tree{file("f", "123")}.build(folder_.path());
  File item(path("f"));
  write_file(folder_ / "f", "12345");
  EXPECT_EQ(item.record().st_size, 3);
  item.stat();
  EXPECT_EQ(item.record().st_size, 5);
}

TEST_F(FileTest, KnowsTheSameObjectByDeviceAndInode) {
  Tree{file("f"), file("g")}.build(folder_.path());
  ASSERT_EQ(::link((folder_ / "f").c_str(), (folder_ / "hard").c_str()), 0);
  EXPECT_TRUE(File(path("f")).is_same_object(File(path("hard")).record()));
  EXPECT_FALSE(File(path("f")).is_same_object(File(path("g")).record()));
}

TEST_F(FileTest, MakesADirectoryWithTheModeOfItsRecord) {
  const mode_t before = ::umask(0);
  File(path("d"), record_of(S_IFDIR | 0751)).mkdir();
  File(path("bare"), record_of(0700)).mkdir();
  ::umask(before);
  EXPECT_TRUE((Tree{dir("d", {}, 0751), dir("bare", {}, 0700)}.matches(folder_.path())));
}

TEST_F(FileTest, MkdirFailureQuotesThePathAndTheSystem) {
  Tree{file("f")}.build(folder_.path());
  try {
    File(path("f"), record_of(0755)).mkdir();
    ADD_FAILURE();
  } catch (const fs::Exception& error) {
    EXPECT_EQ(error.what(), "Mkdir '" + (folder_ / "f") + "' failed. [errno:17 'File exists']");
    EXPECT_EQ(error.error(), EEXIST);
  }
}

TEST_F(FileTest, RenamesAndTellsBothNamesOnFailure) {
  Tree{file("a", "text")}.build(folder_.path());
  fs::rename(path("a"), path("b"));
  EXPECT_TRUE((Tree{file("b", "text")}.matches(folder_.path())));
  try {
    fs::rename(path("a"), path("c"));
    ADD_FAILURE();
  } catch (const fs::Exception& error) {
    EXPECT_EQ(error.what(), "Rename '" + (folder_ / "a") + "' to '" + (folder_ / "c") +
                                "' failed [errno:2 'No such file or directory']");
    EXPECT_EQ(error.error(), ENOENT);
  }
}

TEST_F(FileTest, RmdirReturnsItsResultAndLogsAFailure) {
  Tree{dir("empty"), dir("full", {file("f")})}.build(folder_.path());
  const RecordedLog log;
  EXPECT_EQ(File(path("empty")).rmdir(), 0);
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(File(path("full")).rmdir(), -1);
  EXPECT_EQ(errno, ENOTEMPTY);
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"3 Failed to rmdir '" + (folder_ / "full") +
                                                      "' (Directory not empty)"}));
}

TEST_F(FileTest, UnlinkRemovesFilesAndLinksInSilence) {
  Tree{file("f"), link("l", "f"), link("dangling", "x")}.build(folder_.path());
  const RecordedLog log(5);
  for (const char* name : {"l", "dangling", "f"}) File(path(name)).unlink();
  EXPECT_TRUE(log.lines().empty());
  EXPECT_TRUE(Tree{}.matches(folder_.path()));
}

TEST_F(FileTest, UnlinkLogsItsFailureAndThrowsNothing) {
  Tree{dir("d")}.build(folder_.path());
  const RecordedLog log;
  File(path("d")).unlink();
  File(path("missing"), record_of(S_IFREG)).unlink();
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{
                "3 Failed to unlink '" + (folder_ / "d") + "' (Is a directory)",
                "3 Failed to unlink '" + (folder_ / "missing") + "' (No such file or directory)"}));
}

TEST_F(FileTest, UnlinkOfALinkTellsTheFirstFailureNotThePathManagers) {
  const RecordedLog log;
  File(path("missing"), record_of(S_IFLNK | 0777)).unlink();
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"3 Failed to unlink '" + (folder_ / "missing") +
                                                      "' (No such file or directory)"}));
}

TEST_F(FileTest, CleaningUpIsSilentBelowLevelOne) {
  Tree{dir("full", {file("f")})}.build(folder_.path());
  const RecordedLog log(0);
  EXPECT_EQ(File(path("full")).rmdir(), -1);
  File(path("full")).unlink();
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(FileTest, ExistsEvenAsADanglingLink) {
  Tree{link("dangling", "x"), file("f")}.build(folder_.path());
  EXPECT_TRUE(fs::exists(path("dangling")));
  EXPECT_TRUE(fs::exists(path("f")));
  EXPECT_FALSE(fs::exists(path("missing")));
  EXPECT_FALSE(fs::exists(path("f/below")));
}

constexpr uid_t USER = 4001;
constexpr gid_t GROUP = 4002;

struct AccessRow {
  mode_t mode;
  unsigned wanted;
  bool granted;
};

TEST(FileAccess, GrantsTheSuperuserAllButRunningWhatNobodyMayRun) {
  for (const AccessRow& row :
       {AccessRow{S_IFREG | 0644, fs::READ, true}, AccessRow{S_IFREG | 0644, fs::READ | fs::WRITE, true},
        AccessRow{S_IFREG | 0644, fs::EXECUTE, false}, AccessRow{S_IFREG | 0644, 7, false},
        AccessRow{S_IFREG | 0000, 6, true}, AccessRow{S_IFREG | 0001, 7, true},
        AccessRow{S_IFREG | 0010, 7, true}, AccessRow{S_IFDIR | 0000, 7, true},
        AccessRow{S_IFDIR | 0644, fs::EXECUTE, true}, AccessRow{S_IFREG | 0644, 0, true},
        AccessRow{S_IFREG | 0777, 8, false}, AccessRow{S_IFREG | 0777, 15, false}}) {
    EXPECT_EQ(File(Path("f"), record_of(row.mode, 1, 1)).allows(row.wanted), row.granted)
        << std::oct << row.mode << " for " << row.wanted;
  }
}

TEST(FileAccess, UsesTheOwnersBitsForTheOwnerEvenWhereOthersHaveMore) {
  const fs::EffectiveUser user(USER);
  EXPECT_TRUE(File(Path("f"), record_of(S_IFREG | 0400, USER, 1)).allows(fs::READ));
  EXPECT_FALSE(File(Path("f"), record_of(S_IFREG | 0077, USER, 1)).allows(fs::READ));
  EXPECT_FALSE(File(Path("f"), record_of(S_IFREG | 0400, USER, 1)).allows(fs::READ | fs::WRITE));
  EXPECT_TRUE(File(Path("f"), record_of(S_IFREG | 0700, USER, 1)).allows(7));
}

TEST(FileAccess, UsesTheGroupsBitsForTheEffectiveGroup) {
  const fs::EffectiveGroup group(GROUP);
  const fs::EffectiveUser user(USER);
  EXPECT_TRUE(File(Path("f"), record_of(S_IFREG | 0040, 1, GROUP)).allows(fs::READ));
  EXPECT_FALSE(File(Path("f"), record_of(S_IFREG | 0707, 1, GROUP)).allows(fs::READ));
}

TEST(FileAccess, LooksAtNoSupplementaryGroup) {
  // The groups of root hold its own: with another effective group, that one is supplementary.
  const fs::EffectiveGroup group(GROUP);
  const fs::EffectiveUser user(USER);
  EXPECT_FALSE(File(Path("f"), record_of(S_IFREG | 0070, 1, 0)).allows(fs::READ));
  EXPECT_TRUE(File(Path("f"), record_of(S_IFREG | 0004, 1, 0)).allows(fs::READ));
}

TEST(TotalSize, AddsTheRecordedSizesIn64Bits) {
  struct ::stat large {};
  large.st_size = off_t{5} << 40;
  struct ::stat small {};
  small.st_size = 7;
  const std::vector<File> files{File(Path("a"), large), File(Path("b"), small), File(Path("c"), large)};
  EXPECT_EQ(fs::total_size(files), (std::uint64_t{10} << 40) + 7);
  EXPECT_EQ(fs::total_size({}), 0U);
}

}  // namespace
}  // namespace harbix::test
