#include "app/home_screen_rules.h"

#include <algorithm>

#include "app/layout.h"
#include "fs/containment.h"

namespace harbix {

std::optional<Refusal> refusal_of_component_item(fs::Folder& root, const EntryView& entry,
                                                 const fs::Path& path, const fs::Path& folder) {
  if (!fs::is_record_path_below(path, folder)) return Refusal::MISPLACED;
  if (!entry.is_restorable()) return Refusal::KIND;
  const std::optional<std::string_view> target = entry.link_target();
  if (target && !fs::leads_inside(root, path, *target, folder)) return Refusal::LINK_LEADS_OUT;
  return std::nullopt;
}

HomeScreenPart part_of(const ApplicationPackage& package) {
  if (package.records().empty()) return HomeScreenPart::NOTHING;
  if (package.has_kind(places::OBJECT_KIND)) return HomeScreenPart::OBJECTS;
  const bool is_data = package.has_kind(places::DATA_KIND);
  if (is_data && package.package() == places::NAVIGATOR) return HomeScreenPart::NAVIGATOR_DATA;
  if (is_data && package.package() == places::SYSTEM_TRAY) return HomeScreenPart::SYSTEM_TRAY_DATA;
  return HomeScreenPart::UNKNOWN;
}

std::optional<Refusal> refusal_of_object(fs::Folder& root, const EntryView& entry, const fs::Path& path) {
  if (std::ranges::find(places::NAVIGATOR_OBJECTS, path.text()) == places::NAVIGATOR_OBJECTS.end())
    return Refusal::UNKNOWN_OBJECT;
  if (const std::optional<std::string_view> target = entry.link_target()) {
    const bool leads_inside = fs::leads_inside(root, path, *target, places::NAVIGATOR_OBJECT_FOLDER);
    return leads_inside ? std::nullopt : std::optional(Refusal::LINK_LEADS_OUT);
  }
  const bool is_file = entry.destination(path).is_regular() && !entry.is_hard_link();
  return is_file ? std::nullopt : std::optional(Refusal::KIND);
}

std::optional<Refusal> refusal_of_navigator_data(fs::Folder& root, const EntryView& entry,
                                                 const fs::Path& path, const Stands& stands) {
  if (const std::optional<Refusal> refusal =
          refusal_of_component_item(root, entry, path, data_folder(places::NAVIGATOR)))
    return refusal;
  return stands(path) ? std::optional(Refusal::EXISTS) : std::nullopt;
}

std::optional<Refusal> refusal_of_system_tray_data(fs::Folder& root, const EntryView& entry,
                                                   const fs::Path& path) {
  const fs::Path name = entry.name().value_or(fs::Path());
  if (name.basename().text() != places::CLOCK_DATABASE) return Refusal::NO_CLOCK_DATABASE;
  return refusal_of_component_item(root, entry, path, data_folder(places::SYSTEM_TRAY));
}

bool is_replaced_navigator_data(const fs::Path& item) { return !item.basename().text().starts_with('.'); }

}  // namespace harbix
