#pragma once

#include <optional>

#include "base/file_descriptor.h"
#include "fs/path.h"
#include "updater/interrupted_request.h"

namespace updater {

/// A PPS object of one exchange with the installer, below "/pps/system/installer/upd/current": it carries the
/// request there and the response back. Gone when this is, and when a signal ends the process before.
class RequestObject {
 public:
  /// Creates an object that nobody else uses.
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
