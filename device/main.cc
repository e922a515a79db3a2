#include <exception>
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
  try {
    return run({words + 1, words + count});
  } catch (const device::Failure& failure) {
    std::cerr << "harbix-device: " << failure.what() << std::endl;
    return failure.status();
  } catch (const std::exception& error) {
    std::cerr << "harbix-device: " << error.what() << std::endl;
    return device::EXIT_FAILED;
  }
}
