#pragma once

#include <csignal>
#include <optional>

#include "base/file_descriptor.h"

namespace device {

/// Holds back the signals that the device answers itself and hands them out one by one: SIGCHLD, those that
/// are passed on to COMMAND, and SIGTSTP and SIGCONT, which stop COMMAND and wake it. Also holds back
/// SIGTTOU, so that the terminal can be given away and taken back. A forked child inherits it and then reads
/// its own signals from it.
class SignalSource {
 public:
  /// @throws Failure when the system refuses.
  SignalSource();
  SignalSource(const SignalSource&) = delete;
  SignalSource& operator=(const SignalSource&) = delete;
  ~SignalSource();  // as give_back()

  /// Readable when a signal has arrived.
  [[nodiscard]] int descriptor() const noexcept { return descriptor_.get(); }

  /// The number of the next signal that has arrived; nothing when there is none.
  [[nodiscard]] std::optional<int> next() const;

  /// Sets the signal mask back to what it was.
  void give_back() const noexcept;

 private:
  sigset_t before_ = {};
  base::FileDescriptor descriptor_;
};

/// Whether `signal`, one of a SignalSource, is held back and handed out, as it is at first, or has the effect
/// that it has on any process.
void hold_back(int signal, bool is_held_back) noexcept;

/// Lets `signal`, which stops, have its effect on this process if it has arrived. Returns when the process
/// goes on; SIGCONT is then among the signals that have arrived.
void be_stopped_by(int signal) noexcept;

/// Whether who started this program has it ignore `signal`.
[[nodiscard]] bool is_ignored(int signal);

}  // namespace device
