#pragma once

#include <string_view>

namespace harbix {

/// The name of the entry that begins a package and carries its manifest.
inline constexpr std::string_view METADATA_NAME = ".backup.metadata";

/// Whether an entry's name ends in that component.
[[nodiscard]] constexpr bool is_metadata_name(std::string_view entry_name) {
  return entry_name.substr(entry_name.rfind('/') + 1) == METADATA_NAME;
}

}  // namespace harbix
