#include "fs/folder.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "fs/exception.h"
#include "platform/open_beneath.h"

namespace fs {
namespace {

constexpr int HELD = O_PATH | O_DIRECTORY | O_CLOEXEC;

[[noreturn]] void throw_unopened(const Path& path) {
  const int error = errno;
  throw Exception(error, "Directory '" + path.text() + "' could not be opened.");
}

constexpr std::size_t MOST_HELD = 8;

std::string_view without_separators_at_end(std::string_view path) {
  return path.substr(0, path.find_last_not_of(Path::SEPARATOR) + 1);
}

/// Whether the folder whose name are the first `length` characters of `name` is `path` or on the way to it.
bool is_on_the_way(const std::string& name, std::size_t length, std::string_view path) {
  if (!path.starts_with(std::string_view(name).substr(0, length))) return false;
  return path.size() == length || path[length] == Path::SEPARATOR;
}

/// Where the next folder to be held ends: so that the last few components are opened one by one.
std::size_t next_end(std::string_view path, std::size_t begin) {
  std::size_t end = path.size();
  for (std::size_t component = 1; component < MOST_HELD; ++component) {
    const std::size_t separator = path.rfind(Path::SEPARATOR, end - 1);
    if (separator == std::string_view::npos || separator <= begin) {
      return std::min(path.find(Path::SEPARATOR, begin + 1), path.size());
    }
    end = separator;
  }
  return end;
}

}  // namespace

int look_up(const Place& place, struct ::stat& record) noexcept {
  return ::fstatat(place.folder, place.name, &record, AT_SYMLINK_NOFOLLOW);
}

Folder::Folder(Path path) : path_(std::move(path)), descriptor_(::open(path_.c_str(), HELD)) {
  if (!descriptor_) throw_unopened(path_);
}

Path Folder::relative(const Path& path) const {
  const Path trimmed(without_separators_at_end(path.text()));
  Path below = path.text().starts_with(Path::SEPARATOR) ? trimmed.relative_to(path_) : trimmed;
  return below.strip_leading_dots();
}

Place Folder::place_of(const Path& relative) {
  const std::optional<std::size_t> separator = relative.last_separator();
  const char* const name = relative.c_str() + (separator ? *separator + 1 : 0);
  if (std::string_view(name) == "..")
    throw Exception(EXDEV, "Path '" + (path_ / relative).text() + "' leads out.");
  if (!separator) return {descriptor(), name};
  const std::string_view parent = std::string_view(relative.text()).substr(0, *separator);
  if (held_.empty() || held_.back().length != held_name_.size() || parent != held_name_) hold(parent);
  return {held_.back().descriptor.get(), name};
}

void Folder::hold(std::string_view parent) {
  while (!held_.empty() && !is_on_the_way(held_name_, held_.back().length, parent)) held_.pop_back();
  held_name_ = parent;
  while (held_.empty() || held_.back().length < parent.size()) hold_next(parent);
}

void Folder::hold_next(std::string_view parent) {
  const std::size_t begin = held_.empty() ? 0 : held_.back().length + 1;
  const std::size_t end = next_end(parent, begin);
  const std::string name(parent.substr(begin, end - begin));
  const int start = held_.empty() ? descriptor() : held_.back().descriptor.get();
  base::FileDescriptor opened(platform::open_beneath(start, name.c_str(), HELD));
  if (!opened) throw_unopened(path_ / parent);
  held_.push_back({end, std::move(opened)});
  if (held_.size() > MOST_HELD) held_.erase(held_.begin());
}

int Folder::look_up(const Path& relative, struct ::stat& record) noexcept try {
  return fs::look_up(place_of(relative), record) == -1 ? errno : 0;
} catch (const Exception& unreachable) {
  return unreachable.error();
}

File Folder::file(const Path& relative) {
  struct ::stat record {};
  if (fs::look_up(place_of(relative), record) == -1) {
    const int error = errno;
    throw Exception(error, "Path '" + (path_ / relative).text() + "' stat failed.");
  }
  return {path_ / relative, record};
}

bool Folder::holds(const Path& relative) noexcept {
  struct ::stat record {};
  return look_up(relative, record) == 0;
}

}  // namespace fs
