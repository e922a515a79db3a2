#pragma once

#include "device/options.h"

namespace device {

/// Starts the device in a child process, passes signals on to it and waits for its end.
/// Returns twice, as fork does: in this process and, when the device has ended by itself, in the child.
/// @return the exit status for the process it returns in.
/// @throws Failure in either; EXIT_UNAVAILABLE when this machine or user cannot have namespaces.
[[nodiscard]] int run_device(const Options& options);

}  // namespace device
