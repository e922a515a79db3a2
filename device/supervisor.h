#pragma once

#include <sys/types.h>

#include "device/channel.h"
#include "device/options.h"
#include "device/signal_source.h"
#include "device/terminal.h"

namespace device {

/// Starts the device in a child process, passes signals on to it and waits for its end.
/// @return the exit status. The child itself says on standard error why a device could not be set up.
/// @throws Failure when there can be no child; EXIT_UNAVAILABLE when this machine or user cannot have
/// namespaces.
[[nodiscard]] int run_device(const Options& options);

/// Passes signals on to `process`, a child that runs COMMAND on a device that was entered, and waits for its
/// report through `channel`. SIGCHLD is ignored. @return the exit status.
[[nodiscard]] int supervise_visitor(pid_t process, const SignalSource& signals, Channel channel,
                                    const Terminal& terminal);

}  // namespace device
