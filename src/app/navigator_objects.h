#pragma once

#include "archive/writer.h"

namespace harbix {

/// Writes the package of the navigator's PPS objects, with those of them that exist.
/// @throws ArchiveError when the archive cannot be written any further.
void archive_navigator_objects(ArchiveWriter& writer);

}  // namespace harbix
