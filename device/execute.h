#pragma once

#include <string>
#include <vector>

namespace device {

/// Runs `words`, a program (looked up on PATH when it has no '/') and its arguments, in place of this
/// process. When that fails, says why on standard error and ends the process with EXIT_NOT_FOUND or
/// EXIT_NOT_EXECUTABLE, without the exit handlers: to be called in a forked child.
[[noreturn]] void execute(const std::vector<std::string>& words);

}  // namespace device
