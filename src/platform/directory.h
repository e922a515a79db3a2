#pragma once

#include <dirent.h>

namespace platform {

/// The device's directory control, reduced to the one request that is made of it.
inline constexpr int D_SETFLAG = 1;
/// With D_SETFLAG: directory reads carry the status of each entry.
inline constexpr int D_FLAG_STAT = 2;

/// Asks that reads of `directory` come with status records. Linux directories never do, so that nothing
/// changes here and callers take the status themselves.
/// @return 0, always.
int dircntl(::DIR* directory, int command, int flags) noexcept;

}  // namespace platform
