#pragma once

#include <optional>
#include <string>

namespace usage {

/// The file that a shell would run for `name`: `name` itself when it has a '/', else the first executable
/// plain file of that name in the folders of `path`, which are separated by ':' (an empty one is the working
/// directory).
/// @return nothing when no folder has one; a name with a '/' is not looked at.
[[nodiscard]] std::optional<std::string> find_program(const std::string& name, const std::string& path);

}  // namespace usage
