#include "device/content/contents.h"
#include "device/content/database.h"
#include "device/failure.h"

namespace device {

void write_clock_database(const TreeWriter& tree, const std::string& path, Owner owner, mode_t mode) {
  constexpr const char* CONTENT =
      "pragma journal_mode = off; pragma synchronous = off;"
      "create table alarms(id integer primary key, time text not null, enabled integer not null);"
      "insert into alarms values(1, '06:30', 1), (2, '09:00', 0);";
  sqlite3* opened = nullptr;
  const int result = sqlite3_open(tree.host_path(path).c_str(), &opened);
  // Given even when it could not be opened.
  const Database database(opened);
  if (result != SQLITE_OK || sqlite3_exec(database.get(), CONTENT, nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw Failure("cannot fill '" + path + "': " + sqlite3_errmsg(database.get()));
  }
  tree.adopt_file(path, owner, mode);
}

}  // namespace device
