#pragma once

#include <string>

#include "device/signal_source.h"

namespace device {

/// What is done to a kept device that is not running. Snapshots of the device in DIR are kept beside it, as
/// DIR.snapshots/NAME: complete device folders. Everything is built beside the device and takes its place in
/// one step, so that a device, or a snapshot, is there as a whole or as it was before.
///
/// All throw Failure when `folder` is no device, its device is running, or the system refuses, and Failure
/// with the status that stands for a signal when one interrupts them; nothing was changed then.

/// Takes the device back to what it was when it was new.
void reset_device(const std::string& folder, bool bare, const SignalSource& signals);

/// Keeps the device's state as `name`. @throws Failure also when there is a snapshot of that name.
void keep_snapshot(const std::string& folder, const std::string& name, const SignalSource& signals);

/// Brings the device back to the state that was kept as `name`. @throws Failure also when there is none.
void bring_back_snapshot(const std::string& folder, const std::string& name, const SignalSource& signals);

/// Puts a copy of the folder `state`, which may be below the descriptor `kept`, in the device's place.
void replace_device(const std::string& folder, const std::string& state, const SignalSource& signals,
                    int kept);

}  // namespace device
