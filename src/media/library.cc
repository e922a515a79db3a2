#include "media/library.h"

#include <array>
#include <exception>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include <sqlite3.h>

#include "base/log.h"
#include "fs/file.h"

namespace harbix {
namespace {

constexpr std::array<int, 4> MEDIA_TYPES{6, 4, 2, 1};

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

/// Whether a database is in write-ahead mode and was closed in good order: it then stands alone, without a
/// "-wal" file.
bool is_closed_write_ahead(const fs::Path& library) {
  constexpr std::streamoff VERSION_OFFSET = 18;
  constexpr int WRITE_AHEAD_VERSION = 2;
  std::ifstream stream(library.text(), std::ios::binary);
  return stream.seekg(VERSION_OFFSET) && stream.get() == WRITE_AHEAD_VERSION &&
         !fs::exists(fs::Path(library.text() + "-wal"));
}

/// The library's name with how it is to be opened. Reading a database in write-ahead mode normally creates
/// two files beside it, unless it is known not to change.
std::string uri(const fs::Path& library) {
  const char* mode = is_closed_write_ahead(library) ? "&immutable=1" : "&readonly_shm=1";
  return "file:" + library.text() + "?mode=ro" + mode;
}

Database open_library(const fs::Path& library) {
  ::sqlite3* handle = nullptr;
  int status = ::sqlite3_initialize();
  if (status == SQLITE_OK) {
    status =
        ::sqlite3_open_v2(uri(library).c_str(), &handle, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
  }
  Database database(handle);  // a handle is made even where opening fails, and holds the reason
  if (status != SQLITE_OK) {
    diagnostics::line(0, "Problem opening DB to read Media %s reason: %s", library.c_str(),
                      handle == nullptr ? ::sqlite3_errstr(status) : ::sqlite3_errmsg(handle));
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

std::optional<SizeResult> run_query(::sqlite3* database) {
  const Statement statement = prepare(database, query_text());
  if (statement == nullptr || ::sqlite3_step(statement.get()) != SQLITE_ROW) return std::nullopt;

  const int files = ::sqlite3_column_int(statement.get(), 0);
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
  const long long bytes = ::sqlite3_column_int64(statement.get(), 1);
  diagnostics::line(0, "The number of files is: %ld  Their total size is %lld", static_cast<long>(files),
                    bytes);
  return SizeResult{.bytes = bytes, .files = files};
}

}  // namespace

std::optional<SizeResult> query_library(const fs::Path& library) {
  try {
    const Database database = open_library(library);
    return database == nullptr ? std::nullopt : run_query(database.get());
  } catch (const std::exception& error) {
    diagnostics::line(0, "harbix_media() exception: '%s'. Continuing by querying FS", error.what());
  } catch (...) {
    diagnostics::line(0, "harbix_media() exception. Continuing by querying FS");
  }
  return std::nullopt;
}

}  // namespace harbix
