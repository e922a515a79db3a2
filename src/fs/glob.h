#pragma once

#include <vector>

#include "fs/path.h"

namespace fs {

/// The paths that match a shell pattern, in the order of the platform's facility; none is no error.
/// @throws fs::Exception "Glob pattern '...' failed." when a directory on the way cannot be read.
[[nodiscard]] std::vector<Path> glob(const Path& pattern);

/// Everything directly below `directory` whose name does not begin with '.'.
/// @throws as glob does.
[[nodiscard]] std::vector<Path> list_by_glob(const Path& directory);

}  // namespace fs
