#pragma once

#include "archive/reader.h"
#include "fs/folder.h"

namespace harbix {

/// Empties every top-level folder of the shared media, as far as the skip test and the effective ids allow;
/// the folders themselves stay, and so does the archive that is being restored. Failures are logged at level
/// 1 and never thrown. Expects the identity under which media is handled.
/// @throws fs::Exception when the shared media cannot be listed.
void wipe_shared_media(fs::Folder& share, const ArchiveReader& reader);

}  // namespace harbix
