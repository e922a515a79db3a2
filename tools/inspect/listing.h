#pragma once

#include "inspect/options.h"
#include "inspect/output.h"

namespace harbix::inspect {

/// Prints the packages of an archive, and the items of those that are named.
/// @return the exit status: 1 when a package that is named is not in the archive, 2 for a damaged archive.
[[nodiscard]] int list(const Request& request, Output& output);

}  // namespace harbix::inspect
