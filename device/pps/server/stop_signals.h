#pragma once

#include <signal.h>

#include "platform/file_descriptor.h"

namespace pps::server {

/// Turns SIGTERM, SIGINT and SIGHUP into something to poll for while it lives.
class StopSignals {
 public:
  /// @throws std::system_error; the signals are then as before.
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Readable once a signal has come.
  [[nodiscard]] int descriptor() const { return descriptor_.get(); }

 private:
  sigset_t before_{};
  platform::FileDescriptor descriptor_;
};

}  // namespace pps::server
