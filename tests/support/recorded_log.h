#pragma once

#include <string>
#include <vector>

#include "tests/support/log_line.h"

namespace harbix::test {

/// Keeps what is logged instead of sending it, at a debug level of its own, until the end of the scope; then
/// the level is 1 again. Executables that link recorded_log.cc never send anything to the system log.
class RecordedLog {
 public:
  explicit RecordedLog(int level = 1);
  ~RecordedLog();
  RecordedLog(const RecordedLog&) = delete;
  RecordedLog& operator=(const RecordedLog&) = delete;
  RecordedLog(RecordedLog&&) = delete;
  RecordedLog& operator=(RecordedLog&&) = delete;

  [[nodiscard]] const std::vector<LogLine>& lines() const noexcept;
  /// The messages alone, as "SEVERITY MESSAGE": "3 Failed to unlink '/a' (Is a directory)".
  [[nodiscard]] std::vector<std::string> messages() const;
  void clear() noexcept;
};

}  // namespace harbix::test
