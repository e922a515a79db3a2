#pragma once

#include "device/channel.h"
#include "device/options.h"
#include "device/power.h"
#include "device/signal_source.h"
#include "device/terminal.h"

namespace device {

/// Everything that happens on the device's side, to be called by the first process of a new process
/// namespace: sets the device up in a mount namespace of its own, runs COMMAND on it and ends with it. The
/// process is killed, and with it the device, when its parent dies.
/// With a `disk` the device's root is on it, and its power goes when COMMAND has ended.
/// @return the exit status. @throws Failure when the device cannot be set up.
[[nodiscard]] int run_tablet(const Options& options, const SignalSource& signals, Channel host,
                             const Terminal& terminal, const Disk* disk);

}  // namespace device
