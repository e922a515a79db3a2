#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "device/channel.h"
#include "device/log_collector.h"
#include "device/signal_source.h"
#include "device/terminal.h"

namespace device {

/// The work of the device's first process once its root stands: runs COMMAND, collects the log, takes in
/// ended processes, and ends every process of the device when COMMAND has ended.
class Init {
 public:
  Init(const SignalSource& signals, Channel& host, const Terminal& terminal, LogCollector& log)
      : signals_(signals), host_(host), terminal_(terminal), log_(log) {}

  /// Runs `command` to its end, then gives the processes that it left behind 5 seconds, unless a signal ended
  /// it.
  /// @return its exit status, or 128 and the number of the signal that ended it; 127 or 126 when it cannot be
  /// run.
  /// @throws Failure when no process can be started.
  [[nodiscard]] int run(const std::vector<std::string>& command);

 private:
  using Clock = std::chrono::steady_clock;

  void start(const std::vector<std::string>& command);
  [[nodiscard]] bool is_finished() const;
  void wait_for_event();
  void answer_signals();
  void answer_host();
  void take_in_processes();
  void pass_on(int signal);

  const SignalSource& signals_;
  Channel& host_;
  const Terminal& terminal_;
  LogCollector& log_;
  pid_t command_ = -1;
  /// As waitpid gave it; nothing while COMMAND runs.
  std::optional<int> status_;
  bool interrupted_ = false;
  Clock::time_point deadline_;
};

/// The process ids in `text`, which is what /proc/PID/task/TID/children holds: "12 345 ".
[[nodiscard]] std::vector<pid_t> parse_process_ids(const std::string& text);

}  // namespace device
