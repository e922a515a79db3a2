#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/program.h"

namespace harbix::test {

/// harbix-device as built, running.
class DeviceProcess : public Program {
 public:
  explicit DeviceProcess(const std::vector<std::string>& arguments, const std::string& input = {},
                         void (*setup)() = nullptr);

  /// The host's number of the device's first process. The device has to have said something before.
  [[nodiscard]] pid_t first_process() const;
};

/// Runs harbix-device to its end.
Outcome run_device(const std::vector<std::string>& arguments, const std::string& input = {});

/// Runs `script` with sh on the host, the program's path in $device, and `folder` in $folder: both may have
/// blanks.
Outcome run_on_host(const std::string& script, const std::string& folder = {});

/// Whether `attempt` takes less than `limit` at least once in a few times: a wait that is part of the program
/// is there each time, a pause of a busy machine is not.
bool can_end_within(std::chrono::seconds limit, const std::function<void()>& attempt);

/// Ends the test as skipped where no device can run.
#define REQUIRE_ROOT() \
  if (::geteuid() != 0) GTEST_SKIP() << "only root can start a device"

}  // namespace harbix::test
