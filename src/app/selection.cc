#include "app/selection.h"

#include <algorithm>

#include "app/places.h"
#include "updater/registered_applications.h"

namespace harbix {
namespace {

bool contains(std::span<const std::string> names, std::string_view name) {
  return std::ranges::find(names, name) != names.end();
}

}  // namespace

ApplicationSelection select_applications(std::vector<updater::RegisteredApplication> installed,
                                         std::span<const std::string> package_ids) {
  ApplicationSelection selection{.applications = std::move(installed)};
  if (package_ids.empty()) return selection;
  const std::span<const std::string> names = package_ids.subspan(1);
  for (const std::string& name : names) {
    if (name == places::NAVIGATOR || name == places::SYSTEM_TRAY) continue;
    static_cast<void>(updater::find_application(selection.applications, name, updater::MustExist::YES));
  }
  std::erase_if(selection.applications,
                [&](const updater::RegisteredApplication& one) { return !contains(names, one.dir); });
  selection.system_tray = contains(names, places::SYSTEM_TRAY);
  selection.navigator = contains(names, places::NAVIGATOR);
  return selection;
}

}  // namespace harbix
