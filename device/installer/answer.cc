#include "device/installer/answer.h"

#include <algorithm>

namespace installer {

std::string to_lines(const Answer& answer) {
  std::string text;
  for (const auto& [name, value] : answer) {
    std::string line = name;
    line.append("::").append(value);
    std::ranges::replace(line, '\n', ' ');
    text.append(line).append("\n");
  }
  return text;
}

}  // namespace installer
