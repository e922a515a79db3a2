#include "driver/signals.h"

#include <csignal>
#include <initializer_list>

namespace harbix {

void let_writes_fail() {
  // A handler and not SIG_IGN: that would be inherited by the scripts that the program runs.
  struct ::sigaction action {};
  action.sa_handler = [](int) {};
  action.sa_flags = SA_RESTART;
  for (const int signal : {SIGPIPE, SIGXFSZ}) {
    // Fails only for signals that do not exist.
    static_cast<void>(::sigaction(signal, &action, nullptr));
  }
}

}  // namespace harbix
