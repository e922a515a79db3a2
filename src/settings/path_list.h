#pragma once

#include <vector>

#include "archive/completeness.h"
#include "base/places.h"
#include "fs/path.h"

/// Where settings lie on the device, and under which names they stand in archives.
namespace harbix::places {

inline constexpr char SETTINGS_PREFIX[] = "/settings";  ///< archive names of the settings
inline constexpr char PERSISTENT_ROOT[] = "/var";       ///< what the persistent names are relative to
inline constexpr char PERSISTENT_PPS[] = "/var/pps";    ///< the store of the live objects
inline constexpr char WALLPAPER[] = "/pps/services/navigator/wallpaper";
inline constexpr char CONTROL_NAME[] = "control";  ///< below "/pps": never backed up

}  // namespace harbix::places

namespace harbix {

/// Whether a path names a live PPS object or folder.
[[nodiscard]] bool is_pps_path(const fs::Path& path);

/// The absolute paths of everything that this device counts as settings: the live names of the persistent PPS
/// objects, the wallpaper object, and what the whitelist names, with everything below its folders. Paths may
/// repeat, and may name what does not exist. A folder that cannot be listed is reported, and noted in
/// `completeness`. Expects "/" as working directory.
/// @throws fs::Exception when the store of persistent objects itself cannot be listed.
[[nodiscard]] std::vector<fs::Path> settings_path_list(Completeness& completeness);

/// The live name of an object in the store: "/var/pps/services/x/obj@y" is "/pps/services/x/obj". Every
/// component ends at its first '@'.
/// @throws fs::Exception when `stored` does not lie in the store's parent folder.
[[nodiscard]] fs::Path live_name(const fs::Path& stored);

}  // namespace harbix
