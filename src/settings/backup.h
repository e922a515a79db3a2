#pragma once

#include "archive/writer.h"
#include "base/size_result.h"

namespace harbix {

/// Backs up the settings into `writer`, with the settings subscribers told before and after. In size-only
/// mode no subscriber is told, only headers are written, which drives the archive's byte count, and the
/// number of items goes into `result`. An item that cannot be archived costs its message.
/// @return 0.
/// @throws ArchiveError when the archive cannot be written any further; fs::Exception when the settings
/// cannot be listed.
int harbix_settings(ArchiveWriter& writer, bool size_only, SizeResult& result);

}  // namespace harbix
