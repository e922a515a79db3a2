#pragma once

#include "device/tree_writer.h"

namespace device {

/// Puts the home screen into the tree: the data of its components sys.navigator and sys.systemtray, the
/// navigator's two PPS objects, and the programs that stop and start it. Each of these appends a line to
/// /var/log/home-screen.log when it is run: its name and its arguments, separated by blanks.
/// To be called after write_settings_objects(), which makes /var/pps/system.
void write_home_screen(TreeWriter& tree);

}  // namespace device
