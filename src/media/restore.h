#pragma once

#include "archive/reader.h"

namespace harbix::media {

/// Empties the shared media folders, then restores the media section of the archive into them and into the
/// dtm share. Media files that survived are never overwritten; dtm files are. What lay below
/// "/media/bookmarks" goes below misc/lost_and_found.
/// @return 0, or 1 after an error that ended the restore and was reported; what was restored before it stays.
int restore(ArchiveReader& reader);

}  // namespace harbix::media
