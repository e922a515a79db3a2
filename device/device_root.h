#pragma once

#include <string>

#include "device/own_programs.h"

namespace device {

/// Puts into the filled root `root` what a device shares with its host or has anew at each start: the host's
/// programs and libraries read-only, `programs`, /dev and /proc.
/// To be called in the device's own mount and process namespaces.
/// @throws Failure quoting the path that could not be mounted or made.
void furnish_root(const std::string& root, const OwnPrograms& programs);

}  // namespace device
