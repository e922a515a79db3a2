#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <ctime>

namespace pps {

/// Owner, permissions and times of an object or a directory, as stat(2) and the store's own files have them.
struct Metadata {
  mode_t mode = 0;  ///< permission bits only (07777), no file type
  uid_t uid = 0;
  gid_t gid = 0;
  timespec accessed{};
  timespec modified{};
  timespec changed{};
};

/// Reads CLOCK_REALTIME.
[[nodiscard]] timespec now();

/// Metadata of something that comes into being now.
[[nodiscard]] Metadata new_metadata(mode_t mode, uid_t uid, gid_t gid);

[[nodiscard]] Metadata metadata_of(const struct stat& record);

}  // namespace pps
