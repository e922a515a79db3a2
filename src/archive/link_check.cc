#include "archive/link_check.h"

namespace harbix {

bool leads_inside(const fs::Path& path, std::string_view link_target, const fs::Path& folder) {
  const bool is_absolute = link_target.starts_with(fs::Path::SEPARATOR);
  const fs::Path target = is_absolute ? fs::Path(link_target) : path.dirname() / link_target;
  return target.lexically_normal().is_inside(folder.lexically_normal());
}

}  // namespace harbix
