#pragma once

#include <iosfwd>

#include "device/pps/store.h"
#include "device/pps/tree.h"

namespace pps {

/// Fills an empty tree from the store, the root's metadata included. Does nothing when there is no folder.
///
/// A file or folder "name@anything" stands for "name". Of several files for one object the last in byte order
/// counts, and is the one that is written from then on; several folders of one directory are taken together.
/// What cannot be an object (links, devices, names without a part before '@' or with a '?', a file where a
/// directory of the same name is) and lines that are malformed are left alone, with a line each on
/// `warnings`.
/// @throws std::system_error when a file or folder cannot be read.
void load(const Store& store, Tree& tree, std::ostream& warnings);

}  // namespace pps
