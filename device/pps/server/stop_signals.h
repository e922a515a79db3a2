#pragma once

#include "base/file_descriptor.h"

namespace pps::server {

/// Turns SIGTERM, SIGINT and SIGHUP into something to poll for. They stay blocked for the rest of the
/// program: what has begun to save must not be killed by a second one.
class StopSignals {
 public:
  /// @throws std::system_error
  StopSignals();

  /// Readable once a signal has come.
  [[nodiscard]] int descriptor() const { return descriptor_.get(); }

 private:
  base::FileDescriptor descriptor_;
};

}  // namespace pps::server
