#pragma once

#include <string>
#include <vector>

#include "device/mounts.h"

namespace device {

/// The folder of the device in which its own programs are, first on PATH.
inline constexpr const char* OWN_PROGRAMS = "/opt/harbix/bin";

/// The host's folder that this program is in. To be asked for before a mount namespace is entered: in a
/// chroot, the kernel then gives the path outside of it.
/// @throws Failure when the folder cannot be found out.
[[nodiscard]] std::string folder_of_this_program();

/// The programs that a device has of this project, taken from the host, not attached yet.
class OwnPrograms {
 public:
  /// To be called before anything is mounted over the host's folders. Finds the programs by `folder`, where
  /// this one is: installed, each in its folder below the same prefix; not installed, all in one folder,
  /// taken whole.
  /// @throws Failure when one of them cannot be taken.
  explicit OwnPrograms(const std::string& folder);

  /// Puts them into the existing folder OWN_PROGRAMS below `root`, read-only.
  /// @throws Failure quoting the path that could not be mounted or made.
  void attach(const std::string& root) const;

 private:
  struct Program {
    std::string name;
    DetachedMount mount;
  };

  void take_installed(const std::string& folder);

  std::vector<DetachedMount> folder_;  ///< one, or none when installed
  std::vector<Program> programs_;
};

}  // namespace device
