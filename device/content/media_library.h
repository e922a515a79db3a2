#pragma once

#include <vector>

#include "device/content/media_share.h"
#include "device/tree_writer.h"

namespace device {

/// Makes the media library /accounts/1000/db/mmlibrary.db, an SQLite database, with one row for each record
/// in the table files(fid, ftype, size, filename, folder, date_modified): "filename" is the name, "folder"
/// what is before it. Names are stored byte for byte, also where they are not UTF-8.
/// @throws Failure quoting the database's path and what SQLite says.
void write_media_library(TreeWriter& tree, const std::vector<MediaRecord>& records);

}  // namespace device
