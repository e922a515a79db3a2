#pragma once

#include <string_view>

namespace fs {

/// Ends the process at once, with status 2, because a guard cannot go back to the identity that it found: to
/// go on would be to work as somebody else. `kind` is "uid" or "gid", `id` is what was to be restored,
/// `error` is the error number of the call that failed. Logs "Could not restore effective KIND ID: TEXT" at
/// level 0 and writes it to standard error behind "ERROR: ".
[[noreturn]] void end_with_lost_identity(std::string_view kind, unsigned id, int error);

}  // namespace fs
