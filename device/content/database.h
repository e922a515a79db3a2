#pragma once

#include <memory>

#include <sqlite3.h>

namespace device {

struct DatabaseCloser {
  // Whatever is lost here is missed by what reads the database: the content of a device is tested.
  void operator()(sqlite3* database) const noexcept { sqlite3_close(database); }
};

/// An open database of SQLite's, or what is left of one that could not be opened.
using Database = std::unique_ptr<sqlite3, DatabaseCloser>;

}  // namespace device
