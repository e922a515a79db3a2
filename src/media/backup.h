#pragma once

#include "archive/writer.h"
#include "base/size_result.h"

namespace harbix::media {

/// Backs up the shared media folders and the dtm share into `writer`. Items that are protected, unreadable or
/// gone are left out with a message.
/// @return 0, or 1 when a folder could not be listed, or after an error that ended the backup; either is
/// reported.
int back_up(ArchiveWriter& writer);

/// What the shared media would take, from the media library, or from a walk where that cannot tell. Nothing
/// is written.
/// @return as back_up does.
int measure(ArchiveWriter& writer, SizeResult& result);

}  // namespace harbix::media
