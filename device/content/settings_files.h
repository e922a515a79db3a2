#pragma once

#include "device/tree_writer.h"

namespace device {

/// Fills what the sample settings scripts name, and some of what they do not: plain files and folders of
/// several owners and modes below /accounts/1000/settings, /accounts/1000/sys/keyboard, /base/etc and
/// /var/etc, under odd names too, and links into and out of them.
void write_settings_files(TreeWriter& tree);

}  // namespace device
