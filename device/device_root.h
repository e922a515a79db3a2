#pragma once

#include <string>

#include "device/mounts.h"

namespace device {

/// The host's folder that this program is in, harbix beside it; to be taken before anything is mounted over
/// it.
/// @throws Failure when the folder cannot be found out or taken.
[[nodiscard]] DetachedMount own_programs();

/// Puts into the filled root `root` what a device shares with its host or has anew at each start: the host's
/// programs and libraries read-only, `programs` at /opt/harbix/bin, /dev and /proc.
/// To be called in the device's own mount and process namespaces.
/// @throws Failure quoting the path that could not be mounted or made.
void furnish_root(const std::string& root, const DetachedMount& programs);

}  // namespace device
