#pragma once

#include <sys/stat.h>

#include "fs/path.h"

namespace harbix {

/// Whether a regular file's header is the same with and without the extensions of pax: everything fits the
/// fields that ustar has. False also where the library may see it otherwise.
[[nodiscard]] bool is_plain_header(const struct ::stat& record, const fs::Path& name);

}  // namespace harbix
