#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "device/channel.h"
#include "device/command.h"
#include "device/log_collector.h"
#include "device/service.h"
#include "device/signal_source.h"
#include "device/terminal.h"

namespace device {

/// The work of the device's first process once its root stands: runs the services and COMMAND, collects the
/// log, takes in ended processes, and ends every process of the device when COMMAND has ended.
class Init {
 public:
  Init(const SignalSource& signals, Channel& host, const Terminal& terminal, LogCollector& log,
       std::vector<Service> services, std::function<void()> ready)
      : signals_(signals),
        host_(host),
        log_(log),
        services_(std::move(services)),
        ready_(std::move(ready)),
        command_(signals, host, terminal) {}

  /// Starts the services in their order, each when the one before it is ready, and then calls `ready`. Runs
  /// `command` to its end, then gives the processes that it left behind 5 seconds, unless a signal ended it.
  /// Ends the services last, so that they can save what they hold; one that ends before is reported on
  /// standard error, and started again if it is one of those that are.
  /// @return the exit status of `command`, or 128 and the number of the signal that ended it; 127 or 126 when
  /// it cannot be run; 128 and the number of a signal that came before it was started.
  /// @throws Failure when no process can be started, or a service does not get ready. What was started before
  /// ends with this process.
  [[nodiscard]] int run(const std::vector<std::string>& command);

  /// Has `loss` called when COMMAND has ended, and all processes killed right then, the services too.
  void end_by(std::function<void()> loss) { loss_ = std::move(loss); }

 private:
  using Clock = std::chrono::steady_clock;

  void start_services();
  [[nodiscard]] bool is_finished() const;
  [[nodiscard]] bool belongs_to_service(pid_t process) const;
  [[nodiscard]] bool kill_all_but_services() const;
  void end_services();

  /// Waits for news of any kind, at most until `deadline` if there is one, and answers it.
  void wait_for_event(std::optional<Clock::time_point> deadline = {});
  void answer_signals();
  void answer_signal(int signal);
  void take_in_processes();
  void take_in(pid_t process, int status);

  const SignalSource& signals_;
  const Channel& host_;
  LogCollector& log_;
  std::vector<Service> services_;
  std::function<void()> ready_;
  std::function<void()> loss_;
  bool has_started_services_ = false;
  bool ending_services_ = false;
  Command command_;
  /// What ends the device before COMMAND is started.
  std::optional<int> early_signal_;
  bool interrupted_ = false;
  /// When the processes that COMMAND left behind are ended.
  Clock::time_point deadline_;
};

}  // namespace device
