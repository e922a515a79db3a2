#include "media/library.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <exception>
#include <limits>
#include <memory>
#include <sstream>
#include <string>

#include <sqlite3.h>

#include "base/domains.h"
#include "base/file_descriptor.h"
#include "base/log.h"
#include "fs/accounts.h"
#include "fs/exception.h"
#include "fs/file.h"
#include "fs/identity.h"
#include "media/share.h"

namespace harbix {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::array<int, 4> MEDIA_TYPES{6, 4, 2, 1};
constexpr std::chrono::seconds PATIENCE{10};
constexpr int STEPS_BETWEEN_LOOKS_AT_THE_CLOCK = 1000;
constexpr sqlite3_int64 MOST_MEMORY = sqlite3_int64{64} << 20;

struct DatabaseCloser {
  // Nothing was written that closing could lose.
  void operator()(::sqlite3* database) const noexcept { ::sqlite3_close(database); }
};
using Database = std::unique_ptr<::sqlite3, DatabaseCloser>;

struct StatementFinalizer {
  // Repeats the result of the last step, which has been looked at.
  void operator()(::sqlite3_stmt* statement) const noexcept { ::sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<::sqlite3_stmt, StatementFinalizer>;

/// Takes the place of open(2) in SQLite: plain files with one name are opened, for reading alone. What the
/// owner may put beside the database, a fifo that nothing is ever written to or a link, is refused.
int open_plain_file(const char* path, int flags, int /*mode*/) {
  if ((flags & O_ACCMODE) != O_RDONLY) {
    errno = EACCES;
    return -1;
  }
  base::FileDescriptor file(::open(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  struct ::stat record {};
  if (!file || ::fstat(file.get(), &record) == -1) return -1;
  if (S_ISREG(record.st_mode) && record.st_nlink == 1) return file.release();
  errno = EACCES;
  return -1;
}

/// What tells whether a database changed: the file itself, and the log in which it grows.
class State {
 public:
  explicit State(const fs::Path& library)
      : database_(library), log_(fs::exists(log_of(library)) ? fs::File(log_of(library)) : fs::File()) {}

  [[nodiscard]] bool has_log() const noexcept { return log_.record().st_ino != 0; }
  [[nodiscard]] const struct ::stat& record() const noexcept { return database_.record(); }

  [[nodiscard]] bool is(const State& other) const noexcept {
    return is_same(database_, other.database_) && is_same(log_, other.log_);
  }

 private:
  static fs::Path log_of(const fs::Path& library) { return fs::Path(library.text() + "-wal"); }

  static bool is_same(const fs::File& one, const fs::File& other) noexcept {
    const struct ::stat& a = one.record();
    const struct ::stat& b = other.record();
    return one.is_same_object(b) && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
           a.st_mtim.tv_nsec == b.st_mtim.tv_nsec && a.st_ctim.tv_sec == b.st_ctim.tv_sec &&
           a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
  }

  fs::File database_;
  fs::File log_;
};

std::string query_text() {
  std::ostringstream text;
  text << "select count(*), sum(size) from files where ftype in (";
  const char* separator = "";
  for (const int type : MEDIA_TYPES) {
    text << separator << type;
    separator = ",";
  }
  text << ");";
  return text.str();
}

void report_unopened(const fs::Path& library, const char* reason) {
  diagnostics::line(0, "Problem opening DB to read Media %s reason: %s", library.c_str(), reason);
}

/// Whether a database is in write-ahead mode and was closed in good order: it then stands alone, without a
/// log.
bool is_closed_write_ahead(const fs::Path& library, const State& state) {
  constexpr off_t VERSION_OFFSET = 18;
  constexpr char WRITE_AHEAD_VERSION = 2;
  const base::FileDescriptor file(open_plain_file(library.c_str(), O_RDONLY, 0));
  char version = 0;
  return file && ::pread(file.get(), &version, 1, VERSION_OFFSET) == 1 && version == WRITE_AHEAD_VERSION &&
         !state.has_log();
}

/// The library's name with how it is to be opened. Reading a database in write-ahead mode normally creates
/// two files beside it, unless it is known not to change.
std::string uri(const fs::Path& library, const State& state) {
  const char* mode = is_closed_write_ahead(library, state) ? "&immutable=1" : "&readonly_shm=1";
  return "file:" + library.text() + "?mode=ro" + mode;
}

/// Lets SQLite open nothing but what open_plain_file() opens, until the end of the scope.
class PlainFilesAlone {
 public:
  PlainFilesAlone() : status_(::sqlite3_initialize()), system_(::sqlite3_vfs_find(nullptr)) {
    if (status_ == SQLITE_OK && !is_open_to_change()) status_ = SQLITE_ERROR;
    if (status_ == SQLITE_OK) status_ = set_open(reinterpret_cast<sqlite3_syscall_ptr>(open_plain_file));
  }
  ~PlainFilesAlone() {
    // The system's own call again; fails only where it could not be changed before.
    if (is_open_to_change()) static_cast<void>(set_open(nullptr));
  }
  PlainFilesAlone(const PlainFilesAlone&) = delete;
  PlainFilesAlone& operator=(const PlainFilesAlone&) = delete;
  PlainFilesAlone(PlainFilesAlone&&) = delete;
  PlainFilesAlone& operator=(PlainFilesAlone&&) = delete;

  /// SQLITE_OK when it holds.
  [[nodiscard]] int status() const noexcept { return status_; }

 private:
  static constexpr int FIRST_VERSION_WITH_CALLS = 3;

  [[nodiscard]] bool is_open_to_change() const noexcept {
    return system_ != nullptr && system_->iVersion >= FIRST_VERSION_WITH_CALLS;
  }
  int set_open(sqlite3_syscall_ptr call) { return system_->xSetSystemCall(system_, "open", call); }

  int status_;
  ::sqlite3_vfs* system_;
};

/// Takes from a database what its schema could do on its own.
int disarm(::sqlite3* database) {
  const int status = ::sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  return status == SQLITE_OK ? ::sqlite3_db_config(database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr)
                             : status;
}

Database open_library(const fs::Path& library, const State& state, int status) {
  ::sqlite3* handle = nullptr;
  if (status == SQLITE_OK) {
    ::sqlite3_hard_heap_limit64(MOST_MEMORY);
    status = ::sqlite3_open_v2(uri(library, state).c_str(), &handle, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI,
                               nullptr);
  }
  Database database(handle);  // a handle is made even where opening fails, and holds the reason
  if (status == SQLITE_OK) status = disarm(handle);
  if (status != SQLITE_OK) {
    report_unopened(library, handle == nullptr ? ::sqlite3_errstr(status) : ::sqlite3_errmsg(handle));
    return nullptr;
  }
  diagnostics::line(3, "DB %s opened successfully", library.c_str());
  return database;
}

Statement prepare(::sqlite3* database, const std::string& query) {
  ::sqlite3_stmt* handle = nullptr;
  const int status =
      ::sqlite3_prepare_v2(database, query.c_str(), static_cast<int>(query.size()), &handle, nullptr);
  if (status != SQLITE_OK) {
    diagnostics::line(0, "Error executing %s reason: %s", query.c_str(), ::sqlite3_errmsg(database));
  }
  return Statement(handle);
}

/// Whether "files" is a table with contents of its own. A view, or a table of a module, runs what its author
/// thought of.
bool is_table(::sqlite3* database) {
  const Statement statement = prepare(
      database, "select 1 from sqlite_master where type='table' and lower(name)='files' and rootpage>0;");
  return statement != nullptr && ::sqlite3_step(statement.get()) == SQLITE_ROW;
}

/// For a database: nonzero when its deadline, a Clock::time_point, has passed.
int has_expired(void* deadline) { return Clock::now() < *static_cast<Clock::time_point*>(deadline) ? 0 : 1; }

std::optional<SizeResult> run_query(::sqlite3* database) {
  Clock::time_point deadline = Clock::now() + PATIENCE;
  ::sqlite3_progress_handler(database, STEPS_BETWEEN_LOOKS_AT_THE_CLOCK, has_expired, &deadline);
  const Statement statement = prepare(database, query_text());
  if (statement == nullptr || !is_table(database)) return std::nullopt;
  if (::sqlite3_step(statement.get()) != SQLITE_ROW) return std::nullopt;

  const sqlite3_int64 files = ::sqlite3_column_int64(statement.get(), 0);
  if (files < 1) {
    diagnostics::line(1,
                      "No rows found in 'files' table of 'mmlibrary.db': "
                      "select count(*), sum(size) from files where ftype in (6,4,2,1)");
    return std::nullopt;
  }
  if (::sqlite3_column_count(statement.get()) != 2) {
    diagnostics::line(1,
                      "Expected 2 columns for query of 'files' table of 'mmlibrary.db': "
                      "select count(*), sum(size) from files where ftype in (6,4,2,1)");
    return std::nullopt;
  }
  const sqlite3_int64 bytes = ::sqlite3_column_int64(statement.get(), 1);
  if (bytes < 0) return std::nullopt;
  constexpr sqlite3_int64 MOST_FILES = std::numeric_limits<std::int32_t>::max();
  return SizeResult{.bytes = bytes, .files = static_cast<std::int32_t>(std::min(files, MOST_FILES))};
}

std::optional<SizeResult> ask(const fs::Path& library, const State& state) {
  const bool is_root = state.record().st_uid == fs::SUPERUSER;
  const fs::EffectiveGroup group(is_root ? media_groups().shared : state.record().st_gid);
  const fs::EffectiveUser user(is_root ? fs::user_id(domains::MEDIA_USER) : state.record().st_uid);
  const PlainFilesAlone plain_files_alone;
  const Database database = open_library(library, state, plain_files_alone.status());
  return database == nullptr ? std::nullopt : run_query(database.get());
}

/// The library behind its links; nothing, which is logged, where there is none.
std::optional<fs::Path> resolve(const fs::Path& library) {
  try {
    fs::Path path = library.realpath();
    if (fs::File(path).is_regular()) return path;
    report_unopened(library, "it is not a plain file");
  } catch (const fs::Exception&) {
    report_unopened(library, ::sqlite3_errstr(SQLITE_CANTOPEN));
  }
  return std::nullopt;
}

std::optional<SizeResult> query_plain_library(const fs::Path& library) {
  const State before(library);
  const std::optional<SizeResult> result = ask(library, before);
  if (!result) return std::nullopt;
  if (!before.is(State(library))) {
    diagnostics::line(1, "%s changed while it was read", library.c_str());
    return std::nullopt;
  }
  diagnostics::line(0, "The number of files is: %ld  Their total size is %lld",
                    static_cast<long>(result->files), static_cast<long long>(result->bytes));
  return result;
}

}  // namespace

std::optional<SizeResult> query_library(const fs::Path& library) {
  try {
    const std::optional<fs::Path> path = resolve(library);
    return path ? query_plain_library(*path) : std::nullopt;
  } catch (const std::exception& error) {
    diagnostics::line(0, "harbix_media() exception: '%s'. Continuing by querying FS", error.what());
  } catch (...) {
    diagnostics::line(0, "harbix_media() exception. Continuing by querying FS");
  }
  return std::nullopt;
}

}  // namespace harbix
