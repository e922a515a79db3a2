#pragma once

#include <cstdint>

namespace harbix {

/// What a keyword would put into an archive; filled by the archive operations in size-only mode.
struct SizeResult {
  std::int64_t bytes = 0;
  std::int32_t files = 0;
};

}  // namespace harbix
