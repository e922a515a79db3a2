#include "device/installer/object.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "base/file_descriptor.h"
#include "device/refuse.h"

namespace installer {
namespace {

bool write_lines(const std::string& path, int flags, std::string_view lines) {
  base::FileDescriptor object(::open(path.c_str(), O_WRONLY | O_CLOEXEC | flags, 0644));
  if (!object && errno == ENOENT) return false;
  if (!object) device::refuse(errno, "open", path);
  while (!lines.empty()) {
    const ssize_t written = ::write(object.get(), lines.data(), lines.size());
    if (written == -1 && errno == EINTR) continue;
    if (written == -1) device::refuse(errno, "write", path);
    // Only a text that is longer than the kernel hands over at once takes a second turn.
    lines.remove_prefix(static_cast<std::size_t>(written));
  }
  if (const int error = object.close(); error != 0) device::refuse(error, "write", path);
  return true;
}

}  // namespace

std::optional<std::string> read_object(const std::string& path) {
  const base::FileDescriptor object(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!object && errno == ENOENT) return std::nullopt;
  if (!object) device::refuse(errno, "open", path);
  std::string text;
  std::array<char, 32768> piece = {};
  for (;;) {
    const ssize_t count = ::read(object.get(), piece.data(), piece.size());
    if (count == -1 && errno == EINTR) continue;
    if (count == -1) device::refuse(errno, "read", path);
    if (count == 0) return text;
    text.append(piece.data(), static_cast<std::size_t>(count));
  }
}

bool write_object(const std::string& path, std::string_view lines) { return write_lines(path, 0, lines); }

void publish_object(const std::string& path, std::string_view lines) {
  if (!write_lines(path, O_CREAT, lines)) device::refuse(ENOENT, "create", path);
}

void remove_object(const std::string& path) {
  if (::unlink(path.c_str()) == -1 && errno != ENOENT) device::refuse(errno, "remove", path);
}

bool is_unserved(const std::error_code& error) {
  return error == std::errc::no_such_device || error == std::errc::connection_aborted ||
         error == std::errc::not_connected;
}

}  // namespace installer
