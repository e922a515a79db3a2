#include "device/failure.h"

#include <system_error>

namespace device {

Failure system_failure(int error, std::string_view action, std::string_view path, int status) {
  std::string text = "cannot ";
  text += action;
  if (!path.empty()) {
    text += " '";
    text += path;
    text += "'";
  }
  text += ": " + std::generic_category().message(error);
  return Failure(text, status);
}

}  // namespace device
