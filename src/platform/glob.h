#pragma once

#include <string>
#include <vector>

namespace platform {

/// What expanding a pattern came to.
struct GlobResult {
  int status = 0;                  ///< 0 for success (no match included), else the facility's code
  std::vector<std::string> paths;  ///< in the facility's order; empty unless status is 0
};

/// Expands `pattern` as the shell would, stopping at a directory that cannot be read.
/// A missing directory is "no match". When the status is not 0, errno is as the facility left it.
[[nodiscard]] GlobResult glob(const std::string& pattern);

}  // namespace platform
