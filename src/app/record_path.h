#pragma once

#include "fs/path.h"

namespace harbix {

/// Whether a file record's path is one that its package may hold: in normal form, no '/' at its end, and
/// strictly below `base` on a component boundary. By its text alone.
[[nodiscard]] bool is_record_path_below(const fs::Path& path, const fs::Path& base);

}  // namespace harbix
