#pragma once

#include "device/tree_writer.h"

namespace device {

/// Puts subscriber scripts into /base/scripts/backup_and_restore and its folder settings. Each appends one
/// line to /var/log/subscribers.log when it is run: its name, a blank and its argument, "media-server
/// backup_start".
void write_subscriber_scripts(TreeWriter& tree);

}  // namespace device
