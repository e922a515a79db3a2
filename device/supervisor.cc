#include "device/supervisor.h"

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
#include <utility>

#include "device/channel.h"
#include "device/failure.h"
#include "device/power.h"
#include "device/privileges.h"
#include "device/signal_source.h"
#include "device/tablet.h"
#include "device/terminal.h"

namespace device {
namespace {

/// The host's side of a running device.
class Supervisor {
 public:
  Supervisor(pid_t device, const SignalSource& signals, Channel channel, const Terminal& terminal)
      : device_(static_cast<int>(::syscall(SYS_pidfd_open, device, 0))),
        process_(device),
        signals_(signals),
        channel_(std::move(channel)),
        terminal_(terminal) {
    terminal_given_ = terminal_.was_ours();
  }

  /// Waits until the child process is there no more. @return its exit status.
  int wait() {
    while (!status_) wait_for_event();
    take_terminal();
    if (!WIFSIGNALED(*status_)) return WEXITSTATUS(*status_);
    const int signal = WTERMSIG(*status_);
    std::cerr << "harbix-device: the device was killed by signal " << signal << std::endl;
    return EXIT_SIGNAL_BASE + signal;
  }

  /// As wait(), for a child whose end only the channel reports.
  int wait_for_report() {
    while (!reported_ && channel_.is_open()) wait_for_event();
    take_terminal();
    if (reported_) return *reported_;
    std::cerr << "harbix-device: the device has ended" << std::endl;
    return EXIT_SIGNAL_BASE + SIGKILL;
  }

 private:
  void wait_for_event() {
    // A stopped COMMAND leaves the next stop to this process, and this one to the system: it takes the stop
    // back when a shell that saw the rest of the job stop lets it go on before this process has its turn.
    hold_back(SIGTSTP, !is_command_stopped_);
    std::array<pollfd, 2> events = {pollfd{signals_.descriptor(), POLLIN, 0},
                                    pollfd{channel_.descriptor(), POLLIN, 0}};
    // No signal interrupts it, all are held back; a failure shows as no event and is tried again.
    (void)::poll(events.data(), events.size(), -1);
    // The signals first: a shell that lets this program go on has also decided whose the terminal is.
    answer_signals();
    while (const std::optional<Notice> notice = channel_.receive()) answer(*notice);
  }

  void answer_signals() {
    while (const std::optional<int> signal = signals_.next()) answer(*signal);
  }

  void answer(int signal) {
    if (signal == SIGCHLD) {
      int status = 0;
      if (::waitpid(process_, &status, WNOHANG) == process_) status_ = status;
    } else if (signal == SIGCONT) {
      has_been_let_go_on_ = true;
      let_command_go_on();
    } else {
      // It may be gone, which the supervisor learns from its process descriptor. A number could be another
      // process's by then.
      (void)::syscall(SYS_pidfd_send_signal, device_.get(), signal, nullptr, 0);
    }
  }

  void answer(const Notice& notice) {
    is_command_stopped_ = notice.kind == Notice::Kind::command_stopped;
    if (notice.kind == Notice::Kind::finished) reported_ = notice.value;
    if (notice.kind == Notice::Kind::command_went_on) return;
    const bool had_terminal = terminal_given_;
    take_terminal();
    if (is_command_stopped_ && terminal_.exists()) follow_into_stop(notice.value, had_terminal);
  }

  /// COMMAND has stopped: its job stops too, so that the shell that started this program takes over.
  void follow_into_stop(int signal, bool had_terminal) {
    const bool wants_terminal = signal == SIGTTIN || signal == SIGTTOU;
    // The shell has brought this job into the foreground without a word, as it does with one that runs.
    if (wants_terminal && !had_terminal && terminal_.is_ours()) return let_command_go_on();
    if (signal == SIGSTOP) {
      // Not by a key or for the terminal, so the rest of a script's job has nothing to do with it; only a
      // shell whose job this program leads would wait for it to stop.
      if (is_job_of_a_shell()) stop_with_the_job(SIGSTOP);
      return;
    }
    if (stop_with_the_job(signal)) return;
    // There is no shell that could let this job go on, so the system does not stop it. COMMAND cannot have
    // the terminal either: it is treated as what is left stopped when its shell ends.
    if (wants_terminal) {
      // Once: one that takes no notice would only stop again, and stays stopped until a signal comes.
      if (!std::exchange(has_been_hung_up_, true)) channel_.send({.kind = Notice::Kind::hang_up});
    } else {
      let_command_go_on();
    }
  }

  /// Stops all that was started together with this program, as a key of the terminal would, until it is let
  /// go on. @return whether it was stopped at all.
  bool stop_with_the_job(int signal) {
    has_been_let_go_on_ = false;
    ::kill(0, signal);  // This process is in its own group, so there is one to signal.
    be_stopped_by(signal);
    answer_signals();
    return has_been_let_go_on_;
  }

  /// Whether the parent process gave this one a group, as shells with job control do.
  static bool is_job_of_a_shell() {
    const pid_t parent = ::getppid();
    return parent != 0 && ::getpgid(parent) != ::getpgrp() && ::getsid(parent) == ::getsid(0);
  }

  void let_command_go_on() {
    terminal_given_ = terminal_.is_ours();
    channel_.send({.kind = terminal_given_ ? Notice::Kind::go_on_in_foreground : Notice::Kind::go_on});
  }

  void take_terminal() {
    if (terminal_given_) terminal_.give_to(::getpgrp());
    terminal_given_ = false;
  }

  base::FileDescriptor device_;
  pid_t process_;
  const SignalSource& signals_;
  Channel channel_;
  const Terminal& terminal_;
  bool terminal_given_ = false;
  bool is_command_stopped_ = false;
  bool has_been_let_go_on_ = false;
  bool has_been_hung_up_ = false;
  std::optional<int> status_;
  std::optional<int> reported_;
};

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
  std::optional<Disk> disk;
  if (options.faults.power_loss) disk.emplace(signals);
  std::pair<Channel, Channel> ends = Channel::make();
  const pid_t device = fork_into_process_namespace();
  if (device == 0) {
    { const Channel unused = std::move(ends.first); }
    // Without the exit handlers, which are the parent's to run.
    ::_exit(status_of([&] {
      return run_tablet(options, signals, std::move(ends.second), terminal, disk ? &*disk : nullptr);
    }));
  }
  { const Channel unused = std::move(ends.second); }
  const int status = Supervisor(device, signals, std::move(ends.first), terminal).wait();
  if (disk && disk->has_lost_power()) disk->bring_back(options.state, signals);
  return status;
}

int supervise_visitor(pid_t process, const SignalSource& signals, Channel channel, const Terminal& terminal) {
  return Supervisor(process, signals, std::move(channel), terminal).wait_for_report();
}

}  // namespace device
