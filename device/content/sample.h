#pragma once

#include "device/tree_writer.h"

namespace device {

/// Adds sample content to a tree that has the well-known folders: media, a dtm share, a media library that
/// matches the media, subscriber scripts, PPS objects, settings files and scripts, installed applications and
/// a home screen. The same content on every run.
/// @throws Failure as TreeWriter does.
void write_sample_content(TreeWriter& tree);

}  // namespace device
