#pragma once

#include <array>

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

// The home screen: two built-in components that have data but no entry in the installer's list.
inline constexpr char NAVIGATOR[] = "sys.navigator";
inline constexpr char SYSTEM_TRAY[] = "sys.systemtray";
inline constexpr std::array NAVIGATOR_OBJECTS{"/pps/system/navigator/applications/uriapps",
                                              "/pps/system/navigator/applications/web_shortcuts"};

}  // namespace harbix::places
