#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/device/size_text.h"
#include "tests/support/device.h"

namespace harbix::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

constexpr char LIBRARY[] = "/accounts/1000/db/mmlibrary.db";
class MediaSize : public testing::Test {
 protected:
  MediaSize() { std::filesystem::remove(device_.outside(LIBRARY)); }

  void make_library(const std::string& sql) {
    const Outcome outcome = run_program({"sqlite3", device_.outside(LIBRARY)}, sql);
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
  }

  void add_one_small_file() { device_.write(std::string(SHARED) + "/M/a", "1"); }

  // Folder "M" and its one byte: two headers and a block; a header and a block for the manifest.
  static constexpr long ONE_SMALL_FILE = 512 + 512 + 512 + 512 + 512;

  Device device_;
};

TEST_F(MediaSize, ComesFromTheLibrary) {
  make_library(
      "create table files(fid integer, ftype integer, size integer);"
      "insert into files values(1,1,100),(2,2,20),(3,4,3),(4,6,4000000000),(5,3,5),(6,5,6),(7,0,7);");
  add_one_small_file();
  const Outcome outcome = device_.harbix({"-d", "3", "-s", "media"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, size_text(EMPTY_REPORT + 4000000123, 4));
  EXPECT_EQ(outcome.errors, "");
  EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR),
              ElementsAre("The number of files is: 4  Their total size is 4000000123"));
  EXPECT_THAT(device_.logged(LOG_PRIORITY_INFO),
              testing::IsSupersetOf({std::string("archiving media sizeonly is true"),
                                     "DB " + std::string(LIBRARY) + " opened successfully"}));
}

TEST_F(MediaSize, LeavesTheLibraryAsItWas) {
  make_library("create table files(ftype integer, size integer); insert into files values(1,100);");
  const Snapshot before = device_.snapshot("/accounts/1000/db");
  ASSERT_EQ(device_.harbix({"-s", "media"}).output, size_text(EMPTY_REPORT + 100, 1));
  EXPECT_EQ(difference(before, device_.snapshot("/accounts/1000/db")), "");
}

TEST_F(MediaSize, LeavesAWriteAheadLibraryAsItWas) {
  make_library(
      "pragma journal_mode=wal; create table files(ftype integer, size integer); insert into files "
      "values(1,100);");
  const Snapshot before = device_.snapshot("/accounts/1000/db");
  EXPECT_EQ(device_.harbix({"-s", "media"}).output, size_text(EMPTY_REPORT + 100, 1));
  EXPECT_EQ(difference(before, device_.snapshot("/accounts/1000/db")), "");
}

TEST_F(MediaSize, ComesFromAWriteAheadLibraryThatIsInUse) {
  make_library("pragma journal_mode=wal; create table files(ftype integer, size integer);");
  const Outcome outcome = device_.shell(
      "mkfifo /tmp/hold; (echo 'insert into files values(1,100); select 1;'; cat /tmp/hold) | sqlite3 " +
      std::string(LIBRARY) +
      " > /tmp/open & until grep -q 1 /tmp/open; do sleep 0.05; done; ls /accounts/1000/db; "
      "harbix -s media; ls /accounts/1000/db; echo > /tmp/hold; wait");
  const std::string files = "mmlibrary.db\nmmlibrary.db-shm\nmmlibrary.db-wal\n";
  EXPECT_EQ(outcome.output, files + size_text(EMPTY_REPORT + 100, 1) + files) << outcome.errors;
}

TEST_F(MediaSize, IsWalkedWhenTheLibraryIsMissing) {
  add_one_small_file();
  const Outcome outcome = device_.harbix({"-s", "media"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, size_text(EMPTY_REPORT + ONE_SMALL_FILE, 2));
  EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR),
              ElementsAre("Problem opening DB to read Media " + std::string(LIBRARY) +
                          " reason: unable to open database file"));
  EXPECT_FALSE(device_.exists(LIBRARY));
}

