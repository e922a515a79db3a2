#pragma once

#include <optional>
#include <string>

namespace usage {

/// The text that the program `file` says of itself: the content of its section ".usage".
/// @return nothing when the file is no program of this machine's kind, or a damaged one, or has no such
/// section.
/// @throws std::system_error "cannot open 'FILE'" or "cannot read 'FILE'", with the reason.
[[nodiscard]] std::optional<std::string> usage_record(const std::string& file);

}  // namespace usage
