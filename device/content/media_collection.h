#pragma once

#include "device/content/media_share.h"

namespace device {

/// The media that an ordinary user would have: some 280 files in folders for music, photos, videos,
/// recordings, documents, downloads and bookmarks, of sizes from nothing to a few MiB, and folders without
/// files.
void write_media_collection(MediaShare& share);

}  // namespace device
