#include "device/terminal.h"

#include <fcntl.h>
#include <unistd.h>

namespace device {

Terminal::Terminal() : terminal_(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC)), was_ours_(is_ours()) {}

bool Terminal::is_ours() const noexcept { return exists() && ::tcgetpgrp(terminal_.get()) == ::getpgrp(); }

void Terminal::give_to(pid_t group) const noexcept {
  // Fails when the group is gone or the terminal has hung up; either way no program waits for its keys.
  if (exists()) ::tcsetpgrp(terminal_.get(), group);
}

}  // namespace device
