#pragma once

#include "device/tree_writer.h"

namespace device {

/// Makes what every device has, in the empty root of `tree`: the folders of a system, its accounts, the mount
/// points that each start covers, and the folders that hold the user's data. No sample content.
/// @throws Failure as TreeWriter does.
void write_well_known_folders(TreeWriter& tree);

}  // namespace device
