#pragma once

#include <string>
#include <vector>

#include "device/signal_source.h"

namespace device {

/// Makes `target`, which does not exist, or is an empty folder, a copy of the folder `source`: with owners,
/// modes, times, extended attributes, hard links and holes, and without doubling the data where the file
/// system can share it.
/// Either may be a path below the descriptor `kept`.
/// @throws Failure as run_helper(). What was copied stays.
void copy_folder(const std::string& source, const std::string& target, const SignalSource& signals,
                 int kept = -1);

/// Runs the program `words` of the host to its end, with the descriptor `kept`, if it is one, open.
/// @throws Failure "cannot ACTION: ..." with the first line that the program writes to its standard error
/// when it fails, or for a signal as give_way_to_signals() does.
void run_helper(const std::vector<std::string>& words, const std::string& action, const SignalSource& signals,
                int kept);

/// Stops this process where a SIGTSTP asks for it.
/// @throws Failure, with the status that stands for it, when another signal has arrived.
void give_way_to_signals(const SignalSource& signals);

}  // namespace device
