#pragma once

#include "archive/reader.h"

namespace harbix::media {

/// Empties the shared media folders, then restores the media section of the archive into them and into the
/// dtm share. Nothing is removed for an archive that holds no media or more than there can be room for; nor
/// for one that is damaged, whose media are restored beside what is there, as far as it can be read. An
/// archive that can be read only once is not looked through before. Media files that survived are never
/// overwritten; dtm files are. What lay below
/// "/media/bookmarks" goes below misc/lost_and_found.
/// @return 0, or 1 after an error that ended the restore and was reported; what was restored before it stays.
int restore(ArchiveReader& reader);

}  // namespace harbix::media
