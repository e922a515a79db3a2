#pragma once

#include <optional>

#include "base/size_result.h"
#include "fs/path.h"

namespace harbix {

/// Number and total size of the media files that the media library knows: the sum of the file sizes, without
/// headers or rounding. Nothing when the library cannot tell, which is logged: it is missing, damaged,
/// locked, of another shape, without media, changed meanwhile, or not answered within ten seconds and 64 MiB.
/// Nothing is created or changed.
///
/// The library belongs to another program. It is asked as its owner, or as the media user where that is root:
/// what SQLite does as root with the files beside a database, the owner of their folder can turn against any
/// file. Source: the table `files` of the SQLite database `library`, columns `ftype` (media type) and `size`
/// (bytes). A link is followed first.
[[nodiscard]] std::optional<SizeResult> query_library(const fs::Path& library);

}  // namespace harbix
