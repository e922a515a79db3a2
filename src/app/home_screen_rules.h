#pragma once

#include <functional>
#include <optional>

#include "app/application_package.h"
#include "archive/entry_view.h"
#include "archive/refusal.h"
#include "fs/folder.h"

namespace harbix {

/// What a package of the home screen holds.
enum class HomeScreenPart {
  NOTHING,  ///< not a single record
  OBJECTS,  ///< the navigator's PPS objects
  NAVIGATOR_DATA,
  SYSTEM_TRAY_DATA,
  UNKNOWN,
};
[[nodiscard]] HomeScreenPart part_of(const ApplicationPackage& package);

/// Why an entry does not belong to a component's data, whose `folder` it must stay in: nothing for a plain
/// file, a folder, or a link that stays there, at a path in normal form below it. `root` is "/", where links
/// are followed to see where they lead.
[[nodiscard]] std::optional<Refusal> refusal_of_component_item(fs::Folder& root, const EntryView& entry,
                                                               const fs::Path& path, const fs::Path& folder);

/// Whether something stands at a path of the device.
using Stands = std::function<bool(const fs::Path& path)>;

// Why an entry of such a package is not restored to `path`, its record's; nothing for one that is. `root` as
// above.

[[nodiscard]] std::optional<Refusal> refusal_of_object(fs::Folder& root, const EntryView& entry,
                                                       const fs::Path& path);
/// What is there is not replaced.
[[nodiscard]] std::optional<Refusal> refusal_of_navigator_data(fs::Folder& root, const EntryView& entry,
                                                               const fs::Path& path, const Stands& stands);
[[nodiscard]] std::optional<Refusal> refusal_of_system_tray_data(fs::Folder& root, const EntryView& entry,
                                                                 const fs::Path& path);

/// Whether the restore empties the navigator's data folder of this item: not of hidden names.
[[nodiscard]] bool is_replaced_navigator_data(const fs::Path& item);

}  // namespace harbix