TEST_F(MediaSize, IsWalkedWhenTheLibraryCannotTell) {
  const std::string query = "select count(*), sum(size) from files where ftype in (6,4,2,1);";
  struct Row {
    const char* sql;
    int priority;
    std::string message;
  };
  add_one_small_file();
  for (const Row& row :
       {Row{"create table files(ftype integer, length integer);", 3,
            "Error executing " + query + " reason: no such column: size"},
        Row{"create table other(ftype integer, size integer);", 3,
            "Error executing " + query + " reason: no such table: files"},
        Row{"create table files(ftype integer, size integer); insert into files values(3,10);", 4,
            "No rows found in 'files' table of 'mmlibrary.db': "
            "select count(*), sum(size) from files where ftype in (6,4,2,1)"}}) {
    std::filesystem::remove(device_.outside(LIBRARY));
    make_library(row.sql);
    EXPECT_EQ(device_.harbix({"-s", "media"}).output, size_text(EMPTY_REPORT + ONE_SMALL_FILE, 2)) << row.sql;
    EXPECT_THAT(device_.logged(row.priority), ElementsAre(row.message));
  }
}

TEST_F(MediaSize, IsWalkedWhenTheLibraryIsDamaged) {
  add_one_small_file();
  device_.write(LIBRARY, std::string(5000, 'x'));
  EXPECT_EQ(device_.harbix({"-s", "media"}).output, size_text(EMPTY_REPORT + ONE_SMALL_FILE, 2));
  EXPECT_THAT(
      device_.logged(LOG_PRIORITY_ERROR),
      ElementsAre("Error executing select count(*), sum(size) from files where ftype in (6,4,2,1); reason: "
                  "file is not a database"));
}

TEST_F(MediaSize, IsWalkedWhenTheLibraryIsEmpty) {
  add_one_small_file();
  device_.write(LIBRARY, "");
  EXPECT_EQ(device_.harbix({"-s", "media"}).output, size_text(EMPTY_REPORT + ONE_SMALL_FILE, 2));
  EXPECT_EQ(device_.read(LIBRARY), "");
}

TEST_F(MediaSize, IsWalkedWhenTheLibraryIsLocked) {
  make_library("create table files(ftype integer, size integer); insert into files values(1,100);");
  add_one_small_file();
  const Outcome outcome =
      device_.shell("mkfifo /tmp/hold; (echo 'begin exclusive; select 1;'; cat /tmp/hold) | sqlite3 " +
                    std::string(LIBRARY) +
                    " > /tmp/locked & until grep -q 1 /tmp/locked; do sleep 0.05; done; harbix -s media; "
                    "echo > /tmp/hold; wait");
  EXPECT_EQ(outcome.output, size_text(EMPTY_REPORT + ONE_SMALL_FILE, 2)) << outcome.errors;
  EXPECT_THAT(
      device_.logged(LOG_PRIORITY_ERROR),
      ElementsAre("Error executing select count(*), sum(size) from files where ftype in (6,4,2,1); reason: "
                  "database is locked"));
}

TEST_F(MediaSize, IsWalkedWhereTheLibraryIsNoPlainFile) {
  add_one_small_file();
  for (const char* making : {"mkfifo -m 666", "mkdir", "ln -s /dev/zero"}) {
    std::filesystem::remove(device_.outside(LIBRARY));
    const Outcome outcome =
        device_.shell(std::string(making) + " " + LIBRARY + " && timeout -s KILL 20 harbix -s media");
    EXPECT_EQ(outcome.output, size_text(EMPTY_REPORT + ONE_SMALL_FILE, 2)) << making;
    EXPECT_THAT(device_.logged(LOG_PRIORITY_ERROR),
                ElementsAre("Problem opening DB to read Media " + std::string(LIBRARY) +
                            " reason: it is not a plain file"))
        << making;
  }
}

TEST_F(MediaSize, ComesFromTheLibraryThatALinkLeadsTo) {
  const Outcome outcome = device_.shell(
      "mkdir /tmp/real; ln -s /tmp/real/library.db " + std::string(LIBRARY) +
      "; mkfifo /tmp/hold; (echo 'pragma journal_mode=wal; create table files(ftype integer, size integer); "
      "insert into files values(1,100); select 1;'; cat /tmp/hold) | sqlite3 /tmp/real/library.db > "
      "/tmp/open &\n"
      "until grep -q 1 /tmp/open; do sleep 0.05; done; harbix -s media; echo > /tmp/hold; wait");
  EXPECT_EQ(outcome.output, size_text(EMPTY_REPORT + 100, 1)) << outcome.errors;
}

