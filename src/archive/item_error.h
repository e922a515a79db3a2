#pragma once

#include <functional>
#include <string_view>

namespace harbix {

/// Does the work of archiving one item, and goes on after an error that is this item's alone (it vanished, it
/// cannot be read): that costs a message, on standard error behind `prefix` and in the log at level 0.
/// @throws ArchiveError, which is not the item's: there is no archive to go on with.
void tolerate_item_error(const std::function<void()>& archive_item, std::string_view prefix = "Error: ");

}  // namespace harbix
