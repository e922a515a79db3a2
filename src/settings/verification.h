#pragma once

#include <span>
#include <string>
#include <vector>

#include "fs/path.h"

namespace harbix {

/// What this device would back up today: the measure for what may be restored.
struct AllowedSettings {
  std::vector<fs::Path> paths;  ///< sorted
  std::vector<fs::Path> whitelist;
  std::vector<fs::Path> blacklist;
};

/// Whether the text of a path has what no setting's has: "." or ".." as a component, or an empty one.
[[nodiscard]] bool has_tricks(const std::string& text);

/// Whether an entry may be restored to `candidate`, an absolute path. Refusals of what the device does not
/// count as settings are silent; a path with tricks in it is refused with a line on standard error.
[[nodiscard]] bool verify_restore_path(const AllowedSettings& allowed, const fs::Path& candidate);

}  // namespace harbix
