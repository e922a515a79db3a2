#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "device/channel.h"
#include "device/signal_source.h"
#include "device/terminal.h"

namespace device {

/// COMMAND as a child of this process: a job of its own, which the program on the host stops and continues.
class Command {
 public:
  Command(const SignalSource& signals, Channel& host, const Terminal& terminal)
      : signals_(signals), host_(host), terminal_(terminal) {}

  /// Runs `words` in a process group of its own, in the foreground if this program was there.
  /// With `ends_with_parent` it is killed when this process dies.
  /// @throws Failure when no process can be started.
  void start(const std::vector<std::string>& words, bool ends_with_parent = false);

  [[nodiscard]] bool is_started() const noexcept { return process_ != -1; }
  [[nodiscard]] pid_t process() const noexcept { return process_; }
  /// As waitpid gave it; nothing while it runs.
  [[nodiscard]] std::optional<int> status() const noexcept { return status_; }

  /// Takes note of what waitpid said of its process, and tells the host.
  void take_in(int status);

  /// Answers what the host has said.
  void answer_host();

  /// Sends it `signal`, and wakes it for that. Does nothing before it is started or after its end.
  void pass_on(int signal) const;

  /// Sends it SIGTSTP, which it may not care for; as soon as it is started if it is not yet.
  void ask_to_stop();

 private:
  const SignalSource& signals_;
  Channel& host_;
  const Terminal& terminal_;
  pid_t process_ = -1;
  std::optional<int> status_;
  bool early_stop_ = false;
};

/// The exit status that stands for `status`, which is as waitpid gave it.
[[nodiscard]] int exit_status_of(int status);

/// Whether `status`, as waitpid gave it, says that the process has ended, and not just stopped.
[[nodiscard]] bool has_ended(int status);

}  // namespace device
