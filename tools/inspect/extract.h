#pragma once

#include "inspect/options.h"
#include "inspect/output.h"

namespace harbix::inspect {

/// Puts what lies at or below the named paths on disk, below one folder and under its name in the archive,
/// for the caller. What exists already, what leads out, and what lies behind a link is refused by name; the
/// rest is put there. With "-" for the folder, the contents of one file go to standard output.
/// @return the exit status: 1 when something was refused or is not in the archive, 2 for a damaged archive.
[[nodiscard]] int extract(const Request& request, Output& output);

}  // namespace harbix::inspect
