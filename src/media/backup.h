#pragma once

#include "archive/writer.h"
#include "base/size_result.h"

namespace harbix {

/// Backs up the shared media folders and the dtm share into `writer`; in size-only mode nothing is written,
/// and what the shared media would take goes into `result`: from the media library, or from a walk where that
/// cannot tell. Items that are protected, unreadable or gone are left out with a message.
/// @return 0, or 1 after an error that ended the backup and was reported.
int harbix_media(ArchiveWriter& writer, bool size_only, SizeResult& result);

}  // namespace harbix