TEST_F(MediaSize, IsWalkedWhereTheLogOfTheLibraryIsOdd) {
  add_one_small_file();
  device_.write("/tmp/victim", "only root may read this", 0600);
  device_.own("/tmp/victim", "root", "root");
  const std::string log = std::string(LIBRARY) + "-wal";
  for (const std::string& making :
       {"ln /tmp/victim " + log, "mkfifo -m 666 " + log, "ln -s /tmp/victim " + log}) {
    std::filesystem::remove(device_.outside(LIBRARY));
    std::filesystem::remove(device_.outside(log));
    make_library(
        "pragma journal_mode=wal; create table files(ftype integer, size integer); insert into files "
        "values(1,100);");
    device_.own(LIBRARY, "media", "1000_shared");
    device_.own("/accounts/1000/db", "media", "1000_shared");
    const Outcome outcome = device_.shell(making + " && timeout -s KILL 20 harbix -s media");
    EXPECT_EQ(outcome.output, size_text(EMPTY_REPORT + ONE_SMALL_FILE, 2)) << making;
    EXPECT_EQ(device_.snapshot("/tmp").at("victim").owner, 0U) << making;
    EXPECT_EQ(device_.read("/tmp/victim"), "only root may read this") << making;
  }
}

TEST_F(MediaSize, IsWalkedWhereTheLibraryWouldRunWhatItsAuthorThoughtOf) {
  add_one_small_file();
  for (const char* sql :
       {// A view without an end.
        "create view files as with recursive c(ftype, size) as (select 1, 1 union all select 1, size + 1 "
        "from c) "
        "select * from c;",
        // A view that answers at once, but what it likes.
        "create view files(ftype, size) as select 1, 100;",
        // A size that takes a lot of memory.
        "create table files(ftype integer, size integer as (length(hex(zeroblob(100000000)))));"
        "insert into files values(1);",
        // Sizes that take minutes together.
        "create table files(ftype integer, zeros integer);"
        "with recursive c(n) as (select 1 union all select n + 1 from c where n < 20000) "
        "insert into files select 1, 1000000 from c;"
        "alter table files add column size integer as (length(replace(hex(zeroblob(zeros)),'0','ab')));",
        // Sums below zero, and beyond what a number holds.
        "create table files(ftype integer, size integer); insert into files values(1,-100);",
        "create table files(ftype integer, size integer); insert into files values(1,9000000000000000000), "
        "(1,9000000000000000000);"}) {
    std::filesystem::remove(device_.outside(LIBRARY));
    make_library(sql);
    const Outcome outcome = device_.shell("timeout -s KILL 60 harbix -s media");
    EXPECT_EQ(outcome.output, size_text(EMPTY_REPORT + ONE_SMALL_FILE, 2)) << sql;
  }
}

TEST_F(MediaSize, IsWalkedWhereTheLibraryChangesMeanwhile) {
  add_one_small_file();
  make_library("create table files(ftype integer, size integer); insert into files values(1,100);");
  const Outcome outcome = device_.shell(
      "export ASAN_OPTIONS=verify_asan_link_order=0 HARBIX_ACT_AT=open HARBIX_ACT_NTH=1 HARBIX_ACT_PATH=" +
      std::string(LIBRARY) + " HARBIX_ACT_COMMAND='touch -d 2001-01-01 " + LIBRARY +
      " && touch /tmp/acted'; LD_PRELOAD=/opt/harbix/bin/tests/libfailing_calls.so exec harbix -s media");
  ASSERT_TRUE(device_.exists("/tmp/acted"));
  EXPECT_EQ(outcome.output, size_text(EMPTY_REPORT + ONE_SMALL_FILE, 2)) << outcome.errors;
  EXPECT_THAT(device_.logged(LOG_PRIORITY_WARNING),
              ElementsAre(std::string(LIBRARY) + " changed while it was read"));
}

TEST_F(MediaSize, IsAskedOfTheLibraryAsItsOwnerAndNeverAsRoot) {
  add_one_small_file();
  struct Row {
    const char* user;
    std::filesystem::perms mode;
    std::string output;
  };
  constexpr auto OWNER_ALONE = std::filesystem::perms::owner_read;
  constexpr auto EVERYBODY =
      OWNER_ALONE | std::filesystem::perms::group_read | std::filesystem::perms::others_read;
  for (const Row& row : {Row{"apps", OWNER_ALONE, size_text(EMPTY_REPORT + 100, 1)},
                         Row{"root", EVERYBODY, size_text(EMPTY_REPORT + 100, 1)},
                         Row{"root", OWNER_ALONE, size_text(EMPTY_REPORT + ONE_SMALL_FILE, 2)}}) {
    std::filesystem::remove(device_.outside(LIBRARY));
    make_library("create table files(ftype integer, size integer); insert into files values(1,100);");
    device_.own(LIBRARY, row.user, row.user);
    std::filesystem::permissions(device_.outside(LIBRARY), row.mode);
    EXPECT_EQ(device_.harbix({"-s", "media"}).output, row.output) << row.user;
  }
}

