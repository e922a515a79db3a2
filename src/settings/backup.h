#pragma once

#include "archive/writer.h"
#include "base/size_result.h"

namespace harbix::settings {

/// Backs up the settings into `writer`, and notifies the settings subscribers before and after. An item that
/// cannot be archived is reported and left out.
/// @return 0, or 1 when a folder could not be listed, which is reported.
/// @throws ArchiveError when the archive cannot be written any further; fs::Exception when the store of PPS
/// objects is missing.
int back_up(ArchiveWriter& writer);

/// Adds the number of items to `result`, and writes their headers alone: what they would take is then the
/// byte count of the archive. No subscriber is notified.
/// @return and @throws as back_up does.
int measure(ArchiveWriter& writer, SizeResult& result);

}  // namespace harbix::settings
