#pragma once

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>

namespace device {

/// Ends an operation with an error number, which is all that its client is given.
[[noreturn]] inline void refuse(int error) { throw std::system_error(error, std::generic_category()); }

/// @throws std::system_error whose text is "WHAT: TEXT OF ERROR".
[[noreturn]] inline void refuse(int error, const std::string& what) {
  throw std::system_error(error, std::generic_category(), what);
}

/// @throws std::system_error whose text is "cannot ACTION 'PATH': TEXT OF ERROR".
[[noreturn]] inline void refuse(int error, std::string_view action, std::string_view path) {
  refuse(error, std::string("cannot ").append(action).append(" '").append(path).append("'"));
}

}  // namespace device
