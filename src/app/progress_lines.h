#pragma once

#include <string>
#include <string_view>

namespace harbix {

/// Lines for standard error, which is not buffered: a line for each of a million files takes its time.
/// They are written some at a time, in order, and all of them at the end.
class ProgressLines {
 public:
  ProgressLines() = default;
  ~ProgressLines();
  ProgressLines(const ProgressLines&) = delete;
  ProgressLines& operator=(const ProgressLines&) = delete;
  ProgressLines(ProgressLines&&) = delete;
  ProgressLines& operator=(ProgressLines&&) = delete;

  void add(std::string_view label, std::string_view text);

  /// Writes what has gathered: before somebody else has something to say.
  void flush();

 private:
  std::string lines_;
};

}  // namespace harbix
