#include "base/waiting.h"

#include <poll.h>

#include <cerrno>

namespace base {
namespace {

bool wait_for(int descriptor, int error, short event) {
  errno = error;
  if (error != EAGAIN) return false;
  constexpr int FOREVER = -1;
  ::pollfd wanted{.fd = descriptor, .events = event, .revents = 0};
  // An end that is gone is an event as well: the call that follows reports it.
  return ::poll(&wanted, 1, FOREVER) != -1 || errno == EINTR;
}

}  // namespace

bool wait_until_readable(int descriptor, int error) { return wait_for(descriptor, error, POLLIN); }

bool wait_until_writable(int descriptor, int error) { return wait_for(descriptor, error, POLLOUT); }

}  // namespace base
