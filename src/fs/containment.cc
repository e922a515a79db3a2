#include "fs/containment.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <deque>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fs/exception.h"

namespace fs {
namespace {

/// Follows names on the disk as the kernel does, but only ever looks.
class Follower {
 public:
  Follower(Folder& root, std::vector<Path> start) : root_(root), place_(std::move(start)) {}

  /// @return false where the way cannot be told: too many links, a ".." behind what does not exist, a file in
  /// the way.
  bool follow(std::string_view target) {
    prepend(target);
    while (!rest_.empty()) {
      const std::string name = std::move(rest_.front());
      rest_.pop_front();
      if (name == "..") {
        if (!place_.empty()) place_.pop_back();
      } else if (name != "." && !name.empty() && !step_into(name)) {
        return false;
      }
    }
    return true;
  }

  [[nodiscard]] Path reached() const {
    Path path;
    for (const Path& name : place_) path /= name;
    return path;
  }

 private:
  void prepend(std::string_view target) {
    if (target.starts_with(Path::SEPARATOR)) place_.clear();
    std::deque<std::string> names;
    for (std::istringstream pieces{std::string(target)}; !pieces.eof();) {
      std::getline(pieces, names.emplace_back(), Path::SEPARATOR);
    }
    rest_.insert(rest_.begin(), names.begin(), names.end());
  }

  bool step_into(const std::string& name) {
    place_.emplace_back(name);
    const Path relative = root_.relative(reached());
    struct ::stat record {};
    if (!exists(relative, record)) return take_the_rest();
    if (!S_ISLNK(record.st_mode)) return rest_.empty() || S_ISDIR(record.st_mode);
    if (++links_ > MOST_LINKS) return false;
    place_.pop_back();
    std::array<char, PATH_MAX> target{};
    const Place place = root_.place_of(relative);
    const ssize_t length = ::readlinkat(place.folder, place.name, target.data(), target.size());
    if (length == -1) return false;
    prepend({target.data(), static_cast<std::size_t>(length)});
    return true;
  }

  /// @throws Exception for another reason than that it does not exist.
  bool exists(const Path& relative, struct ::stat& record) try {
    record = root_.file(relative).record();
    return true;
  } catch (const Exception& missing) {
    if (missing.error() != ENOENT) throw;
    return false;
  }

  /// Below what does not exist only names can be told.
  bool take_the_rest() {
    for (std::string& name : rest_) {
      if (name == "..") return false;
      if (name != "." && !name.empty()) place_.emplace_back(std::move(name));
    }
    rest_.clear();
    return true;
  }

  static constexpr int MOST_LINKS = 40;

  Folder& root_;
  std::vector<Path> place_;  ///< folders from the root, none of them a link
  std::deque<std::string> rest_;
  int links_ = 0;
};

bool has_parent_behind_name(std::string_view target) {
  bool has_name = false;
  while (!target.empty()) {
    const std::size_t end = std::min(target.find(Path::SEPARATOR), target.size());
    const std::string_view name = target.substr(0, end);
    if (name == ".." && has_name) return true;
    has_name = has_name || (!name.empty() && name != "." && name != "..");
    target.remove_prefix(std::min(end + 1, target.size()));
  }
  return false;
}

}  // namespace

bool is_plain_component(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find(Path::SEPARATOR) == std::string_view::npos;
}

bool is_record_path_below(const Path& path, const Path& base) {
  // The normal form keeps a '/' at the end, behind which the base itself would pass for something below it.
  const bool names_something = !path.basename().empty();
  return names_something && path.lexically_normal() == path && path != base && path.is_inside(base);
}

Path name_below(const Path& name, const Path& prefix) {
  if (!name.is_inside(prefix)) throw no_subdirectory(name.text(), prefix.text());
  return name.relative_to(prefix);
}

bool names_inside(const Path& path, std::string_view link_target, const Path& folder) {
  const bool is_absolute = link_target.starts_with(Path::SEPARATOR);
  const Path target = is_absolute ? Path(link_target) : path.dirname() / link_target;
  return !has_parent_behind_name(link_target) &&
         target.lexically_normal().is_inside(folder.lexically_normal());
}

bool leads_inside(Folder& root, const Path& path, std::string_view link_target, const Path& folder) {
  if (!names_inside(path, link_target, folder)) return false;
  const Path inside = folder.lexically_normal();
  try {
    Follower follower(root, path.dirname().lexically_normal().components());
    return follower.follow(link_target) && follower.reached().is_inside(inside);
  } catch (const Exception&) {
    return false;  // the way there cannot be told
  }
}

}  // namespace fs
