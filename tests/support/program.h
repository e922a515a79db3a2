#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/file_descriptor.h"

namespace harbix::test {

/// How a program ended, and what it said.
struct Outcome {
  int status = -1;  ///< exit status, or minus the number of the signal that ended it
  std::string output;
  std::string errors;
};

/// A program, found on PATH, that runs beside the test. Killed at the end of its life if it has not ended
/// before.
class Program {
 public:
  /// Starts it with `input` to read. `setup` runs in the new process first. The signals that end a job are
  /// not ignored there unless `setup` says so. @throws std::system_error
  explicit Program(const std::vector<std::string>& command, std::string input = "",
                   void (*setup)() = nullptr);
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program();

  /// Waits for the next line of its output; without the newline. What is left when the output ends.
  std::string read_line();

  [[nodiscard]] pid_t pid() const noexcept { return pid_; }

  /// Waits for its end, and for that of all others that have its output. What read_line() gave is not in the
  /// outcome.
  Outcome wait();

 private:
  pid_t pid_ = -1;
  base::FileDescriptor input_;
  base::FileDescriptor output_;
  base::FileDescriptor errors_;
  std::string unread_;  ///< of the input
};

/// Runs a program to its end.
[[nodiscard]] Outcome run_program(const std::vector<std::string>& command, const std::string& input = "");

/// Runs part of a test in a process of its own, which may ruin its identity, limits or locale. What fails
/// there is printed there.
[[nodiscard]] ::testing::AssertionResult passes_in_child(const std::function<void()>& body);

}  // namespace harbix::test
