#include "archive/source.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "archive/error.h"
#include "fs/exception.h"

namespace harbix {
namespace {

std::string opening_failed(const fs::Path& path, const std::string& reason) {
  return "Error opening: " + path.text() + ": " + reason;
}

fs::Place place_of(fs::Folder& folder, const fs::Path& path, const fs::Path& relative) try {
  return folder.place_of(relative);
} catch (const fs::Exception& error) {
  const std::string text = opening_failed(path, error.reason());
  if (is_resource_error(error.error())) throw ResourceError(text);
  throw std::runtime_error(text);
}

std::string read_link_at(const fs::Place& place, const fs::Path& path) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = ::readlinkat(place.folder, place.name, target.data(), target.size());
  if (length == -1) throw_unopened(path, errno);
  return {target.data(), static_cast<std::size_t>(length)};
}

Source open_link_at(const fs::Place& place, const fs::Path& path) {
  struct ::stat record {};
  if (fs::look_up(place, record) == -1) throw_unopened(path, errno);
  return {.file = fs::File(path, record), .contents = {}, .link_target = read_link_at(place, path)};
}

Source open_at(const fs::Place& place, const fs::Path& path) {
  // Not blocking: a fifo may have taken the place of what was listed.
  base::FileDescriptor descriptor(
      ::openat(place.folder, place.name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  if (!descriptor) {
    if (errno == ELOOP) return open_link_at(place, path);
    throw_unopened(path, errno);
  }
  struct ::stat record {};
  if (::fstat(descriptor.get(), &record) == -1) throw_unopened(path, errno);
  if (S_ISREG(record.st_mode)) {
    return {.file = fs::File(path, record), .contents = std::move(descriptor), .link_target = {}};
  }
  if (S_ISDIR(record.st_mode)) return {.file = fs::File(path, record), .contents = {}, .link_target = {}};
  throw std::runtime_error(opening_failed(path, "not a file, folder or link"));
}

}  // namespace

void throw_unopened(const fs::Path& path, int error) {
  const std::string text = opening_failed(path, std::strerror(error));
  if (is_resource_error(error)) throw ResourceError(text);
  throw std::runtime_error(text);
}

void throw_replaced(const fs::Path& path) {
  throw std::runtime_error(opening_failed(path, "another object took its place"));
}

Source open_source(fs::Folder& folder, const fs::Path& path) {
  const fs::Path relative = folder.relative(path);
  return open_at(place_of(folder, path, relative), path);
}

std::string read_link(fs::Folder& folder, const fs::Path& path) {
  const fs::Path relative = folder.relative(path);
  return read_link_at(place_of(folder, path, relative), path);
}

}  // namespace harbix
