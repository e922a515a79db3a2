#include "device/copy.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <vector>

#include "base/file_descriptor.h"
#include "device/execute.h"
#include "device/failure.h"

namespace device {
namespace {

/// A program of the host, running; killed at the end of its life.
class Helper {
 public:
  Helper(const std::vector<std::string>& words, const SignalSource& signals, int kept)
      : errors_(::memfd_create("errors", MFD_CLOEXEC)) {
    if (!errors_) throw system_failure(errno, "take down errors");
    process_ = ::fork();
    if (process_ == -1) throw system_failure(errno, "start a process for", words.front());
    if (process_ != 0) return;
    // Where it fails, the program says so.
    if (kept != -1) (void)::fcntl(kept, F_SETFD, 0);
    // Where it fails, the errors are seen but not taken down.
    (void)::dup2(errors_.get(), STDERR_FILENO);
    // So that the line that it writes is in the language of the others. No memory is no reason not to run it.
    (void)::setenv("LC_ALL", "C", 1);
    signals.give_back();
    execute(words);
  }
  Helper(const Helper&) = delete;
  Helper& operator=(const Helper&) = delete;
  ~Helper() {
    if (process_ == -1) return;
    ::kill(process_, SIGKILL);  // Cannot fail before it is waited for.
    ::waitpid(process_, nullptr, 0);
  }

  /// As waitpid gives it; nothing while it runs.
  std::optional<int> status() {
    int status = 0;
    if (::waitpid(process_, &status, WNOHANG) != process_) return std::nullopt;
    process_ = -1;
    return status;
  }

  /// The first line that it wrote, without the program's name.
  [[nodiscard]] std::string problem() const {
    std::array<char, 4096> text = {};
    const ssize_t size = ::pread(errors_.get(), text.data(), text.size(), 0);
    if (size <= 0) return "it failed";
    std::string line(text.data(), static_cast<std::size_t>(size));
    line = line.substr(0, line.find('\n'));
    for (const char* name : {"cp: ", "harbix-device: "}) {
      if (line.starts_with(name)) return line.substr(std::string(name).size());
    }
    return line;
  }

 private:
  base::FileDescriptor errors_;
  pid_t process_ = -1;
};

}  // namespace

void run_helper(const std::vector<std::string>& words, const std::string& action, const SignalSource& signals,
                int kept) {
  Helper helper(words, signals, kept);
  while (true) {
    pollfd event = {signals.descriptor(), POLLIN, 0};
    // No signal interrupts it, all are held back; a failure shows as no event and is tried again.
    (void)::poll(&event, 1, -1);
    give_way_to_signals(signals);
    const std::optional<int> status = helper.status();
    if (!status) continue;
    if (*status == 0) return;
    throw Failure("cannot " + action + ": " + helper.problem());
  }
}

void copy_folder(const std::string& source, const std::string& target, const SignalSource& signals,
                 int kept) {
  run_helper({"cp", "-aT", "--reflink=auto", "--sparse=auto", "--", source, target}, "copy '" + source + "'",
             signals, kept);
}

void give_way_to_signals(const SignalSource& signals) {
  while (const std::optional<int> signal = signals.next()) {
    if (*signal == SIGCHLD || *signal == SIGCONT || is_ignored(*signal)) continue;
    if (*signal != SIGTSTP) {
      throw Failure("interrupted by signal " + std::to_string(*signal) + "; nothing was changed",
                    EXIT_SIGNAL_BASE + *signal);
    }
    ::kill(::getpid(), SIGTSTP);  // Taken from where it waited, so it is sent anew.
    be_stopped_by(SIGTSTP);
  }
}

}  // namespace device
