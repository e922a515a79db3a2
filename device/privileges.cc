#include "device/privileges.h"

#include <grp.h>
#include <unistd.h>

#include <cerrno>

#include "device/failure.h"

namespace device {

void become_root_alone() {
  if (::geteuid() != 0) throw Failure("only root can start a device", EXIT_UNAVAILABLE);
  if (::setgroups(0, nullptr) == -1) throw system_failure(errno, "drop the groups", {}, EXIT_UNAVAILABLE);
  if (::setresgid(0, 0, 0) == -1 || ::setresuid(0, 0, 0) == -1) {
    throw system_failure(errno, "become root", {}, EXIT_UNAVAILABLE);
  }
}

}  // namespace device
