#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "base/file_descriptor.h"

namespace harbix::test {

/// How a program ended and what it wrote.
struct Result {
  /// The exit status, or minus the number of the signal that ended it.
  int status = 0;
  std::string output;
  std::string errors;
};

/// harbix-device as built, running. Killed at the end of its life if it has not ended before.
class DeviceProcess {
 public:
  /// Starts it with `arguments` and with `input` to read. `setup` runs in the new process first. No
  /// signal is ignored unless it says so.
  explicit DeviceProcess(const std::vector<std::string>& arguments, const std::string& input = {},
                         void (*setup)() = nullptr);
  DeviceProcess(const DeviceProcess&) = delete;
  DeviceProcess& operator=(const DeviceProcess&) = delete;
  ~DeviceProcess();

  /// Waits for the next line of its output; without the newline. What is left when the output ends.
  std::string read_line();

  [[nodiscard]] pid_t pid() const noexcept { return pid_; }

  /// The host's number of the device's first process. The device has to have said something before.
  [[nodiscard]] pid_t first_process() const;

  /// Waits for its end. The output that read_line() gave is not in the result.
  Result wait();

 private:
  pid_t pid_ = -1;
  base::FileDescriptor output_;
  base::FileDescriptor errors_;
};

/// Runs harbix-device to its end.
Result run_device(const std::vector<std::string>& arguments, const std::string& input = {});

/// Runs `script` with sh on the host, the program's path in $device, and `folder` in $folder: both may have
/// blanks.
Result run_on_host(const std::string& script, const std::string& folder = {});

/// Whether `attempt` takes less than `limit` at least once in a few times: a wait that is part of the program
/// is there each time, a pause of a busy machine is not.
bool can_end_within(std::chrono::seconds limit, const std::function<void()>& attempt);

/// Ends the test as skipped where no device can run.
#define REQUIRE_ROOT() \
  if (::geteuid() != 0) GTEST_SKIP() << "only root can start a device"

}  // namespace harbix::test
