#pragma once

#include "base/places.h"

/// Where settings lie on the device, and under which names they stand in archives.
namespace harbix::places {

inline constexpr char SETTINGS_PREFIX[] = "/settings";  ///< archive names of the settings
inline constexpr char PERSISTENT_ROOT[] = "/var";       ///< what the persistent names are relative to
inline constexpr char PERSISTENT_PPS[] = "/var/pps";    ///< the store of the live objects
inline constexpr char WALLPAPER[] = "/pps/services/navigator/wallpaper";
inline constexpr char CONTROL_NAME[] = "control";  ///< below "/pps": never backed up

}  // namespace harbix::places
