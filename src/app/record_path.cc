#include "app/record_path.h"

namespace harbix {

bool is_record_path_below(const fs::Path& path, const fs::Path& base) {
  // The normal form keeps a '/' at the end, behind which the base itself would pass for something below it.
  const bool names_something = !path.basename().empty();
  return names_something && path.lexically_normal() == path && path != base && path.is_inside(base);
}

}  // namespace harbix
