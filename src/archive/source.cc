#include "archive/source.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <stdexcept>
#include <utility>

#include "fs/exception.h"

namespace harbix {
namespace {

[[noreturn]] void throw_unopened(const fs::Path& path) {
  throw std::runtime_error("Error opening: " + path.text());
}

std::string read_link_at(int folder, const char* name, const fs::Path& path) {
  std::array<char, PATH_MAX> target{};
  const ssize_t length = ::readlinkat(folder, name, target.data(), target.size());
  if (length == -1) throw_unopened(path);
  return {target.data(), static_cast<std::size_t>(length)};
}

Source open_link_at(int folder, const char* name, const fs::Path& path) {
  struct ::stat record {};
  if (::fstatat(folder, name, &record, AT_SYMLINK_NOFOLLOW) == -1) throw_unopened(path);
  return {.file = fs::File(path, record), .contents = {}, .link_target = read_link_at(folder, name, path)};
}

/// Opens what is called `name` in a folder; `path` is what it is called elsewhere.
Source open_at(int folder, const char* name, const fs::Path& path) {
  // Not blocking: a fifo may have taken the place of what was listed.
  base::FileDescriptor descriptor(
      ::openat(folder, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  if (!descriptor) {
    if (errno == ELOOP) return open_link_at(folder, name, path);
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

}  // namespace

std::string read_link(const fs::Path& path) { return read_link_at(AT_FDCWD, path.c_str(), path); }

Source open_source(const fs::Path& path) { return open_at(AT_FDCWD, path.c_str(), path); }

Source SourceOpener::open(const fs::Path& path) {
  const std::optional<std::size_t> separator = path.last_separator();
  if (!separator || *separator == 0) return open_source(path);
  const std::string_view folder = std::string_view(path.text()).substr(0, *separator);
  if (!descriptor_ || folder != folder_) enter(std::string(folder), path);
  return open_at(descriptor_.get(), path.c_str() + *separator + 1, path);
}

void SourceOpener::enter(std::string folder, const fs::Path& path) {
  descriptor_ = base::FileDescriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor_) throw_unopened(path);
  folder_ = std::move(folder);
}

}  // namespace harbix
