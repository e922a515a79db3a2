#pragma once

#include "inspect/options.h"
#include "inspect/output.h"

namespace harbix::inspect {

/// Prints all that is wrong with each archive, and a line that sums it up.
/// @return the exit status, that of the worst archive: 1 when something would be missing or refused, 2 when
/// one cannot be read.
[[nodiscard]] int verify(const Request& request, Output& output);

}  // namespace harbix::inspect
