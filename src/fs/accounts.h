#pragma once

#include <sys/types.h>

#include <string>

namespace fs {

/// The id of an account, from the system's user database.
/// @throws std::runtime_error "User 'NAME' does not exist", or "Could not look up 'NAME': TEXT" when the
/// database cannot be read.
[[nodiscard]] uid_t user_id(const std::string& name);

/// The id of a group, from the system's group database.
/// @throws std::runtime_error "Group 'NAME' does not exist", or as user_id() does.
[[nodiscard]] gid_t group_id(const std::string& name);

}  // namespace fs
