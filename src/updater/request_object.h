#pragma once

#include <array>
#include <csignal>
#include <optional>

#include "base/file_descriptor.h"
#include "fs/path.h"

namespace updater {

/// Takes an object away when SIGHUP, SIGINT or SIGTERM ends the process during the scope: a request whose
/// answer no program reads would stay in the installer's folder. One scope at a time.
class InterruptedRequest {
 public:
  static constexpr std::array SIGNALS{SIGHUP, SIGINT, SIGTERM};

  /// `object` must outlive the scope.
  explicit InterruptedRequest(const fs::Path& object) noexcept;
  ~InterruptedRequest();
  InterruptedRequest(const InterruptedRequest&) = delete;
  InterruptedRequest& operator=(const InterruptedRequest&) = delete;
  InterruptedRequest(InterruptedRequest&&) = delete;
  InterruptedRequest& operator=(InterruptedRequest&&) = delete;

 private:
  std::array<struct ::sigaction, SIGNALS.size()> saved_{};
};

/// A PPS object of one exchange with the installer, below "/pps/system/installer/upd/current": it carries the
/// request there and the response back. Gone when this is, and when a signal ends the process before.
class RequestObject {
 public:
  /// Creates an object under a name that no other process uses.
  /// @throws fs::Exception "Failed to create file 'PATH' "
  RequestObject();
  ~RequestObject();
  RequestObject(const RequestObject&) = delete;
  RequestObject& operator=(const RequestObject&) = delete;
  RequestObject(RequestObject&&) = delete;
  RequestObject& operator=(RequestObject&&) = delete;

  /// Open for reading and writing: each read waits for a change, and gives only what has changed.
  [[nodiscard]] int descriptor() const noexcept { return descriptor_.get(); }
  /// Without the open options.
  [[nodiscard]] const fs::Path& path() const noexcept { return path_; }

 private:
  fs::Path path_;
  base::FileDescriptor descriptor_;
  std::optional<InterruptedRequest> interrupted_;
};

}  // namespace updater
