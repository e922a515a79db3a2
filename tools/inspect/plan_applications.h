#pragma once

#include "archive/reader.h"
#include "inspect/plan_report.h"

namespace harbix::inspect {

/// Finds out what a restore of applications would make of the reader's section on this device.
/// @throws std::runtime_error when that cannot be known: the installer publishes no list, or the archive
/// cannot be read at all.
void plan_applications(ArchiveReader& reader, PlanReport& report);

}  // namespace harbix::inspect
