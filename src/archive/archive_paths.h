#pragma once

#include <span>

#include "archive/writer.h"

namespace harbix {

/// Archives each path, relative to the working directory, under the name `base` joined with it. A path that
/// cannot be archived (it vanished, it cannot be opened) costs its message.
/// @throws ArchiveError when the archive cannot be written any further.
void archive_paths(ArchiveWriter& writer, std::span<const fs::Path> paths, const fs::Path& base);

}  // namespace harbix
