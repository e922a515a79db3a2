#include "device/failure.h"

#include <iostream>
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

int status_of(const std::function<int()>& work) {
  try {
    return work();
  } catch (const Failure& failure) {
    std::cerr << "harbix-device: " << failure.what() << std::endl;
    return failure.status();
  } catch (const std::exception& error) {
    std::cerr << "harbix-device: " << error.what() << std::endl;
    return EXIT_FAILED;
  }
}

}  // namespace device
