#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "archive/completeness.h"
#include "archive/entry_view.h"
#include "archive/refusal.h"
#include "fs/folder.h"
#include "fs/path.h"

namespace harbix {

/// What this device would back up today: the measure for what may be restored.
struct AllowedSettings {
  std::vector<fs::Path> paths;  ///< sorted
  std::vector<fs::Path> whitelist;
  std::vector<fs::Path> blacklist;
};

/// Whether the text of a path has what no setting's has: "." or ".." as a component, or an empty one.
[[nodiscard]] bool has_tricks(const std::string& text);

/// Asks the device for its allowed settings. Folders that cannot be listed are reported, and noted in
/// `completeness`.
/// @throws fs::Exception as settings_path_list and settings_script_list do.
[[nodiscard]] AllowedSettings allowed_settings(Completeness& completeness);

/// Tells whether a folder or a link stands at a path of the device.
using StandsInTheWay = std::function<bool(const fs::Path& path)>;
[[nodiscard]] bool exists_as_folder_or_link(const fs::Path& path);

/// Why nothing is restored to `candidate`, an absolute path; nothing where an entry may be. `in_the_way` is
/// asked of what is not in the list.
[[nodiscard]] std::optional<Refusal> refusal_of_path(const AllowedSettings& allowed,
                                                     const fs::Path& candidate,
                                                     const StandsInTheWay& in_the_way);

/// Why an entry is not restored to `target`; nothing for one that is. Links are followed below `root`, which
/// is "/".
[[nodiscard]] std::optional<Refusal> refusal_of(fs::Folder& root, const AllowedSettings& allowed,
                                                const EntryView& entry, const fs::Path& target,
                                                const StandsInTheWay& in_the_way);

}  // namespace harbix
