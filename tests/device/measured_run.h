#pragma once

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/program.h"

namespace harbix::test {

/// How a program ended, and what it took.
struct MeasuredRun {
  int status = -1;
  long mebibytes = -1;  ///< of memory, at most
  long seconds = -1;    ///< of the processor's time: what others do on the machine is not the program's fault
  std::string errors;
};

/// Runs a command on a device.
template <typename AnyDevice>
MeasuredRun measured_run(AnyDevice& device, const std::vector<std::string>& command) {
  std::vector<std::string> words{"python3", "-c", R"(
import os, sys
child = os.fork()
if child == 0:
    os.execvp(sys.argv[1], sys.argv[1:])
_, status, usage = os.wait4(child, 0)
print(os.waitstatus_to_exitcode(status), usage.ru_maxrss >> 10, int(usage.ru_utime + usage.ru_stime))
)"};
  words.insert(words.end(), command.begin(), command.end());
  const Outcome outcome = device.run(words);
  MeasuredRun run;
  run.errors = outcome.errors;
  std::istringstream figures(outcome.output);
  EXPECT_TRUE(figures >> run.status >> run.mebibytes >> run.seconds) << outcome.output << outcome.errors;
  return run;
}

}  // namespace harbix::test
