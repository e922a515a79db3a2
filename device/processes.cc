#include "device/processes.h"

#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

namespace device {

std::vector<pid_t> child_processes() {
  std::ifstream file("/proc/self/task/1/children");
  return parse_process_ids(std::string(std::istreambuf_iterator<char>(file), {}));
}

std::vector<pid_t> all_processes() {
  std::vector<pid_t> found;
  std::error_code error;
  std::filesystem::directory_iterator item("/proc", error);
  // A failed step ends the walk.
  for (; !error && item != std::filesystem::directory_iterator(); item.increment(error)) {
    const std::string name = item->path().filename().string();
    pid_t number = 0;
    const auto [end, problem] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (problem == std::errc{} && end == name.data() + name.size()) found.push_back(number);
  }
  return found;
}

std::vector<pid_t> parse_process_ids(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<pid_t>(words), {}};
}

}  // namespace device
