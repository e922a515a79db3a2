#include "media/library.h"

#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "tests/support/folder.h"
#include "tests/support/recorded_log.h"
#include "tests/support/tree.h"

namespace harbix::test {
namespace {

using fs::Path;
using harbix::query_library;

constexpr const char* QUERY = "select count(*), sum(size) from files where ftype in (6,4,2,1)";

struct DatabaseCloser {
  void operator()(::sqlite3* database) const noexcept { ::sqlite3_close(database); }
};
using Database = std::unique_ptr<::sqlite3, DatabaseCloser>;

Database open_database(const std::string& path) {
  ::sqlite3* handle = nullptr;
  EXPECT_EQ(::sqlite3_open(path.c_str(), &handle), SQLITE_OK);
  return Database(handle);
}

void execute(::sqlite3* database, const std::string& statements) {
  EXPECT_EQ(::sqlite3_exec(database, statements.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
      << statements << ": " << ::sqlite3_errmsg(database);
}

/// Gives a library to the user that it is asked as.
void own(const std::string& path) {
  constexpr uid_t OWNER = 4001;
  ASSERT_EQ(::chown(path.c_str(), OWNER, OWNER), 0);
}

class MediaLibrary : public ::testing::Test {
 protected:
  void create(const std::string& statements) {
    execute(open_database(path_).get(), statements);
    own(path_);
  }
  void write(const std::string& content) {
    write_file(path_, content);
    own(path_);
  }

  [[nodiscard]] std::string opened() const { return "5 DB " + path_ + " opened successfully"; }

  TemporaryFolder folder_;
  std::string path_ = folder_ / "mmlibrary.db";
};

TEST_F(MediaLibrary, CountsTheFilesOfTheMediaTypes) {
  create(
      "create table files (fid integer, ftype integer, size integer, name text);"
      "insert into files values (1, 6, 1000, 'a'), (2, 4, 20, 'b'), (3, 2, 3, 'c'), (4, 1, 400000, 'd'),"
      "(5, 0, 7, 'e'), (6, 3, 7, 'f'), (7, 5, 7, 'g'), (8, 7, 7, 'h'), (9, null, 7, 'i'), (10, 6, null, "
      "'j');");
  const RecordedLog log(5);
  const auto result = query_library(Path(path_));
  ASSERT_TRUE(result);
  EXPECT_EQ(result->bytes, 401023);
  EXPECT_EQ(result->files, 5);
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{opened(), "2 The number of files is: 5  Their total size is 401023"}));
}

TEST_F(MediaLibrary, AddsSizesIn64Bits) {
  create(
      "create table files (ftype integer, size integer);"
      "insert into files values (6, 5000000000000), (1, 5000000000000);");
  const auto result = query_library(Path(path_));
  ASSERT_TRUE(result);
  EXPECT_EQ(result->bytes, 10000000000000);
}

TEST_F(MediaLibrary, WithoutMediaCannotTell) {
  for (const char* rows : {"", "insert into files values (3, 5), (0, 5);"}) {
    ::unlink(path_.c_str());
    create(std::string("create table files (ftype integer, size integer);") + rows);
    const RecordedLog log;
    EXPECT_FALSE(query_library(Path(path_)));
    EXPECT_EQ(log.messages(),
              (std::vector<std::string>{std::string("3 No rows found in 'files' table of 'mmlibrary.db': ") +
                                        QUERY}));
  }
}

TEST_F(MediaLibrary, ThatIsMissingIsToldAndNotCreated) {
  const RecordedLog log(5);
  EXPECT_FALSE(query_library(Path(path_)));
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"2 Problem opening DB to read Media " + path_ +
                                                      " reason: unable to open database file"}));
  EXPECT_TRUE(Tree{}.matches(folder_.path()));
}

TEST_F(MediaLibrary, OfAnotherSchemaIsTold) {
  struct Row {
    const char *statements, *reason;
  };
  for (const Row& row : {Row{"create table other (ftype integer, size integer);", "no such table: files"},
                         Row{"create table files (ftype integer);", "no such column: size"},
                         Row{"create table files (size integer);", "no such column: ftype"}}) {
    ::unlink(path_.c_str());
    create(row.statements);
    const RecordedLog log;
    EXPECT_FALSE(query_library(Path(path_)));
    EXPECT_EQ(log.messages(), (std::vector<std::string>{std::string("2 Error executing ") + QUERY +
                                                        "; reason: " + row.reason}));
  }
}

