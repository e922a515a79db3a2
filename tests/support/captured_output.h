#pragma once

#include <string>

namespace harbix::test {

/// Keeps what the process writes to a descriptor, 1 or 2, until the end of the scope.
class CapturedOutput {
 public:
  /// @throws std::system_error
  explicit CapturedOutput(int descriptor);
  ~CapturedOutput();
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;
  CapturedOutput(CapturedOutput&&) = delete;
  CapturedOutput& operator=(CapturedOutput&&) = delete;

  /// Everything so far.
  [[nodiscard]] std::string text() const;

 private:
  int descriptor_;
  int saved_;
  int kept_;
};

}  // namespace harbix::test
