#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace harbix::test {

/// @throws std::system_error with errno's error.
[[noreturn]] inline void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

/// @throws std::system_error with errno's error, unless the call has `succeeded`.
inline void require(bool succeeded, const std::string& what) {
  if (!succeeded) fail(what);
}

}  // namespace harbix::test
