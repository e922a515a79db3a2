#include "device/usage/program_search.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <string_view>

namespace usage {
namespace {

bool is_program(const std::string& file) {
  struct ::stat status {};
  return ::stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) && ::access(file.c_str(), X_OK) == 0;
}

}  // namespace

std::optional<std::string> find_program(const std::string& name, const std::string& path) {
  if (name.find('/') != std::string::npos) return name;
  for (std::string_view rest = path;;) {
    const std::size_t end = rest.find(':');
    const std::string_view folder = rest.substr(0, end);
    const std::string file = (folder.empty() ? "." : std::string(folder)) + "/" + name;
    if (is_program(file)) return file;
    if (end == std::string_view::npos) return std::nullopt;
    rest.remove_prefix(end + 1);
  }
}

}  // namespace usage
