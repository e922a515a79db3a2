#include "fs/exception.h"

#include <system_error>

namespace fs {
namespace {

std::string suffix(int error) {
  if (error == Exception::NO_ERROR_NUMBER) return "";
  return " [errno:" + std::to_string(error) + " '" + std::generic_category().message(error) + "']";
}

}  // namespace

std::string Exception::reason() const {
  return error_ == NO_ERROR_NUMBER ? what() : std::generic_category().message(error_);
}

Exception::Exception(int error, const std::string& message)
    : std::runtime_error(message + suffix(error)), error_(error) {}

Exception no_subdirectory(const std::string& path, const std::string& base) {
  return Exception("Path '" + path + "' is not subdirectory of '" + base + "'");
}

}  // namespace fs
