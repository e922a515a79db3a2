#pragma once

#include "fs/file.h"

namespace harbix {

/// Whether backup and wipe leave an item alone: items of the protected media group without a word (-v: "Skip:
/// PATH"), and items that the effective ids may not read with a line in the log at level 1 (-v: "permission
/// denied: PATH skipping").
[[nodiscard]] bool is_skipped(const fs::File& item);

/// Says that an item cannot be read, as is_skipped() does.
void report_unreadable(const fs::Path& path);

}  // namespace harbix
