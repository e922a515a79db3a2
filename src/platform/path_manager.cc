#include "platform/path_manager.h"

#include <cerrno>

namespace platform {

int pathmgr_unlink(const char* /*path*/) noexcept {
  errno = ENOSYS;
  return -1;
}

}  // namespace platform
