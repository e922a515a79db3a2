#pragma once

#include <stdexcept>

namespace updater {

/// Error of what talks to the installer, or reads what it publishes.
class Exception : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace updater
