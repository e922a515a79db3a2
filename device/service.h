#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "base/file_descriptor.h"
#include "device/signal_source.h"

namespace device {

/// A program of the device itself that runs beside COMMAND: started before it, ended after it. It has to take
/// the option "--ready-fd N", write one byte to descriptor N when others can use it, and end at SIGTERM
/// (being ended by it is in order).
///
/// Its owner waits for ended processes, and hands the service the status of its own.
class Service {
 public:
  /// What is to be done when it ends too early: whose clients can wait while it comes back is started again.
  enum class Loss { bear, start_again };

  /// `command` is the program and its arguments; the option is put between them.
  explicit Service(std::vector<std::string> command, Loss loss = Loss::bear);

  /// Starts the program in a session of its own, so that the keys of a terminal are none of its business,
  /// with empty input, its output thrown away and the device's standard error.
  /// @throws Failure when no process can be started.
  void start(const SignalSource& signals);

  /// The program's name without its folder.
  [[nodiscard]] const std::string& name() const noexcept { return name_; }

  /// -1 unless it runs.
  [[nodiscard]] pid_t process() const noexcept { return process_; }
  [[nodiscard]] bool is_running() const noexcept { return process_ != -1; }

  /// Readable when there is news for look_for_readiness(); -1 when there is no more to come.
  [[nodiscard]] int descriptor() const noexcept { return readiness_.get(); }
  void look_for_readiness() noexcept;
  [[nodiscard]] bool is_ready() const noexcept { return ready_; }

  /// Lets a stopped process run, for those that wait for it.
  void go_on() const noexcept;
  /// SIGTERM, which a stopped process gets as well.
  void ask_to_end() const noexcept;
  void kill() const noexcept;

  /// Notes that the process has ended. `status` is as waitpid gave it.
  void take_end(int status);
  /// How it ended: "ended with status 1", "was killed by signal 9". Empty before.
  [[nodiscard]] const std::string& end() const noexcept { return end_; }
  /// Whether it is to be started again after that end: it was ready and then failed or was killed. One that
  /// gave up of its own accord, with status 0, or never got ready would only do so again.
  [[nodiscard]] bool is_to_start_again() const noexcept {
    return loss_ == Loss::start_again && ready_ && failed_;
  }

 private:
  std::string name_;
  std::vector<std::string> command_;
  Loss loss_;
  pid_t process_ = -1;
  base::FileDescriptor readiness_;
  bool ready_ = false;
  bool failed_ = false;
  std::string end_;
};

}  // namespace device
