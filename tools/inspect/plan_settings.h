#pragma once

#include "archive/reader.h"
#include "inspect/plan_report.h"

namespace harbix::inspect {

/// Finds out what a restore of settings would make of the reader's section on this device. The settings
/// scripts are asked for their lists; subscribers are told nothing.
void plan_settings(ArchiveReader& reader, PlanReport& report);

}  // namespace harbix::inspect
