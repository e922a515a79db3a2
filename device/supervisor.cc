#include "device/supervisor.h"

#include <grp.h>
#include <poll.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <optional>
#include <string>

#include "device/channel.h"
#include "device/failure.h"
#include "device/signal_source.h"
#include "device/tablet.h"
#include "device/terminal.h"

namespace device {
namespace {

/// The host's side of a running device.
class Supervisor {
 public:
  Supervisor(pid_t device, const SignalSource& signals, Channel channel, const Terminal& terminal)
      : device_(device), signals_(signals), channel_(std::move(channel)), terminal_(terminal) {
    terminal_given_ = terminal_.was_ours();
  }

  int wait() {
    while (!status_) {
      std::array<pollfd, 2> events = {pollfd{signals_.descriptor(), POLLIN, 0},
                                      pollfd{channel_.descriptor(), POLLIN, 0}};
      // No signal interrupts it, all are held back; a failure shows as no event and is tried again.
      (void)::poll(events.data(), events.size(), -1);
      while (const std::optional<Notice> notice = channel_.receive()) answer(*notice);
      while (const std::optional<int> signal = signals_.next()) answer(*signal);
    }
    take_terminal();
    if (!WIFSIGNALED(*status_)) return WEXITSTATUS(*status_);
    const int signal = WTERMSIG(*status_);
    std::cerr << "harbix-device: the device was killed by signal " << signal << std::endl;
    return EXIT_SIGNAL_BASE + signal;
  }

 private:
  void answer(int signal) {
    if (signal != SIGCHLD) {
      ::kill(device_, signal);  // Cannot fail before the device is waited for.
      return;
    }
    int status = 0;
    if (::waitpid(device_, &status, WNOHANG) == device_) status_ = status;
  }

  void answer(Notice notice) {
    take_terminal();
    if (notice != Notice::command_stopped) return;
    // Who started this program sees it stop as COMMAND did. Where nobody could let it go on, the system does
    // not stop it either, and COMMAND goes on at once.
    if (terminal_.exists()) ::kill(::getpid(), SIGTSTP);
    terminal_given_ = terminal_.is_ours();
    if (terminal_.exists()) channel_.send(terminal_given_ ? Notice::go_on_in_foreground : Notice::go_on);
  }

  void take_terminal() {
    if (terminal_given_) terminal_.give_to(::getpgrp());
    terminal_given_ = false;
  }

  pid_t device_;
  const SignalSource& signals_;
  Channel channel_;
  const Terminal& terminal_;
  bool terminal_given_ = false;
  std::optional<int> status_;
};

void become_root_alone() {
  if (::geteuid() != 0) throw Failure("only root can start a device", EXIT_UNAVAILABLE);
  if (::setgroups(0, nullptr) == -1) throw system_failure(errno, "drop the groups", {}, EXIT_UNAVAILABLE);
  if (::setresgid(0, 0, 0) == -1 || ::setresuid(0, 0, 0) == -1) {
    throw system_failure(errno, "become root", {}, EXIT_UNAVAILABLE);
  }
}

/// As fork, but the child is the first process of a new process namespace. To leave this namespace first and
/// then fork would do too, but would keep this process from ever starting another one.
pid_t fork_into_process_namespace() {
  const auto child = static_cast<pid_t>(::syscall(SYS_clone, CLONE_NEWPID | SIGCHLD, 0, 0, 0, 0));
  if (child == -1) throw system_failure(errno, "make a process namespace", {}, EXIT_UNAVAILABLE);
  return child;
}

}  // namespace

int run_device(const Options& options) {
  become_root_alone();
  const SignalSource signals;
  const Terminal terminal;
  std::pair<Channel, Channel> ends = Channel::make();
  const pid_t device = fork_into_process_namespace();
  if (device == 0) {
    { const Channel unused = std::move(ends.first); }
    // Without the exit handlers, which are the parent's to run.
    ::_exit(status_of([&] { return run_tablet(options, signals, std::move(ends.second), terminal); }));
  }
  { const Channel unused = std::move(ends.second); }
  return Supervisor(device, signals, std::move(ends.first), terminal).wait();
}

}  // namespace device
