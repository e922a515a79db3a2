#pragma once

#include <array>
#include <csignal>

#include "fs/path.h"

namespace updater {

/// Takes an object away when SIGHUP, SIGINT or SIGTERM ends the process during the scope: a request that
/// nobody waits for would stay in the installer's folder. One scope at a time.
class InterruptedRequest {
 public:
  /// `object` must outlive the scope.
  explicit InterruptedRequest(const fs::Path& object) noexcept;
  ~InterruptedRequest();
  InterruptedRequest(const InterruptedRequest&) = delete;
  InterruptedRequest& operator=(const InterruptedRequest&) = delete;
  InterruptedRequest(InterruptedRequest&&) = delete;
  InterruptedRequest& operator=(InterruptedRequest&&) = delete;

 private:
  static constexpr std::array SIGNALS{SIGHUP, SIGINT, SIGTERM};

  std::array<struct ::sigaction, SIGNALS.size()> saved_{};
};

}  // namespace updater
