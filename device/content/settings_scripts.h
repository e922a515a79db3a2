#pragma once

#include "device/tree_writer.h"

namespace device {

/// Puts settings scripts into /base/scripts/backup_and_restore/settings. Called with "whitelist" or
/// "blacklist" they print one line for each path, "whitelist /path", among lines of their own and lines that
/// are no good; called with any other word they append their name and that word to /var/log/subscribers.log.
void write_settings_scripts(TreeWriter& tree);

}  // namespace device
