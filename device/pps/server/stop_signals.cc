#include "device/pps/server/stop_signals.h"

#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace pps::server {

StopSignals::StopSignals() {
  sigset_t signals;
  // These cannot fail: the signal numbers are good.
  ::sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) ::sigaddset(&signals, signal);
  descriptor_ = base::FileDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!descriptor_ || ::sigprocmask(SIG_BLOCK, &signals, nullptr) == -1) {
    throw std::system_error(errno, std::generic_category(), "cannot wait for signals");
  }
}

}  // namespace pps::server
