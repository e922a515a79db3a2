#pragma once

#include "inspect/options.h"
#include "inspect/output.h"

namespace harbix::inspect {

/// On a device, as root: prints what a restore of an archive would do here, package by package, and does
/// nothing of it.
/// @return the exit status: 1 when something would not come back.
/// @throws std::runtime_error when that cannot be known: not on a device, or an archive that cannot be read.
[[nodiscard]] int plan(const Request& request, Output& output);

}  // namespace harbix::inspect
