#pragma once

#include <string>

namespace harbix::test {

/// One line of the log.
struct LogLine {
  int code = 0;      ///< as the system's logger was given it; 0 for a line that a device's log holds
  int severity = 0;  ///< as the logger was given it; syslog's for a line that a device's log holds
  std::string text;  ///< "PROGRAM[PID]:MESSAGE"

  /// What follows the first ':'.
  [[nodiscard]] std::string message() const { return text.substr(text.find(':') + 1); }
};

}  // namespace harbix::test
