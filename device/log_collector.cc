#include "device/log_collector.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <iostream>
#include <string_view>

#include "device/failure.h"
#include "device/log_line.h"

namespace device {
namespace {

// More than a sender's buffer lets a message have.
constexpr std::size_t MAX_MESSAGE_BYTES = std::size_t{512} * 1024;

}  // namespace

base::FileDescriptor LogCollector::open_file(const std::string& path, bool emptied) {
  const int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | (emptied ? O_TRUNC : 0);
  base::FileDescriptor file(::open(path.c_str(), flags, 0644));
  if (!file) throw system_failure(errno, "open the log file", path);
  return file;
}

LogCollector::LogCollector(const std::string& path, base::FileDescriptor file)
    : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      file_(std::move(file)),
      message_(MAX_MESSAGE_BYTES) {
  if (!socket_) throw system_failure(errno, "create a socket for", path);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
  // The socket interface takes every family's address through the one general type.
  const auto* general = reinterpret_cast<const sockaddr*>(&address);
  if (::bind(socket_.get(), general, sizeof address) == -1)
    throw system_failure(errno, "bind a socket to", path);
  if (::chmod(path.c_str(), 0666) == -1) throw system_failure(errno, "set the mode of", path);
}

void LogCollector::collect() {
  while (true) {
    const ssize_t size = ::recv(socket_.get(), message_.data(), message_.size(), 0);
    if (size == -1 && errno == EINTR) continue;
    // Nothing more for now; no other error is possible on a bound datagram socket.
    if (size == -1) return;
    write_line(log_line(std::string_view(message_.data(), static_cast<std::size_t>(size))));
  }
}

void LogCollector::write_line(const std::string& line) {
  std::string_view rest = line;
  while (!rest.empty() && !broken_) {
    const ssize_t written = ::write(file_.get(), rest.data(), rest.size());
    if (written == -1 && errno == EINTR) continue;
    if (written == -1) {
      broken_ = true;
      std::cerr << "harbix-device: " << system_failure(errno, "write the log file").what() << std::endl;
      return;
    }
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace device
