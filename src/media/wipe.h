#pragma once

#include "archive/reader.h"
#include "fs/folder.h"

namespace harbix {

/// Empties every top-level folder of the shared media, as far as the skip test and the effective ids allow;
/// the folders themselves stay, and so do those whose names begin with a dot, which no backup holds, and the
/// archive that is being restored. Failures are logged at level 1 and never thrown. Expects the identity
/// under which media is handled.
/// @throws fs::Exception when the share cannot be listed; everything is still there then.
void wipe_shared_media(fs::Folder& share, const ArchiveReader& reader);

}  // namespace harbix
