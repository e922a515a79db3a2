#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "device/entrance.h"
#include "device/failure.h"
#include "device/kept_state.h"
#include "device/options.h"
#include "device/privileges.h"
#include "device/signal_source.h"
#include "device/supervisor.h"

namespace {

int act(const device::Options& options) {
  using Action = device::Options::Action;
  if (options.action == Action::run) return device::run_device(options);
  if (options.action == Action::enter) {
    // Without the exit handlers: a process that has entered another process namespace cannot start a helper
    // of its own, as the sanitizer's look for leaks does at the end, and waits for it forever.
    ::_exit(device::status_of([&] { return device::enter_device(options); }));
  }
  device::become_root_alone();
  const device::SignalSource signals;
  if (options.action == Action::reset) device::reset_device(options.state, options.bare, signals);
  if (options.action == Action::snapshot) device::keep_snapshot(options.state, options.snapshot, signals);
  if (options.action == Action::rollback)
    device::bring_back_snapshot(options.state, options.snapshot, signals);
  return 0;
}

int run(const std::vector<std::string>& arguments) {
  const device::Options options = device::parse_options(arguments);
  if (options.help) {
    std::cout << device::help_text() << std::flush;
  } else if (options.version) {
    std::cout << "harbix-device " << HARBIX_VERSION << std::endl;
  } else {
    return act(options);
  }
  return std::cout ? 0 : device::EXIT_FAILED;
}

}  // namespace

int main(int count, char** words) {
  return device::status_of([&] { return run({words + 1, words + count}); });
}
