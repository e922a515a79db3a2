#include "device/pps/metadata.h"

namespace pps {

namespace {
constexpr mode_t PERMISSIONS = 07777;
}  // namespace

timespec now() {
  timespec time{};
  // Cannot fail: the clock exists on every Linux and the pointer is good.
  ::clock_gettime(CLOCK_REALTIME, &time);
  return time;
}

Metadata new_metadata(mode_t mode, uid_t uid, gid_t gid) {
  const timespec time = now();
  return {.mode = mode & PERMISSIONS,
          .uid = uid,
          .gid = gid,
          .accessed = time,
          .modified = time,
          .changed = time};
}

Metadata metadata_of(const struct stat& record) {
  return {.mode = record.st_mode & PERMISSIONS,
          .uid = record.st_uid,
          .gid = record.st_gid,
          .accessed = record.st_atim,
          .modified = record.st_mtim,
          .changed = record.st_ctim};
}

}  // namespace pps
