#pragma once

#include "archive/reader.h"
#include "inspect/plan_report.h"

namespace harbix::inspect {

/// Finds out what a restore of media would make of the reader's section on this device.
void plan_media(ArchiveReader& reader, PlanReport& report);

}  // namespace harbix::inspect
