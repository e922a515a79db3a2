#pragma once

#include "device/tree_writer.h"

namespace device {

/// Puts installed applications into the tree, and the ledger of the installer that knows them: four from the
/// storefront, two of other sources, two built-in ones, the runtime that is listed like an application, and
/// one that was uninstalled.
void write_applications(TreeWriter& tree);

}  // namespace device
