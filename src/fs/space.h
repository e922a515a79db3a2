#pragma once

#include <cstdint>

#include "fs/folder.h"

namespace fs {

/// What a user without privileges can still write in a folder, in bytes.
/// @throws Exception "Path 'PATH' stat failed." when the system cannot tell.
[[nodiscard]] std::uint64_t free_space(const Folder& folder);

/// What the removal of `relative` frees at least, in bytes. Of what cannot be looked at nothing is counted.
[[nodiscard]] std::uint64_t removable_space(Folder& folder, const Path& relative);

}  // namespace fs
