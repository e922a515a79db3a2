#pragma once

#include "device/tree_writer.h"

namespace device {

/// The program that makes a sample device live, a service of it: publishes at each start what no store keeps.
inline constexpr const char* LIVE_STATE_PROGRAM = "/base/bin/live-state";

/// Puts it into the tree. To be called with the objects of write_settings_objects().
void write_live_state(TreeWriter& tree);

}  // namespace device