TEST_F(MediaSize, StaysTheLargestNumberWhereHolesClaimMore) {
  const Outcome outcome = device_.shell(
      "mount -t tmpfs -o mode=0777 none /accounts/1000/shared; cd /accounts/1000/shared; mkdir -m 777 M; "
      "truncate -s 7E M/a M/b; chmod 666 M/*; harbix -s media");
  EXPECT_EQ(outcome.output, "bytesize=9223372036854775807\ncount=3\n") << outcome.errors;
}

TEST_F(MediaSize, CountsHeadersAndFullBlocks) {
  struct Row {
    std::string content;
    long bytes;
  };
  for (const Row& row :
       {Row{"", 512}, Row{"1", 1024}, Row{std::string(512, 'x'), 1024}, Row{std::string(513, 'x'), 1536}}) {
    device_.write(std::string(SHARED) + "/M/a", row.content);
    // The folder's header, the manifest's header and its one block come on top.
    EXPECT_EQ(device_.harbix({"-s", "media"}).output, size_text(EMPTY_REPORT + 3 * 512L + row.bytes, 2))
        << row.content.size();
  }
}

TEST_F(MediaSize, CountsEmptyFoldersAndLinks) {
  device_.make_folder(std::string(SHARED) + "/Empty");
  EXPECT_EQ(device_.harbix({"-s", "media"}).output, size_text(EMPTY_REPORT + 3 * 512L, 1));
  device_.link(std::string(SHARED) + "/Empty/link", "/nowhere");
  EXPECT_EQ(device_.harbix({"-s", "media"}).output, size_text(EMPTY_REPORT + 4 * 512L, 2));
}

TEST_F(MediaSize, LeavesOutTopLevelFilesAndTheDtmShare) {
  device_.write(std::string(SHARED) + "/top.mp3", "top");
  device_.write(std::string(DTM) + "/folder/file", "dtm");
  EXPECT_EQ(device_.harbix({"-s", "media"}).output, size_text(EMPTY_REPORT, 0));
}

TEST_F(MediaSize, OfTheWalkIsTheSizeOfTheArchive) {
  for (int i = 0; i < 40; ++i) {
    device_.write(std::string(SHARED) + "/Folder" + std::to_string(i % 4) + "/file" + std::to_string(i),
                  std::string(static_cast<std::size_t>(i) * 100, 'x'));
  }
  ASSERT_EQ(device_.harbix({"-f", "/tmp/a.tar", "media"}).status, 0);
  const auto archive_size = static_cast<long>(std::filesystem::file_size(device_.outside("/tmp/a.tar")));
  EXPECT_EQ(device_.harbix({"-s", "media"}).output, size_text(archive_size + 1024, 44));
}

TEST_F(MediaSize, ListsItsItemsWhenVerbose) {
  add_one_small_file();
  const Outcome outcome = device_.harbix({"-v", "-d", "3", "-s", "media"});
  EXPECT_EQ(outcome.errors, "Filename: \nKeywords: \nmedia\nArchiving\nMedia\nItem: M\nItem: M/a\n");
  EXPECT_THAT(device_.logged(LOG_PRIORITY_INFO), testing::IsSupersetOf({"Item: M", "Item: M/a"}));
}

TEST_F(MediaSize, GoesToTheNamedFile) {
  device_.write("/tmp/report", "an older and much longer report than the one that takes its place\n");
  const Outcome outcome = device_.harbix({"-d", "4", "-s", "-f", "/tmp/report", "media"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "");
  EXPECT_EQ(device_.read("/tmp/report"), size_text(EMPTY_REPORT, 0));
  EXPECT_THAT(device_.logged(LOG_PRIORITY_DEBUG), Contains(testing::StartsWith("Response: 'bytesize=2048")));
}

TEST_F(MediaSize, ThatCannotBeOpenedAnywhereIsNoError) {
  const Outcome outcome = device_.harbix({"-s", "-f", "/missing/report", "media"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output + outcome.errors, "");
}

TEST_F(MediaSize, ThatCannotBeWrittenIsAnError) {
  const Outcome outcome = device_.shell("harbix -s media > /dev/full");
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.errors, "ERROR: Size report could not be written: No space left on device\n");
}

}  // namespace
}  // namespace harbix::test
