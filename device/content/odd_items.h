#pragma once

#include "device/content/media_share.h"

namespace device {

/// What makes a backup hard: names of any bytes, links of every kind, protected items and unreadable ones.
/// Needs the folders of write_media_collection().
void write_odd_items(MediaShare& share);

}  // namespace device
