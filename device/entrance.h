#pragma once

#include "device/options.h"

namespace device {

/// Runs COMMAND, or a login shell, on the device that is running in the folder `options.state`, beside what
/// runs there. It ends with the device, and this program with it.
/// @return the exit status of COMMAND, as run_device(). @throws Failure when no device runs there that can be
/// entered.
[[nodiscard]] int enter_device(const Options& options);

}  // namespace device
