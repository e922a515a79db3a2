#pragma once

#include "device/tree_writer.h"

namespace device {

/// Fills the dtm share /accounts/1000/sys/dtm: a tree of folders, a plain file and a link at its top.
void write_dtm_share(TreeWriter& tree);

}  // namespace device
