#include "device/installer/answer.h"

#include <algorithm>

namespace installer {

std::string to_lines(const Answer& answer) {
  std::string text;
  for (const auto& [name, value] : answer) {
    std::string line = name + "::" + value;
    std::ranges::replace(line, '\n', ' ');
    text += line;
    text += '\n';
  }
  return text;
}

}  // namespace installer
