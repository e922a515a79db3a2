#pragma once

#include <string>
#include <string_view>

namespace harbix {

/// The name of the entry that begins a package and carries its manifest.
inline constexpr std::string_view METADATA_NAME = ".backup.metadata";

/// The part of an archive that a name belongs to: "/app", "/dtm", "/media" or "/settings"; empty for other
/// names. The leading '/', or "./" instead of it, does not count.
[[nodiscard]] std::string_view part_of(std::string_view name);

/// The name of an entry as the writer of the archive was given it, for a name that a repacking tar has taken
/// the leading '/' from: "media/Music/a" and "./media/Music/a" give "/media/Music/a". Names that belong to no
/// part stay as they are.
[[nodiscard]] std::string rooted_name(std::string_view name);

/// Whether an entry of this name, rooted, begins a package. A writer begins one only with ".backup.metadata"
/// in "/app/NAME/bin", "/app/NAME/appdata", "/app/NAME/pps", "/media/NAME", "/dtm/NAME" or "/settings". Any
/// other entry of that last name is somebody's file.
[[nodiscard]] bool begins_package(std::string_view name);

}  // namespace harbix
