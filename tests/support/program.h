#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace harbix::test {

/// How a program ended, and what it said.
struct Outcome {
  int status = -1;  ///< exit status, or 128 + the signal that ended it
  std::string output;
  std::string errors;
};

/// Runs a program, found on PATH, to its end with `input` as its standard input.
[[nodiscard]] Outcome run_program(const std::vector<std::string>& command, const std::string& input = "");

/// Runs part of a test in a process of its own, which may ruin its identity, limits or locale. What fails
/// there is printed there.
[[nodiscard]] ::testing::AssertionResult passes_in_child(const std::function<void()>& body);

}  // namespace harbix::test
