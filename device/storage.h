#pragma once

#include <string>

#include "base/file_descriptor.h"

namespace device {

/// Where a device's root file system is kept. To be made in the device's own mount namespace.
class Storage {
 public:
  /// In memory: empty, and gone with the mount namespace.
  [[nodiscard]] static Storage in_memory();

  /// In the folder `folder` of the host, made if missing. Holds a lock on it until the end of its life.
  /// A folder whose filling was cut short is emptied and counts as empty.
  /// @throws Failure when another device runs in it, when it holds something else than a device of this
  /// layout (nothing is touched then), or when the system refuses.
  [[nodiscard]] static Storage kept_in(const std::string& folder);

  /// Whether there is nothing in it yet.
  [[nodiscard]] bool is_empty() const noexcept { return empty_; }

  /// The root on the host, absolute; a mount point.
  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  /// To be called before and after the content is made, so that a folder whose filling was cut short is not
  /// taken for a device.
  void begin_filling() const;
  void end_filling() const;

  /// Lets other programs find this process as the one that runs a kept device. To be called when the device's
  /// root is this process's.
  void announce();

  /// Removes what was made since begin_filling(), and the folder itself if it was made. Nothing may be
  /// mounted in it.
  void discard() const noexcept;

 private:
  Storage() = default;

  std::string path_;
  base::FileDescriptor lock_;
  base::FileDescriptor running_;
  bool kept_ = false;
  bool created_ = false;
  bool empty_ = true;
};

}  // namespace device
