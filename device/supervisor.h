#pragma once

#include "device/options.h"

namespace device {

/// Starts the device in a child process, passes signals on to it and waits for its end.
/// @return the exit status. The child itself says on standard error why a device could not be set up.
/// @throws Failure when there can be no child; EXIT_UNAVAILABLE when this machine or user cannot have
/// namespaces.
[[nodiscard]] int run_device(const Options& options);

}  // namespace device
