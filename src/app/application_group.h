#pragma once

#include <sys/types.h>

#include <string>

namespace harbix {

/// The group ids of applications begin here; a smaller one is no application's.
inline constexpr gid_t FIRST_APPLICATION_GROUP = 10000;

/// The group id that the installer answers with, in decimal.
/// @throws std::runtime_error "'TEXT' is not a group id" for another text, and for an id whose owner of data
/// would be out of range.
[[nodiscard]] gid_t parse_application_group(const std::string& text);

/// The user that owns the data of the application with this group.
[[nodiscard]] uid_t data_owner(gid_t group) noexcept;

}  // namespace harbix
