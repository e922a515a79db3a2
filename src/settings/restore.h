#pragma once

#include "archive/reader.h"

namespace harbix::settings {

/// Restores the settings section of the archive: what this device would itself back up today, each item as
/// its owner. The settings subscribers are told before and after, on every way out.
/// @return 0, or 1 after an error that ended the restore and was reported; what was restored before it stays.
int restore(ArchiveReader& reader);

}  // namespace harbix::settings
