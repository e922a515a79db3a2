#pragma once

#include <optional>

#include "base/size_result.h"
#include "fs/path.h"

namespace harbix {

/// Number and total size of the media files that the media library knows: the sum of the file sizes, without
/// headers or rounding. Nothing when the library cannot tell (missing, damaged, locked, of another shape,
/// without media), which is logged. Nothing is created or changed. Source: the table `files` of the SQLite
/// database `library`, columns `ftype` (media type) and `size` (bytes).
[[nodiscard]] std::optional<SizeResult> query_library(const fs::Path& library);

}  // namespace harbix
