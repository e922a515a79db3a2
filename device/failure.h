#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace device {

/// Exit statuses of harbix-device itself; COMMAND's own status passes through unchanged otherwise.
inline constexpr int EXIT_USAGE = 64;
inline constexpr int EXIT_FAILED = 70;
inline constexpr int EXIT_UNAVAILABLE = 77;
inline constexpr int EXIT_NOT_EXECUTABLE = 126;
inline constexpr int EXIT_NOT_FOUND = 127;
/// Added to the number of the signal that ended a process.
inline constexpr int EXIT_SIGNAL_BASE = 128;

/// A reason for the device not to start or not to go on: one line for the user, and the exit status.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& text, int status = EXIT_FAILED)
      : std::runtime_error(text), status_(status) {}

  [[nodiscard]] int status() const noexcept { return status_; }

 private:
  int status_;
};

/// Shape: "cannot ACTION 'PATH': TEXT OF ERROR"; without a path "cannot ACTION: TEXT OF ERROR".
[[nodiscard]] Failure system_failure(int error, std::string_view action, std::string_view path = {},
                                     int status = EXIT_FAILED);

/// What `work` returns; when it throws, the failure goes to standard error as one line and its status is
/// returned.
[[nodiscard]] int status_of(const std::function<int()>& work);

}  // namespace device
