#pragma once

#include <sys/types.h>

namespace platform {

/// Opens `path`, relative to the folder `folder`, as openat(2) does, but follows no symbolic link in any
/// component and never leaves the folder: what other programs change on the way meanwhile cannot lead
/// anywhere else. Works for paths longer than the system's limit for one call. Always close-on-exec.
/// @return the descriptor, which the caller owns; -1 with errno set: ELOOP for a link as the last component,
/// ELOOP or ENOTDIR for one on the way, EXDEV for an absolute path and for one with a "..".
[[nodiscard]] int open_beneath(int folder, const char* path, int flags, mode_t mode = 0) noexcept;

}  // namespace platform
