#include "device/log_line.h"

namespace device {

std::string log_line(std::string_view message) {
  constexpr unsigned char FIRST_PRINTABLE = 0x20;
  constexpr unsigned char DELETE = 0x7f;
  if (!message.empty() && message.back() == '\n') message.remove_suffix(1);
  std::string line;
  line.reserve(message.size() + 1);
  for (const char character : message) {
    const auto code = static_cast<unsigned char>(character);
    if (code >= FIRST_PRINTABLE && code != DELETE) {
      line += character;
      continue;
    }
    line += '#';
    for (const unsigned int shift : {6U, 3U, 0U}) line += static_cast<char>('0' + ((code >> shift) & 7U));
  }
  line += '\n';
  return line;
}

}  // namespace device
