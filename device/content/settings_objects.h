#pragma once

#include "device/tree_writer.h"

namespace device {

/// Fills /var/pps with some 200 objects of services: settings, states, "control" objects, accounts, profiles,
/// alarms, the wallpaper; of several owners and modes, some under odd names, some with an "@" part in the
/// name of their file. Every start of the device has them live below /pps.
void write_settings_objects(TreeWriter& tree);

}  // namespace device
