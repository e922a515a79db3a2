#include "tests/support/device_process.h"

#include <fstream>

#include <gtest/gtest.h>

namespace harbix::test {
namespace {

std::vector<std::string> device_command(const std::vector<std::string>& arguments) {
  std::vector<std::string> words{HARBIX_DEVICE_PROGRAM};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return words;
}

}  // namespace

DeviceProcess::DeviceProcess(const std::vector<std::string>& arguments, const std::string& input,
                             void (*setup)())
    : Program(device_command(arguments), input, setup) {}

pid_t DeviceProcess::first_process() const {
  const std::string number = std::to_string(pid());
  std::ifstream children("/proc/" + number + "/task/" + number + "/children");
  pid_t child = -1;
  EXPECT_TRUE(children >> child);
  return child;
}

Outcome run_device(const std::vector<std::string>& arguments, const std::string& input) {
  return run_program(device_command(arguments), input);
}

Outcome run_on_host(const std::string& script, const std::string& folder) {
  return run_program(
      {"env", std::string("device=") + HARBIX_DEVICE_PROGRAM, "folder=" + folder, "sh", "-c", script});
}

bool can_end_within(std::chrono::seconds limit, const std::function<void()>& attempt) {
  constexpr int ATTEMPTS = 5;
  for (int i = 0; i < ATTEMPTS; ++i) {
    const auto start = std::chrono::steady_clock::now();
    attempt();
    if (std::chrono::steady_clock::now() - start < limit) return true;
  }
  return false;
}

}  // namespace harbix::test
