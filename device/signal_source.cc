#include "device/signal_source.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "device/failure.h"

namespace device {
namespace {

sigset_t set_of(int signal) noexcept {
  sigset_t set = {};
  // Both fail for numbers that are no signals only.
  ::sigemptyset(&set);
  ::sigaddset(&set, signal);
  return set;
}

}  // namespace

SignalSource::SignalSource() {
  constexpr std::array ANSWERED = {SIGCHLD, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGCONT};
  sigset_t answered = {};
  // The set operations fail for numbers that are no signals only.
  ::sigemptyset(&answered);
  for (const int signal : ANSWERED) ::sigaddset(&answered, signal);
  // The program that started this one may ignore it, and ended children would vanish without a status.
  if (std::signal(SIGCHLD, SIG_DFL) == SIG_ERR) throw system_failure(errno, "reset SIGCHLD");
  sigset_t blocked = answered;
  ::sigaddset(&blocked, SIGTTOU);
  if (::sigprocmask(SIG_BLOCK, &blocked, &before_) == -1) throw system_failure(errno, "block signals");
  descriptor_ = base::FileDescriptor(::signalfd(-1, &answered, SFD_CLOEXEC | SFD_NONBLOCK));
  if (!descriptor_) throw system_failure(errno, "create a signal descriptor");
}

SignalSource::~SignalSource() { give_back(); }

std::optional<int> SignalSource::next() const {
  signalfd_siginfo signal = {};
  if (::read(descriptor_.get(), &signal, sizeof signal) != sizeof signal) return std::nullopt;
  return static_cast<int>(signal.ssi_signo);
}

void hold_back(int signal, bool is_held_back) noexcept {
  const sigset_t alone = set_of(signal);
  // Cannot fail: the number is a signal's.
  ::sigprocmask(is_held_back ? SIG_BLOCK : SIG_UNBLOCK, &alone, nullptr);
}

void be_stopped_by(int signal) noexcept {
  const sigset_t stop = set_of(signal);
  sigset_t held_back = {};
  // Neither can fail: the numbers are good. The stop is taken before the first call returns.
  ::sigprocmask(SIG_UNBLOCK, &stop, &held_back);
  ::sigprocmask(SIG_SETMASK, &held_back, nullptr);
}

void SignalSource::give_back() const noexcept {
  // Cannot fail: the mask is one that the system gave.
  ::sigprocmask(SIG_SETMASK, &before_, nullptr);
}

bool is_ignored(int signal) {
  struct sigaction action = {};
  // Cannot fail: the number is a signal's.
  ::sigaction(signal, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

}  // namespace device
