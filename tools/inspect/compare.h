#pragma once

#include "inspect/options.h"
#include "inspect/output.h"

namespace harbix::inspect {

/// Prints what came, went and changed between two archives, a line an item. One of the two must be a plain
/// file, which is read twice.
/// @return the exit status, as diff's: 1 where they differ, 2 for a damaged one. @throws std::runtime_error
[[nodiscard]] int compare(const Request& request, Output& output);

}  // namespace harbix::inspect
