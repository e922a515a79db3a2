#pragma once

#include <string>

#include "base/file_descriptor.h"
#include "device/signal_source.h"

namespace device {

/// A disk for a device that is to lose its power: a file system in memory that loses, as a disk's does, what
/// was not synced.
class Disk {
 public:
  /// An empty one. @throws Failure, with EXIT_UNAVAILABLE where this machine cannot have one.
  explicit Disk(const SignalSource& signals);

  /// Its file system, not attached anywhere: what was on the disk when the power went, if it did.
  /// @throws Failure as above.
  [[nodiscard]] base::FileDescriptor mount() const;

  /// Fills the new disk with what is in the folder `source`, and puts it over this folder.
  /// @throws Failure as above.
  void replace(const std::string& source, const SignalSource& signals) const;

  /// From here on the root folder's file system, which is this one, takes nothing and forgets what was not
  /// synced.
  /// @throws Failure
  void lose_power() const;
  /// Whether a process has called lose_power().
  [[nodiscard]] bool has_lost_power() const;

  /// Puts what is left on the disk into the place of the kept device `folder`, which does not run.
  /// @throws Failure; the device is as it was before its start then.
  void bring_back(const std::string& folder, const SignalSource& signals) const;

 private:
  base::FileDescriptor image_;
  base::FileDescriptor loss_;
};

}  // namespace device
