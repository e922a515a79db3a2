#include <memory>
#include <string>
#include <string_view>

#include <sqlite3.h>

#include "device/content/contents.h"
#include "device/content/database.h"
#include "device/failure.h"

namespace device {
namespace {

constexpr std::string_view DATABASE = "/accounts/1000/db/mmlibrary.db";

struct StatementCloser {
  void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};

/// The database while it is being filled. A device whose filling was killed is filled again from the start,
/// so that neither a journal nor waiting for the disk is of use.
class Library {
 public:
  explicit Library(const std::string& path) {
    sqlite3* opened = nullptr;
    const int result = sqlite3_open(path.c_str(), &opened);
    database_.reset(opened);
    check(result, SQLITE_OK);
    execute("pragma journal_mode = off; pragma synchronous = off;");
    execute(
        "create table files(fid integer primary key, ftype integer not null, size integer not null,"
        " filename text not null, folder text not null, date_modified integer not null);");
  }

  void fill(const std::vector<MediaRecord>& records) {
    execute("begin;");
    sqlite3_stmt* prepared = nullptr;
    check(sqlite3_prepare_v2(database_.get(), "insert into files values(null, ?, ?, ?, ?, ?);", -1, &prepared,
                             nullptr),
          SQLITE_OK);
    const std::unique_ptr<sqlite3_stmt, StatementCloser> statement(prepared);
    for (const MediaRecord& record : records) insert(statement.get(), record);
    execute("commit;");
  }

 private:
  void insert(sqlite3_stmt* statement, const MediaRecord& record) {
    const std::size_t name = record.path.rfind('/') + 1;  // 0 where there is no folder
    check(sqlite3_bind_int(statement, 1, static_cast<int>(record.type)), SQLITE_OK);
    check(sqlite3_bind_int64(statement, 2, static_cast<sqlite3_int64>(record.size)), SQLITE_OK);
    bind_text(statement, 3, std::string_view(record.path).substr(name));
    bind_text(statement, 4, "/accounts/1000/shared/" + record.path.substr(0, name));
    check(sqlite3_bind_int64(statement, 5, sqlite3_int64{1388534400}), SQLITE_OK);
    check(sqlite3_step(statement), SQLITE_DONE);
    check(sqlite3_reset(statement), SQLITE_OK);
  }

  void bind_text(sqlite3_stmt* statement, int column, std::string_view text) {
    check(sqlite3_bind_text(statement, column, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT),
          SQLITE_OK);
  }

  void execute(const char* text) {
    check(sqlite3_exec(database_.get(), text, nullptr, nullptr, nullptr), SQLITE_OK);
  }

  void check(int result, int wanted) {
    if (result == wanted) return;
    throw Failure("cannot fill '" + std::string(DATABASE) + "': " + sqlite3_errmsg(database_.get()));
  }

  Database database_;
};

}  // namespace

void write_media_library(TreeWriter& tree, const std::vector<MediaRecord>& records) {
  Library(tree.host_path(DATABASE)).fill(records);
  tree.adopt_file(DATABASE, SYS_OWNER, 0644);
}

}  // namespace device
