#include "app/layout.h"

#include <algorithm>
#include <vector>

#include "base/places.h"
#include "fs/containment.h"

namespace harbix {

fs::Path binary_folder(std::string_view directory) { return fs::Path(places::APPLICATIONS) / directory; }

fs::Path data_folder(std::string_view directory) { return fs::Path(places::APPLICATION_DATA) / directory; }

fs::Path package_name(std::string_view package, std::string_view kind) {
  return fs::Path(places::APPLICATION_PREFIX) / package / kind;
}

bool is_home_screen(std::string_view name) {
  return name == places::NAVIGATOR || name == places::SYSTEM_TRAY;
}

bool is_application_folder(std::string_view name) {
  return fs::is_plain_component(name) && !name.starts_with(places::RESERVED);
}

bool is_in_kept_folder(const fs::Path& path) {
  constexpr std::array<std::string_view, 3> FOLDERS{places::TEMPORARY_FOLDER, places::DATA_FOLDER,
                                                    places::LOG_FOLDER};
  const fs::Path root(places::APPLICATION_DATA);
  if (!path.is_inside(root)) return false;
  const std::vector<fs::Path> components = path.relative_to(root).components();
  return components.size() > 1 && std::ranges::find(FOLDERS, components[1].text()) != FOLDERS.end();
}

}  // namespace harbix
