#include "device/channel.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>

#include "device/failure.h"

namespace device {

std::pair<Channel, Channel> Channel::make() {
  std::array<int, 2> ends = {};
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) == -1) {
    throw system_failure(errno, "create a pair of sockets");
  }
  return {Channel(ends[0]), Channel(ends[1])};
}

Channel Channel::copy() const {
  Channel other(::fcntl(socket_.get(), F_DUPFD_CLOEXEC, 0));
  if (!other.is_open()) throw system_failure(errno, "copy a socket");
  return other;
}

void Channel::send(Notice notice) const noexcept {
  // A process that is gone needs no notice; a handful of notices always fits.
  (void)::send(socket_.get(), &notice, sizeof notice, MSG_NOSIGNAL | MSG_DONTWAIT);
}

std::optional<Notice> Channel::receive() noexcept {
  Notice notice = {};
  const ssize_t size = ::recv(socket_.get(), &notice, sizeof notice, MSG_DONTWAIT);
  if (size == sizeof notice) return notice;
  if (size == 0) socket_.close();
  return std::nullopt;
}

}  // namespace device
