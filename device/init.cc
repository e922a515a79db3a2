#include "device/init.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "device/failure.h"

namespace device {
namespace {

constexpr std::chrono::seconds GRACE_TIME(5);

[[noreturn]] void execute(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  // execvp takes its arguments writable by tradition and leaves them alone.
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  ::execvp(arguments.front(), arguments.data());
  const int error = errno;
  std::cerr << "harbix-device: " << system_failure(error, "run", command.front()).what() << std::endl;
  ::_exit(error == ENOENT ? EXIT_NOT_FOUND : EXIT_NOT_EXECUTABLE);
}

/// Read anew each time: processes whose parents ended become children of this one.
std::vector<pid_t> child_processes() {
  std::ifstream file("/proc/self/task/1/children");
  return parse_process_ids(std::string(std::istreambuf_iterator<char>(file), {}));
}

void end_all_processes() {
  // From the first process this means all others. None being left is no error.
  ::kill(-1, SIGKILL);
  while (::waitpid(-1, nullptr, 0) > 0) {
  }
}

}  // namespace

std::vector<pid_t> parse_process_ids(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<pid_t>(words), {}};
}

int Init::run(const std::vector<std::string>& command) {
  start(command);
  while (!is_finished()) wait_for_event();
  end_all_processes();
  log_.collect();
  return WIFSIGNALED(*status_) ? EXIT_SIGNAL_BASE + WTERMSIG(*status_) : WEXITSTATUS(*status_);
}

void Init::start(const std::vector<std::string>& command) {
  command_ = ::fork();
  if (command_ == -1) throw system_failure(errno, "start a process for", command.front());
  if (command_ == 0) {
    // A group of its own, as a shell would give it: the terminal's keys reach COMMAND and nothing else of
    // ours. Cannot fail for a new child.
    ::setpgid(0, 0);
    if (terminal_.was_ours()) terminal_.give_to(::getpgrp());
    signals_.give_back();
    execute(command);
  }
  // Here too, so that the group exists before a signal is passed on. Too late once the child has executed.
  ::setpgid(command_, command_);
}

bool Init::is_finished() const {
  if (!status_) return false;
  if (interrupted_ || WIFSIGNALED(*status_)) return true;
  return Clock::now() >= deadline_ || child_processes().empty();
}

void Init::wait_for_event() {
  std::array<pollfd, 3> events = {pollfd{signals_.descriptor(), POLLIN, 0},
                                  pollfd{log_.descriptor(), POLLIN, 0},
                                  pollfd{host_.descriptor(), POLLIN, 0}};
  int timeout = -1;
  if (status_) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now());
    timeout = static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
  }
  // No signal interrupts it, all are held back; a failure shows as no event and is tried again.
  (void)::poll(events.data(), events.size(), timeout);
  log_.collect();
  answer_signals();
  answer_host();
}

void Init::answer_signals() {
  while (const std::optional<int> signal = signals_.next()) {
    if (*signal == SIGCHLD) {
      take_in_processes();
    } else {
      interrupted_ = true;
      pass_on(*signal);
    }
  }
}

void Init::answer_host() {
  while (const std::optional<Notice> notice = host_.receive()) {
    if (*notice == Notice::go_on_in_foreground) terminal_.give_to(command_);
    pass_on(SIGCONT);
  }
}

void Init::take_in_processes() {
  int status = 0;
  while (true) {
    const pid_t process = ::waitpid(-1, &status, WNOHANG | WUNTRACED);
    if (process <= 0) return;
    if (process != command_) continue;
    if (WIFSTOPPED(status)) {
      host_.send(Notice::command_stopped);
      continue;
    }
    status_ = status;
    deadline_ = Clock::now() + GRACE_TIME;
    host_.send(Notice::command_ended);
  }
}

void Init::pass_on(int signal) {
  if (status_) return;
  // COMMAND may have left its group; it may also be gone, which the next SIGCHLD tells.
  if (::kill(-command_, signal) == -1) ::kill(command_, signal);
  // A stopped process takes other signals only when it goes on.
  if (signal != SIGCONT) ::kill(-command_, SIGCONT);
}

}  // namespace device
