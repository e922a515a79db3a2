#include "updater/interrupted_request.h"

#include <unistd.h>

#include <atomic>

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

}  // namespace updater
