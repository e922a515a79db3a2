#include "device/init.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iostream>

#include "device/failure.h"
#include "device/processes.h"

namespace device {
namespace {

constexpr std::chrono::seconds GRACE_TIME(5);
// Generous: a machine that is busy with other things is no reason to give up.
constexpr std::chrono::seconds SERVICE_START_TIME(30);
constexpr std::chrono::seconds SERVICE_END_TIME(5);
// Killed processes are gone at once, unless one waits for a service that does not answer.
constexpr std::chrono::seconds KILL_TIME(2);
// For processes that were brought in from outside: the kernel does not report their end here.
constexpr std::chrono::milliseconds LOOK_AGAIN_TIME(20);

void end_all_processes() {
  // From the first process this means all others. None being left is no error.
  ::kill(-1, SIGKILL);
  while (::waitpid(-1, nullptr, 0) > 0) {
  }
}

std::string service_text(const Service& service) { return "the service '" + service.name() + "' "; }

}  // namespace

int Init::run(const std::vector<std::string>& command) {
  start_services();
  if (!early_signal_) {
    ready_();
    command_.start(command);
    while (!is_finished()) wait_for_event(command_.status() ? std::optional(deadline_) : std::nullopt);
  }
  if (loss_ && !early_signal_) {
    loss_();
    end_all_processes();
    return exit_status_of(*command_.status());
  }
  // The services come last: what others have written is saved, and no other program sees them go.
  const Clock::time_point kill_end = Clock::now() + KILL_TIME;
  while (kill_all_but_services() && Clock::now() < kill_end) wait_for_event(Clock::now() + LOOK_AGAIN_TIME);
  end_services();
  end_all_processes();
  log_.collect();
  if (early_signal_) return EXIT_SIGNAL_BASE + *early_signal_;
  return exit_status_of(*command_.status());
}

void Init::start_services() {
  answer_signals();
  for (Service& service : services_) {
    if (early_signal_) return;
    service.start(signals_);
    const Clock::time_point deadline = Clock::now() + SERVICE_START_TIME;
    while (!service.is_ready() && !early_signal_) {
      if (!service.is_running())
        throw Failure(service_text(service) + service.end() + " before it was ready");
      if (Clock::now() >= deadline) throw Failure(service_text(service) + "was not ready in time");
      wait_for_event(deadline);
    }
  }
  has_started_services_ = !early_signal_;
}

bool Init::is_finished() const {
  if (!command_.status()) return false;
  if (interrupted_ || WIFSIGNALED(*command_.status())) return true;
  if (Clock::now() >= deadline_) return true;
  return std::ranges::all_of(child_processes(),
                             [this](pid_t process) { return belongs_to_service(process); });
}

bool Init::belongs_to_service(pid_t process) const {
  // A service leads a session, which all that it starts is in. One that was started just now has not yet made
  // its session.
  const pid_t session = ::getsid(process);
  return std::ranges::any_of(services_, [=](const Service& service) {
    return service.is_running() && (service.process() == session || service.process() == process);
  });
}

bool Init::kill_all_but_services() const {
  bool found = false;
  for (const pid_t process : all_processes()) {
    if (process == ::getpid() || belongs_to_service(process)) continue;
    found = true;
    ::kill(process, SIGKILL);  // It may have ended just now.
  }
  return found;
}

void Init::end_services() {
  ending_services_ = true;
  // One that is stopped may be what another waits for.
  for (const Service& service : services_) service.go_on();
  // Those that were started later may need the earlier ones.
  for (auto service = services_.rbegin(); service != services_.rend(); ++service) {
    service->ask_to_end();
    const Clock::time_point deadline = Clock::now() + SERVICE_END_TIME;
    while (service->is_running() && Clock::now() < deadline) wait_for_event(deadline);
    if (!service->is_running()) continue;
    std::cerr << "harbix-device: " << service_text(*service) << "did not end in time and was killed"
              << std::endl;
    service->kill();
  }
}

void Init::wait_for_event(std::optional<Clock::time_point> deadline) {
  std::vector<pollfd> events = {pollfd{signals_.descriptor(), POLLIN, 0},
                                pollfd{log_.descriptor(), POLLIN, 0}, pollfd{host_.descriptor(), POLLIN, 0}};
  for (const Service& service : services_) events.push_back(pollfd{service.descriptor(), POLLIN, 0});
  int timeout = -1;
  if (deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
    timeout = static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
  }
  // No signal interrupts it, all are held back; a failure shows as no event and is tried again.
  const bool any = ::poll(events.data(), events.size(), timeout) > 0;
  constexpr std::size_t FIRST_SERVICE = 3;
  for (std::size_t i = 0; any && i < services_.size(); ++i) {
    if (events[FIRST_SERVICE + i].revents != 0) services_[i].look_for_readiness();
  }
  log_.collect();
  answer_signals();
  command_.answer_host();
}

void Init::answer_signals() {
  while (const std::optional<int> signal = signals_.next()) answer_signal(*signal);
}

void Init::answer_signal(int signal) {
  if (signal == SIGCHLD) return take_in_processes();
  if (signal == SIGCONT) return;  // The host says by a notice what is to go on.
  if (signal == SIGTSTP) return command_.ask_to_stop();
  if (command_.is_started()) {
    interrupted_ = true;
    command_.pass_on(signal);
  } else if (!early_signal_ && !is_ignored(signal)) {
    // COMMAND would be ended by it before it had a chance to catch it.
    early_signal_ = signal;
  }
}

void Init::take_in_processes() {
  int status = 0;
  while (true) {
    const pid_t process = ::waitpid(-1, &status, WNOHANG | WUNTRACED | WCONTINUED);
    if (process <= 0) return;
    take_in(process, status);
  }
}

void Init::take_in(pid_t process, int status) {
  if (process == command_.process() && !command_.status()) {
    command_.take_in(status);
    deadline_ = Clock::now() + GRACE_TIME;
    return;
  }
  if (!has_ended(status)) return;
  for (Service& service : services_) {
    if (service.process() != process) continue;
    service.take_end(status);
    // Its end before it is ready is the reason not to start at all, and is reported as such.
    const bool in_order = status == 0 || (WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM);
    if (!service.is_ready() && !has_started_services_) return;
    if (ending_services_ && in_order) return;
    std::cerr << "harbix-device: " << service_text(service) << service.end() << std::endl;
    if (!ending_services_ && service.is_to_start_again()) service.start(signals_);
  }
}

}  // namespace device
