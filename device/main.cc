#include <iostream>
#include <string>
#include <vector>

#include "device/failure.h"
#include "device/options.h"
#include "device/supervisor.h"

namespace {

int run(const std::vector<std::string>& arguments) {
  const device::Options options = device::parse_options(arguments);
  if (options.help) {
    std::cout << device::help_text() << std::flush;
  } else if (options.version) {
    std::cout << "harbix-device " << HARBIX_VERSION << std::endl;
  } else {
    return device::run_device(options);
  }
  return std::cout ? 0 : device::EXIT_FAILED;
}

}  // namespace

int main(int count, char** words) {
  return device::status_of([&] { return run({words + 1, words + count}); });
}
