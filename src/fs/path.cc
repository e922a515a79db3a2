#include "fs/path.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>

#include "fs/exception.h"

namespace fs {
namespace {

constexpr std::size_t SMALLEST_RESOLVED_CAPACITY = 1024;

std::size_t resolved_capacity(const Path& path) {
  const long longest = ::pathconf(path.c_str(), _PC_PATH_MAX);
  return longest < 0 ? SMALLEST_RESOLVED_CAPACITY
                     : std::max(static_cast<std::size_t>(longest), SMALLEST_RESOLVED_CAPACITY);
}

bool is_bare_name(const std::string& text) {
  return text.empty() || (text.front() != Path::SEPARATOR && text.front() != '.');
}

}  // namespace

Path& Path::operator/=(std::string_view component) {
  if (text_.ends_with(SEPARATOR)) text_.pop_back();
  if (!component.empty() && component.front() != SEPARATOR) text_ += SEPARATOR;
  text_ += component;
  return *this;
}

Path& Path::strip_leading_dots() {
  std::size_t start = 0;
  while (std::string_view(text_).substr(start).starts_with("./")) start += 2;
  text_.erase(0, start);
  return *this;
}

Path Path::first_component() const {
  const std::size_t end = text_.find(SEPARATOR, text_.starts_with(SEPARATOR) ? 1 : 0);
  return Path(text_.substr(0, end));
}

std::optional<std::size_t> Path::last_separator() const {
  const std::size_t position = text_.rfind(SEPARATOR);
  if (position == std::string::npos) return std::nullopt;
  return position;
}

Path Path::basename() const {
  const std::optional<std::size_t> separator = last_separator();
  return separator ? Path(text_.substr(*separator + 1)) : *this;
}

Path Path::dirname() const {
  const std::size_t last = text_.find_last_not_of(SEPARATOR);
  const Path trimmed(text_.substr(0, last == std::string::npos ? 0 : last + 1));
  if (const std::optional<std::size_t> separator = trimmed.last_separator()) {
    return Path(text_.substr(0, *separator));
  }
  return text_.starts_with(SEPARATOR) ? *this : Path();
}

std::vector<Path> Path::components() const {
  std::vector<Path> names;
  Path rest(text_.ends_with(SEPARATOR) ? text_.substr(0, text_.size() - 1) : text_);
  for (Path name = rest.basename(); !name.empty(); name = rest.basename()) {
    names.push_back(name);
    rest = rest.dirname();
  }
  std::ranges::reverse(names);
  return names;
}

Path Path::relative_to(const Path& base) const {
  const auto begins_with_base = [&] {
    const Path prefix = Path(text_.substr(0, base.text_.size())).strip_leading_dots();
    return prefix == Path(base).strip_leading_dots();
  };
  // Asked for each item of an archive; that texts differ only in their dots is rare.
  if (!text_.starts_with(base.text_) && !begins_with_base()) {
    throw no_subdirectory(text_, base.text_);
  }
  // The base may be the longer one, by dots that count for nothing.
  std::string rest = text_.substr(std::min(base.text_.size(), text_.size()));
  const std::size_t start = rest.find_first_not_of(SEPARATOR);
  if (start != std::string::npos) rest.erase(0, start);
  return Path(std::move(rest));
}

bool Path::is_subdirectory_of(const Path& base) const {
  try {
    static_cast<void>(relative_to(base));
    return true;
  } catch (const Exception&) {
    return false;
  }
}

bool Path::is_inside(const Path& base) const {
  if (!text_.starts_with(base.text_)) return false;
  const std::string_view rest = std::string_view(text_).substr(base.text_.size());
  return rest.empty() || rest.front() == SEPARATOR || base.text_.ends_with(SEPARATOR);
}

Path Path::lexically_normal() const { return Path(std::filesystem::path(text_).lexically_normal().string()); }

Path Path::realpath() const {
  const std::size_t capacity = resolved_capacity(*this);
  // Never smaller than what the system's call may write, whatever pathconf says of this path.
  std::vector<char> resolved(std::max<std::size_t>(capacity, PATH_MAX), '\0');
  const Path asked = is_bare_name(text_) ? current() / *this : *this;
  errno = 0;
  if (::realpath(asked.c_str(), resolved.data()) != nullptr) return resolved.data();

  const int error = errno;  // taken first: building the message may overwrite it
  throw Exception(error == 0 ? Exception::NO_ERROR_NUMBER : error,
                  "'realpath(" + text_ + ")' failed due to: '" + std::string(resolved.data()) +
                      "' buf: " + std::to_string(capacity));
}

const Path& Path::current() {
  static const Path path(".");
  return path;
}

const Path& Path::parent() {
  static const Path path("..");
  return path;
}

Path operator/(Path base, std::string_view component) {
  base /= component;
  return base;
}

Path operator/(Path base, const char* component) {
  base /= component;
  return base;
}

Path operator/(Path base, const Path& component) {
  base /= component;
  return base;
}

}  // namespace fs
