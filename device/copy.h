#pragma once

#include <string>

#include "device/signal_source.h"

namespace device {

/// Makes `target`, which does not exist, or is an empty folder, a copy of the folder `source`: with owners,
/// modes, times, extended attributes, hard links and holes, and without doubling the data where the file
/// system can share it.
/// @throws Failure with what went wrong first, or for a signal as give_way_to_signals() does. What was copied
/// stays.
void copy_folder(const std::string& source, const std::string& target, const SignalSource& signals);

/// Stops this process where a SIGTSTP asks for it.
/// @throws Failure, with the status that stands for it, when another signal has arrived.
void give_way_to_signals(const SignalSource& signals);

}  // namespace device
