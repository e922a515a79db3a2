#include "device/command.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "device/execute.h"
#include "device/failure.h"

namespace device {

void Command::start(const std::vector<std::string>& words, bool ends_with_parent) {
  process_ = ::fork();
  if (process_ == -1) throw system_failure(errno, "start a process for", words.front());
  if (process_ == 0) {
    // Cannot fail: the signal is one.
    if (ends_with_parent) ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // A group of its own, as a shell would give it: the terminal's keys reach COMMAND and nothing else of
    // ours. Cannot fail for a new child.
    ::setpgid(0, 0);
    if (terminal_.was_ours()) terminal_.give_to(::getpgrp());
    signals_.give_back();
    execute(words);
  }
  // Here too, so that the group exists before a signal is passed on. Too late once the child has executed.
  ::setpgid(process_, process_);
  if (early_stop_) pass_on(SIGTSTP);
}

void Command::take_in(int status) {
  if (WIFSTOPPED(status)) {
    host_.send({.kind = Notice::Kind::command_stopped, .value = WSTOPSIG(status)});
  } else if (!has_ended(status)) {
    host_.send({.kind = Notice::Kind::command_went_on});
  } else {
    status_ = status;
    host_.send({.kind = Notice::Kind::command_ended});
  }
}

void Command::answer_host() {
  while (const std::optional<Notice> notice = host_.receive()) {
    early_stop_ = false;
    if (notice->kind == Notice::Kind::go_on_in_foreground && is_started() && !status_) {
      terminal_.give_to(process_);
    }
    if (notice->kind == Notice::Kind::hang_up) pass_on(SIGHUP);
    pass_on(SIGCONT);
  }
}

void Command::pass_on(int signal) const {
  if (status_ || !is_started()) return;
  // COMMAND may have left its group; it may also be gone, which the next SIGCHLD tells.
  if (::kill(-process_, signal) == -1) ::kill(process_, signal);
  // A stopped process takes other signals only when it goes on; one that is to stop must not.
  if (signal != SIGCONT && signal != SIGTSTP) ::kill(-process_, SIGCONT);
}

void Command::ask_to_stop() {
  early_stop_ = !is_started();
  // What COMMAND has left behind has no say.
  if (status_) return host_.send({.kind = Notice::Kind::command_stopped, .value = SIGTSTP});
  pass_on(SIGTSTP);
}

int exit_status_of(int status) {
  return WIFSIGNALED(status) ? EXIT_SIGNAL_BASE + WTERMSIG(status) : WEXITSTATUS(status);
}

bool has_ended(int status) { return WIFEXITED(status) || WIFSIGNALED(status); }

}  // namespace device
