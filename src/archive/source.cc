#include "archive/source.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <stdexcept>

#include "fs/exception.h"

namespace harbix {
namespace {

[[noreturn]] void throw_unopened(const fs::Path& path) {
  throw std::runtime_error("Error opening: " + path.text());
}

}  // namespace

std::string read_link(const fs::Path& path) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
  if (length == -1) throw_unopened(path);
  return {target.data(), static_cast<std::size_t>(length)};
}

Source open_source(const fs::Path& path) {
  // Not blocking: a fifo may have taken the place of what was listed.
  platform::FileDescriptor descriptor(
      ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  if (!descriptor) {
    if (errno == ELOOP) {
      return {.file = fs::File(path), .contents = {}, .link_target = read_link(path)};
    }
    throw_unopened(path);
  }
  struct ::stat record {};
  if (::fstat(descriptor.get(), &record) == -1) throw_unopened(path);
  if (S_ISREG(record.st_mode)) {
    return {.file = fs::File(path, record), .contents = std::move(descriptor), .link_target = {}};
  }
  if (S_ISDIR(record.st_mode)) return {.file = fs::File(path, record), .contents = {}, .link_target = {}};
  throw_unopened(path);
}

}  // namespace harbix
