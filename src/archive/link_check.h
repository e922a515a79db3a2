#pragma once

#include <string_view>

#include "fs/path.h"

namespace harbix {

/// Whether a symbolic link at `path` leads to something inside `folder`, by its text alone. A relative target
/// counts from the link's own folder.
[[nodiscard]] bool leads_inside(const fs::Path& path, std::string_view link_target, const fs::Path& folder);

}  // namespace harbix
