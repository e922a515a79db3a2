#pragma once

#include "archive/writer.h"
#include "fs/file.h"

namespace harbix {

/// Whether an item can go into the archive: plain files, folders and links can, but for the archive itself.
/// Another one is told of on standard error and in the log at level 1; it must be left out of the manifest as
/// well.
[[nodiscard]] bool is_archivable(const fs::File& item, const ArchiveWriter& writer);

}  // namespace harbix
