#pragma once

namespace platform {

/// Removes a link that lives in the operating system's path manager instead of on disk.
/// Linux has no such links.
/// @return -1 with errno ENOSYS, always.
int pathmgr_unlink(const char* path) noexcept;

}  // namespace platform
