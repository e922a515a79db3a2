#pragma once

#include <string>

#include "device/tree_writer.h"

namespace device {

/// Makes the SQLite database `path` of the system tray's clock: a table "alarms" with two rows.
/// @throws Failure quoting the path.
void write_clock_database(const TreeWriter& tree, const std::string& path, Owner owner, mode_t mode);

}  // namespace device
