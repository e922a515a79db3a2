#pragma once

#include <stdexcept>
#include <string>

namespace fs {

/// Error of the file-system toolkit: a message that quotes the path, and the system's error number.
class Exception : public std::runtime_error {
 public:
  /// Says that no system call failed.
  static constexpr int NO_ERROR_NUMBER = -1;

  explicit Exception(const std::string& message) : std::runtime_error(message) {}

  /// what() is the message followed by " [errno:NUMBER 'TEXT']", unless `error` is NO_ERROR_NUMBER.
  Exception(int error, const std::string& message);

  /// The errno of the call that failed, or NO_ERROR_NUMBER.
  [[nodiscard]] int error() const noexcept { return error_; }

  /// The system's text for that error; the message where there is none.
  [[nodiscard]] std::string reason() const;

 private:
  int error_ = NO_ERROR_NUMBER;
};

/// Of a path that does not lie where it should: "Path 'PATH' is not subdirectory of 'BASE'".
[[nodiscard]] Exception no_subdirectory(const std::string& path, const std::string& base);

}  // namespace fs