TEST_F(MediaLibrary, ThatIsNoDatabaseIsTold) {
  for (const std::string& content :
       {std::string(4096, 'x'), std::string("no database, but longer than a header, "
                                            "which is a hundred bytes, and then some "
                                            "more text to be well beyond all of it")}) {
    write(content);
    const RecordedLog log;
    EXPECT_FALSE(query_library(Path(path_)));
    EXPECT_EQ(log.messages(), (std::vector<std::string>{std::string("2 Error executing ") + QUERY +
                                                        "; reason: file is not a "
                                                        "database"}));
    EXPECT_EQ(read_file(path_), content);
  }
}

TEST_F(MediaLibrary, OfZeroBytesHasNoTable) {
  write("");
  const RecordedLog log;
  EXPECT_FALSE(query_library(Path(path_)));
  EXPECT_EQ(log.messages(), (std::vector<std::string>{std::string("2 Error executing ") + QUERY +
                                                      "; reason: no such table: files"}));
  EXPECT_EQ(read_file(path_), "");
}

TEST_F(MediaLibrary, ThatIsDamagedInsideCannotTell) {
  std::string rows = "create table files (ftype integer, size integer, name text); begin;";
  for (int i = 0; i < 500; ++i) rows += "insert into files values (6, 1, '" + std::string(100, 'n') + "');";
  create(rows + "commit;");
  std::string content = read_file(path_);
  ASSERT_LT(12288U, content.size());
  content.replace(4096, 8192, std::string(8192, '\xFF'));
  write(content);
  EXPECT_FALSE(query_library(Path(path_)));
  EXPECT_EQ(read_file(path_), content);
}

TEST_F(MediaLibrary, ThatIsLockedCannotTell) {
  create("create table files (ftype integer, size integer); insert into files values (6, 1);");
  const Database other = open_database(path_);
  execute(other.get(), "begin exclusive;");
  const RecordedLog log;
  EXPECT_FALSE(query_library(Path(path_)));
  EXPECT_EQ(log.messages(), (std::vector<std::string>{std::string("2 Error executing ") + QUERY +
                                                      "; reason: database is locked"}));
  execute(other.get(), "rollback;");
  EXPECT_TRUE(query_library(Path(path_)));
}

TEST_F(MediaLibrary, IsLeftAsItWasWithNothingBesideIt) {
  for (const char* mode : {"delete", "wal", "truncate", "persist"}) {
    ::unlink(path_.c_str());
    create(std::string("pragma journal_mode=") + mode +
           "; create table files (ftype integer, size integer); insert into files values (6, 1);");
    ::unlink((path_ + "-journal").c_str());
    const Tree before = Tree::read(folder_.path());
    ASSERT_EQ(before.items().size(), 1U) << mode;
    EXPECT_TRUE(query_library(Path(path_))) << mode;
    EXPECT_TRUE(before.matches(folder_.path())) << mode;
  }
}

TEST_F(MediaLibrary, InUseInWriteAheadModeTellsWhatWasCommitted) {
  const Database writer = open_database(path_);
  execute(writer.get(),
          "pragma journal_mode=wal; create table files (ftype integer, size integer);"
          "insert into files values (6, 1); begin; insert into files values (6, 2);");
  own(path_);
  const std::string content = read_file(path_);
  const auto result = query_library(Path(path_));
  ASSERT_TRUE(result);
  EXPECT_EQ(result->bytes, 1);
  EXPECT_EQ(result->files, 1);
  EXPECT_EQ(read_file(path_), content);
  // The writer's own two files stay; nothing joins them.
  EXPECT_EQ(Tree::read(folder_.path()).items().size(), 3U);
}

TEST_F(MediaLibrary, LeftByAKilledWriterIsNotTouched) {
  TemporaryFolder dead;
  {
    const Database writer = open_database(path_);
    execute(writer.get(),
            "pragma journal_mode=wal; create table files (ftype integer, size integer);"
            "insert into files values (6, 1);");
    write_file(dead / "mmlibrary.db", read_file(path_));
    write_file(dead / "mmlibrary.db-wal", read_file(path_ + "-wal"));
  }
  own(dead / "mmlibrary.db");
  const Tree before = Tree::read(dead.path());
  const RecordedLog log;
  EXPECT_FALSE(query_library(Path(dead / "mmlibrary.db")));
  EXPECT_EQ(log.lines().size(), 1U);
  EXPECT_TRUE(before.matches(dead.path()));
}

}  // namespace
}  // namespace harbix::test
