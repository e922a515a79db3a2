#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace installer {

/// The whole text of a PPS object. @return nothing when there is no such object. @throws std::system_error.
[[nodiscard]] std::optional<std::string> read_object(const std::string& path);

/// Merges lines into an existing object by one write, which readers see as one change.
/// @return false when there is no such object. @throws std::system_error.
bool write_object(const std::string& path, std::string_view lines);

/// The same, but makes the object when it is missing.
void publish_object(const std::string& path, std::string_view lines);

/// Removes an object; one that is gone already is as good. @throws std::system_error.
void remove_object(const std::string& path);

/// Whether the error says that the server of the file system is gone.
[[nodiscard]] bool is_unserved(const std::error_code& error);

}  // namespace installer
