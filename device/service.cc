#include "device/service.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "device/execute.h"
#include "device/failure.h"

namespace device {
namespace {

// A shell script can name descriptors of one digit only.
constexpr int READY_DESCRIPTOR = 3;

[[noreturn]] void execute_service(const std::vector<std::string>& words, int ready,
                                  const SignalSource& signals) {
  // Cannot fail for a new child.
  ::setsid();
  const base::FileDescriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
  // Where one of them fails, the service keeps COMMAND's input or output, or cannot say that it is ready,
  // which is reported.
  if (nothing) (void)::dup2(nothing.get(), STDIN_FILENO);
  if (nothing) (void)::dup2(nothing.get(), STDOUT_FILENO);
  if (ready == READY_DESCRIPTOR) {
    (void)::fcntl(ready, F_SETFD, 0);
  } else {
    (void)::dup2(ready, READY_DESCRIPTOR);
  }
  signals.give_back();
  execute(words);
}

}  // namespace

Service::Service(std::vector<std::string> command, Loss loss)
    : name_(command.front().substr(command.front().rfind('/') + 1)),
      command_(std::move(command)),
      loss_(loss) {}

void Service::start(const SignalSource& signals) {
  std::array<int, 2> ends = {};
  if (::pipe2(ends.data(), O_CLOEXEC) == -1) throw system_failure(errno, "create a pipe");
  readiness_ = base::FileDescriptor(ends[0]);
  ready_ = false;
  const base::FileDescriptor ready(ends[1]);
  std::vector<std::string> words = command_;
  words.insert(words.begin() + 1, {"--ready-fd", std::to_string(READY_DESCRIPTOR)});
  process_ = ::fork();
  if (process_ == -1) throw system_failure(errno, "start a process for", command_.front());
  if (process_ == 0) execute_service(words, ready.get(), signals);
}

void Service::look_for_readiness() noexcept {
  char byte = 0;
  ready_ = ::read(readiness_.get(), &byte, 1) == 1;
  readiness_.close();
}

void Service::go_on() const noexcept {
  if (is_running()) ::kill(process_, SIGCONT);  // It may have ended just now, which is as good.
}

void Service::ask_to_end() const noexcept {
  // In this order: to let it go on when it is already ending would undo the stop by which a sanitizer looks
  // for leaks at the end, and leave both waiting for each other.
  go_on();
  if (is_running()) ::kill(process_, SIGTERM);  // It may have ended just now, which is as good.
}

void Service::kill() const noexcept {
  if (is_running()) ::kill(process_, SIGKILL);  // Cannot fail before it is taken in.
}

void Service::take_end(int status) {
  process_ = -1;
  failed_ = status != 0;
  end_ = WIFSIGNALED(status) ? "was killed by signal " + std::to_string(WTERMSIG(status))
                             : "ended with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace device
