#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "device/accounts.h"

namespace device {

/// Makes items below one folder, with exactly the owner and mode asked for, without the umask, and with a
/// time of change that depends on the name alone, so that two trees made alike are equal.
///
/// Paths are as on the device: "/accounts/1000". Each call makes one new item in an existing folder.
/// All throw Failure that quotes the path; what was made before stays.
class TreeWriter {
 public:
  explicit TreeWriter(std::string root) : root_(std::move(root)) {}

  void folder(std::string_view path, Owner owner, mode_t mode);
  void file(std::string_view path, Owner owner, mode_t mode, std::string_view content) const;
  /// A file of `size` bytes that are all zero and take no room, but for a short text at either end.
  void sparse_file(std::string_view path, Owner owner, mode_t mode, std::uint64_t size) const;
  void link(std::string_view path, Owner owner, std::string_view target) const;

  /// Gives a file that was made by other means its owner, mode and time.
  void adopt_file(std::string_view path, Owner owner, mode_t mode) const;

  /// Sets the times of the folders, which every item made in them has moved. Call once, at the end.
  void finish() const;

  /// Where `path` of the device is on the host.
  [[nodiscard]] std::string host_path(std::string_view path) const { return root_ + std::string(path); }

 private:
  std::string root_;
  std::vector<std::string> folders_;
};

}  // namespace device
