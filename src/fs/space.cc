#include "fs/space.h"

#include <sys/statvfs.h>

#include <cerrno>

#include "fs/exception.h"
#include "fs/walk.h"

namespace fs {

std::uint64_t free_space(const Folder& folder) {
  struct ::statvfs system {};
  if (::fstatvfs(folder.descriptor(), &system) == -1) {
    const int error = errno;
    throw Exception(error, "Path '" + folder.path().text() + "' stat failed.");
  }
  return static_cast<std::uint64_t>(system.f_bavail) * system.f_frsize;
}

std::uint64_t removable_space(Folder& folder, const Path& relative) {
  constexpr std::uint64_t STATUS_BLOCK = 512;  // what st_blocks counts
  std::uint64_t bytes = 0;
  Walk walk(folder, relative, relative);
  while (const WalkItem* item = walk.next()) {
    // Of a file with several names nothing is freed by the removal of one.
    if (item->failure || (!item->file.is_directory() && item->file.record().st_nlink > 1)) continue;
    bytes += static_cast<std::uint64_t>(item->file.record().st_blocks) * STATUS_BLOCK;
  }
  return bytes;
}

}  // namespace fs
