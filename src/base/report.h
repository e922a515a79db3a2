#pragma once

#include <iostream>
#include <string>
#include <string_view>

#include "base/flags.h"

/// What a run says to its caller: on standard error, and in the log what is worth keeping.
namespace harbix::report {

/// An error: TEXT behind `prefix` on standard error, "ERROR: TEXT" in the log at level 0.
void error(std::string_view text, std::string_view prefix = "Error: ");

/// A line of progress on standard error, with -v alone.
template <typename... Parts>
void progress(const Parts&... parts) {
  if (verbose) (std::cerr << ... << parts) << '\n';
}

/// Lines of progress for the items of a package. Standard error is not buffered, and a line for each of a
/// million files takes its time: these are written some at a time, in order, and all of them at the end.
class ProgressLines {
 public:
  ProgressLines() = default;
  ~ProgressLines();
  ProgressLines(const ProgressLines&) = delete;
  ProgressLines& operator=(const ProgressLines&) = delete;
  ProgressLines(ProgressLines&&) = delete;
  ProgressLines& operator=(ProgressLines&&) = delete;

  void add(std::string_view label, std::string_view text);

  /// Writes what has gathered: to be called before anything else is said.
  void flush();

 private:
  std::string lines_;
};

}  // namespace harbix::report
