#include "device/installer/request_watch.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "device/refuse.h"

namespace installer {

RequestWatch::RequestWatch(const std::string& directory)
    : path_(directory + "/.all?wait,delta"), view_(::open(path_.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (!view_) device::refuse(errno, "open", path_);
}

std::optional<std::string> RequestWatch::next() {
  while (const std::optional<std::string> line = next_line()) {
    // An attribute's name cannot begin so; a removed object's line begins with "-@".
    if (line->starts_with('@')) return line->substr(1);
  }
  return std::nullopt;
}

std::optional<std::string> RequestWatch::next_line() {
  std::array<char, 32768> piece = {};
  for (;;) {
    if (const std::size_t end = rest_.find('\n'); end != std::string::npos) {
      std::string line = rest_.substr(0, end);
      rest_.erase(0, end + 1);
      return line;
    }
    const ssize_t count = ::read(view_.get(), piece.data(), piece.size());
    if (count == -1 && errno == EINTR) continue;
    if (count == -1) device::refuse(errno, "read", path_);
    if (count == 0) return std::nullopt;
    rest_.append(piece.data(), static_cast<std::size_t>(count));
  }
}

}  // namespace installer
