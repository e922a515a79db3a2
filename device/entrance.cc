#include "device/entrance.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>
#include <thread>
#include <utility>

#include "base/file_descriptor.h"
#include "device/channel.h"
#include "device/command.h"
#include "device/device_folder.h"
#include "device/failure.h"
#include "device/privileges.h"
#include "device/session.h"
#include "device/signal_source.h"
#include "device/supervisor.h"
#include "device/terminal.h"

namespace device {
namespace {

/// Whether no program holds the folder, neither a device that starts or ends nor one that runs.
bool is_free(const std::string& folder) {
  try {
    const base::FileDescriptor held = hold_folder(folder);
    return true;
  } catch (const Failure&) {
    return false;
  }
}

/// A device that runs.
struct RunningDevice {
  base::FileDescriptor process;  ///< its first one
  base::FileDescriptor root;     ///< its root folder
};

/// The device whose first process has this number.
RunningDevice open_device(pid_t process) {
  const std::string root = "/proc/" + std::to_string(process) + "/root";
  return {base::FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, process, 0))),
          base::FileDescriptor(::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC))};
}

/// The device that runs in `folder`.
RunningDevice find_device(const std::string& folder) {
  constexpr std::chrono::seconds START_TIME(30);
  constexpr std::chrono::milliseconds PAUSE(50);
  const auto deadline = std::chrono::steady_clock::now() + START_TIME;
  while (std::chrono::steady_clock::now() < deadline) {
    if (content_of_folder(folder) == FolderContent::device) {
      const std::optional<pid_t> process = running_process(folder);
      RunningDevice device = process ? open_device(*process) : RunningDevice{};
      // The number may have gone to another process before it was opened, but not if it is still right.
      if (device.process && device.root && running_process(folder) == process) return device;
    }
    if (is_free(folder)) throw Failure("no device is running in '" + folder + "'");
    std::this_thread::sleep_for(PAUSE);
  }
  throw Failure("the device in '" + folder + "' cannot be entered");
}

/// Takes this process, and the children that it starts from now on, onto the device.
void enter(const RunningDevice& device, const std::string& folder) {
  if (::setns(device.process.get(), CLONE_NEWNS | CLONE_NEWUTS | CLONE_NEWPID) == -1) {
    if (errno == ESRCH) throw Failure("no device is running in '" + folder + "'");
    throw system_failure(errno, "enter the device in", folder, EXIT_UNAVAILABLE);
  }
  // Where the device was started below another root folder than its machine's, the root of what it has
  // mounted is that of the machine.
  if (::fchdir(device.root.get()) == -1 || ::chroot(".") == -1)
    throw system_failure(errno, "enter the root folder of the device in", folder, EXIT_UNAVAILABLE);
}

/// Runs COMMAND for the program on the host, in a process on the device.
class Entrance {
 public:
  Entrance(const SignalSource& signals, Channel host, const Terminal& terminal)
      : signals_(signals), host_(std::move(host)), command_(signals, host_, terminal) {}

  int run(const std::vector<std::string>& words) {
    command_.start(words, true);
    while (!command_.status()) {
      std::array<pollfd, 2> events = {pollfd{signals_.descriptor(), POLLIN, 0},
                                      pollfd{host_.descriptor(), POLLIN, 0}};
      // No signal interrupts it, all are held back; a failure shows as no event and is tried again.
      (void)::poll(events.data(), events.size(), -1);
      while (const std::optional<int> signal = signals_.next()) answer(*signal);
      command_.answer_host();
    }
    return exit_status_of(*command_.status());
  }

 private:
  void answer(int signal) {
    if (signal == SIGTSTP) return command_.ask_to_stop();
    if (signal == SIGCONT) return;  // The host says by a notice what is to go on.
    if (signal != SIGCHLD) return command_.pass_on(signal);
    int status = 0;
    while (!command_.status() &&
           ::waitpid(command_.process(), &status, WNOHANG | WUNTRACED | WCONTINUED) > 0) {
      command_.take_in(status);
    }
  }

  const SignalSource& signals_;
  Channel host_;
  Command command_;
};

int run_on_device(const Options& options, const SignalSource& signals, Channel host,
                  const Terminal& terminal) {
  if (::prctl(PR_SET_PDEATHSIG, SIGKILL) == -1) throw system_failure(errno, "follow the parent process");
  if (std::signal(SIGCHLD, SIG_DFL) == SIG_ERR) throw system_failure(errno, "reset SIGCHLD");
  if (::setpgid(0, 0) == -1) throw system_failure(errno, "make a process group");
  set_up_session();
  Entrance entrance(signals, std::move(host), terminal);
  return entrance.run(options.command.empty() ? login_shell() : options.command);
}

}  // namespace

int enter_device(const Options& options) try {
  become_root_alone();
  const RunningDevice device = find_device(options.state);
  const SignalSource signals;
  const Terminal terminal;
  enter(device, options.state);
  std::pair<Channel, Channel> ends = Channel::make();
  // The device waits at its end for this child to be taken in, which a stopped parent would not do. So the
  // kernel does it, and the status comes through the channel.
  if (std::signal(SIGCHLD, SIG_IGN) == SIG_ERR) throw system_failure(errno, "ignore SIGCHLD");
  const pid_t child = ::fork();
  if (child == -1) throw system_failure(errno, "start a process");
  if (child == 0) {
    { const Channel unused = std::move(ends.first); }
    const Channel& report = ends.second;
    const int status = status_of([&] { return run_on_device(options, signals, report.copy(), terminal); });
    report.send({.kind = Notice::Kind::finished, .value = status});
    ::_exit(status);
  }
  { const Channel unused = std::move(ends.second); }
  return supervise_visitor(child, signals, std::move(ends.first), terminal);
} catch (const std::filesystem::filesystem_error& error) {
  throw system_failure(error.code().value(), "use the folder", options.state);
}

}  // namespace device
