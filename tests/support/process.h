#pragma once

#include <string>
#include <vector>

namespace test {

/// How a program ended, and what it said.
struct Outcome {
  int status = -1;  ///< exit status, or 128 + the signal that ended it
  std::string output;
  std::string errors;
};

/// Runs a program, found on PATH, to its end with `input` as its standard input.
[[nodiscard]] Outcome run_program(const std::vector<std::string>& command, const std::string& input = "");

}  // namespace test
