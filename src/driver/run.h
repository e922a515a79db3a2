#pragma once

namespace harbix {

/// One whole invocation: reads the command line, checks the request and carries it out.
/// @return the exit status.
/// @throws whatever goes wrong before the archive stage (subscriber scripts that cannot be listed, a missing
/// system group); from there on errors are reported and become status 2.
int run_program(int argc, char* const argv[]);

}  // namespace harbix
