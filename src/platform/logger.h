#pragma once

namespace platform {

/// Severities of the device's system log.
enum Severity : int {
  SEVERITY_ERROR = 2,
  SEVERITY_WARNING = 3,
  SEVERITY_NOTICE = 4,
  SEVERITY_INFO = 5,
  SEVERITY_DEBUG1 = 6,
  SEVERITY_DEBUG2 = 7,
};

/// Sends one printf-style line to the system log: here to /dev/log, at the nearest syslog priority.
/// `code` is the device's message code; syslog has no place for it. A missing log is no error.
/// @return 0, always.
[[gnu::format(printf, 3, 4)]] int slogf(int code, int severity, const char* format, ...) noexcept;

}  // namespace platform
