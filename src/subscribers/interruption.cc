#include "subscribers/interruption.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <utility>

namespace subscribers {
namespace {

// Read by a signal handler.
std::atomic<Interruption*> current = nullptr;
static_assert(std::atomic<Interruption*>::is_always_lock_free);

/// In the child, and in a signal handler: system calls only.
[[noreturn]] void become_shell(const char* command) noexcept {
  constexpr int NOT_STARTED = 127;
  ::sigset_t none{};
  // None of these fails for root; and where one does, the script runs with less.
  static_cast<void>(::sigemptyset(&none));
  static_cast<void>(::sigprocmask(SIG_SETMASK, &none, nullptr));
  static_cast<void>(!::setresuid(0, 0, 0));
  static_cast<void>(!::setresgid(::getgid(), ::getgid(), ::getgid()));
  ::execl("/bin/sh", "sh", "-c", command, nullptr);
  ::_exit(NOT_STARTED);
}

}  // namespace

Interruption::Interruption(std::vector<std::string> commands) : commands_(std::move(commands)) {
  current = this;
  struct ::sigaction action {};
  action.sa_handler = handle;
  // NOLINTNEXTLINE(hicpp-signed-bitwise, bugprone-narrowing-conversions): the system's own constant
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
  // No second one in the middle of the commands.
  for (const int signal : SIGNALS) static_cast<void>(::sigaddset(&action.sa_mask, signal));
  for (std::size_t i = 0; i < SIGNALS.size(); ++i) {
    // These calls fail for no signal that exists.
    static_cast<void>(::sigaction(SIGNALS.at(i), nullptr, &saved_.at(i)));
    if (saved_.at(i).sa_handler != SIG_IGN) static_cast<void>(::sigaction(SIGNALS.at(i), &action, nullptr));
  }
}

Interruption::~Interruption() {
  for (std::size_t i = 0; i < SIGNALS.size(); ++i) {
    static_cast<void>(::sigaction(SIGNALS.at(i), &saved_.at(i), nullptr));
  }
  current = nullptr;
  if (pending_ != 0) static_cast<void>(::raise(pending_));
}

void Interruption::take_over() noexcept { is_taken_over_ = 1; }

void Interruption::handle(int signal) {
  Interruption* const self = current;
  if (self != nullptr && self->is_taken_over_ != 0) {
    self->pending_ = signal;
    return;
  }
  const int saved = errno;
  if (self != nullptr) self->run_commands();
  errno = saved;
  // The handler was for one signal only: this one takes the default action, once the handler has returned.
  static_cast<void>(::raise(signal));
}

void Interruption::run_commands() const noexcept {
  for (const std::string& command : commands_) {
    // The process has one thread, so that its memory is whole in the child as well.
    const ::pid_t child = ::fork();
    if (child == 0) become_shell(command.c_str());
    int status = 0;
    while (child != -1 && ::waitpid(child, &status, 0) == -1 && errno == EINTR) continue;
  }
}

}  // namespace subscribers
