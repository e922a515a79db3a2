#include "updater/request_object.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <sstream>

#include "base/log.h"
#include "fs/exception.h"

namespace updater {
namespace {

std::atomic<const char*> object_to_remove = nullptr;
static_assert(std::atomic<const char*>::is_always_lock_free, "read by a signal handler");

void remove_object(int signal) {
  // The process ends either way.
  if (const char* path = object_to_remove) static_cast<void>(::unlink(path));
  // The handler was for one signal only: this one takes the default action, once the handler has returned.
  static_cast<void>(::raise(signal));
}

constexpr char REQUESTS[] = "/pps/system/installer/upd/current";
constexpr char OPEN_OPTIONS[] = "?wait,delta";
constexpr mode_t REQUEST_MODE = 0660;

/// Lets the signals that end the process wait until the end of the scope.
class HeldBackSignals {
 public:
  HeldBackSignals() noexcept {
    ::sigset_t signals;
    // These calls fail for no signal that exists.
    static_cast<void>(::sigemptyset(&signals));
    for (const int signal : InterruptedRequest::SIGNALS) static_cast<void>(::sigaddset(&signals, signal));
    static_cast<void>(::pthread_sigmask(SIG_BLOCK, &signals, &saved_));
  }
  ~HeldBackSignals() { static_cast<void>(::pthread_sigmask(SIG_SETMASK, &saved_, nullptr)); }
  HeldBackSignals(const HeldBackSignals&) = delete;
  HeldBackSignals& operator=(const HeldBackSignals&) = delete;
  HeldBackSignals(HeldBackSignals&&) = delete;
  HeldBackSignals& operator=(HeldBackSignals&&) = delete;

 private:
  ::sigset_t saved_{};
};

/// Unlike every other name this process has used, and unlike those of other processes.
std::string next_name() {
  static unsigned counter = 0;
  std::ostringstream name;
  name << "br_tmp" << ::getpid() << '_' << ::gettid() << '_' << counter++;
  return name.str();
}

}  // namespace

InterruptedRequest::InterruptedRequest(const fs::Path& object) noexcept {
  object_to_remove = object.c_str();
  struct ::sigaction action {};
  action.sa_handler = remove_object;
  // NOLINTNEXTLINE(hicpp-signed-bitwise, bugprone-narrowing-conversions): the system's own constant
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
  for (std::size_t i = 0; i < SIGNALS.size(); ++i) {
    // These calls fail for no signal that exists.
    static_cast<void>(::sigaction(SIGNALS.at(i), nullptr, &saved_.at(i)));
    if (saved_.at(i).sa_handler == SIG_DFL) static_cast<void>(::sigaction(SIGNALS.at(i), &action, nullptr));
  }
}

InterruptedRequest::~InterruptedRequest() {
  for (std::size_t i = 0; i < SIGNALS.size(); ++i) {
    static_cast<void>(::sigaction(SIGNALS.at(i), &saved_.at(i), nullptr));
  }
  object_to_remove = nullptr;
}

RequestObject::RequestObject() {
  // A signal between the object's creation and the moment from which a signal removes it would leave it.
  const HeldBackSignals held_back;
  errno = EEXIST;
  while (errno == EEXIST && !descriptor_.is_open()) {
    path_ = fs::Path(REQUESTS) / next_name();
    const std::string name = path_.text() + OPEN_OPTIONS;
    descriptor_ =
        base::FileDescriptor(::open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, REQUEST_MODE));
  }
  if (!descriptor_.is_open()) throw fs::Exception(errno, "Failed to create file '" + path_.text() + "' ");
  interrupted_.emplace(path_);
}

RequestObject::~RequestObject() {
  // The installer may have taken it away itself. Whether it is there is not asked first: where the answer
  // fails, the object would stay.
  if (::unlink(path_.c_str()) == 0 || errno == ENOENT) return;
  diagnostics::line(1, "Failed to unlink '%s' (%s)", path_.c_str(), std::strerror(errno));
}

}  // namespace updater
