#include "fs/containment.h"

#include "fs/exception.h"

namespace fs {

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

bool leads_inside(const Path& path, std::string_view link_target, const Path& folder) {
  const bool is_absolute = link_target.starts_with(Path::SEPARATOR);
  const Path target = is_absolute ? Path(link_target) : path.dirname() / link_target;
  return target.lexically_normal().is_inside(folder.lexically_normal());
}

}  // namespace fs
