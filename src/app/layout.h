#pragma once

#include <array>
#include <string_view>

#include "fs/path.h"

/// Where applications live on the device, and how their packages are named in an archive.
namespace harbix::places {

inline constexpr char APPLICATION_PREFIX[] = "/app";  ///< in the archive: /app/PACKAGE/KIND
inline constexpr char BINARY_KIND[] = "bin";          ///< the installed application
inline constexpr char DATA_KIND[] = "appdata";        ///< what it keeps for the user
inline constexpr char OBJECT_KIND[] = "pps";          ///< PPS objects of the navigator
inline constexpr char APPLICATION_DATA[] = "/accounts/1000/appdata";

// The folders of an application's data that come back; the contents of the last two are not kept.
inline constexpr char DATA_FOLDER[] = "data";
inline constexpr char LOG_FOLDER[] = "logs";
inline constexpr char TEMPORARY_FOLDER[] = "tmp";

// What the names of a restore's own folders begin with, where it makes data beside its place.
inline constexpr std::string_view RESERVED = ".harbix-";

// The home screen: two built-in components that have data but no entry in the installer's list.
inline constexpr char NAVIGATOR[] = "sys.navigator";
inline constexpr char SYSTEM_TRAY[] = "sys.systemtray";
inline constexpr std::array NAVIGATOR_OBJECTS{"/pps/system/navigator/applications/uriapps",
                                              "/pps/system/navigator/applications/web_shortcuts"};

inline constexpr char NAVIGATOR_OBJECT_FOLDER[] =
    "/pps/system/navigator";  ///< where links of objects must stay
inline constexpr std::string_view CLOCK_DATABASE =
    "ClockServices.sqlite";  ///< all that comes back of the system tray

}  // namespace harbix::places

/// The keys of an application package's manifest, beside its file records.
namespace harbix::package_attributes {

inline constexpr char PACKAGE[] = "Package";                ///< its name in the archive
inline constexpr char APP_DIRECTORY[] = "App-Directory";    ///< its folder's name below "/apps"
inline constexpr char DATA_DIRECTORY[] = "Data-Directory";  ///< where its data lies, in full
inline constexpr char EXTRAS[] = "Extras";                  ///< what the installer needs to register it again

}  // namespace harbix::package_attributes

namespace harbix {

/// The folder of an application's binaries, and that of its data. `directory` is its name on the device: what
/// the installer calls its id, and its manifest "App-Directory".
[[nodiscard]] fs::Path binary_folder(std::string_view directory);
[[nodiscard]] fs::Path data_folder(std::string_view directory);

/// What the names of a package's entries begin with: "/app/PACKAGE/KIND".
[[nodiscard]] fs::Path package_name(std::string_view package, std::string_view kind);

/// Whether a package, or a folder of data, is one of the home screen's.
[[nodiscard]] bool is_home_screen(std::string_view name);

/// Whether an application's folder can have this name: one component and nothing else (not empty, no
/// separator, not "." or ".."), and no name that a restore reserves for folders of its own.
[[nodiscard]] bool is_application_folder(std::string_view name);

/// Whether a path lies in "data", "logs" or "tmp" of an application's data, or is one of these.
[[nodiscard]] bool is_in_kept_folder(const fs::Path& path);

}  // namespace harbix
