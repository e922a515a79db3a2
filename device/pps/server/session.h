#pragma once

#include <memory>
#include <string>

#include <fuse_lowlevel.h>

#include "device/pps/server/server.h"

namespace pps::server {

/// One mount of a Server's objects, open to every user; the kernel checks permissions.
class Session {
 public:
  /// Mounts; clients may call from now on, and are answered when serve() runs. A mount that a killed server
  /// left behind on `mount_point` is taken away first.
  /// @throws std::runtime_error when it cannot be mounted; the reason is on standard error.
  Session(Server& server, const std::string& mount_point);

  /// Refuses the reads that wait, and unmounts.
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Answers requests until `stop_descriptor` becomes readable or the mount goes away. What clients had asked
  /// before the stop is still answered.
  /// @throws std::system_error when requests cannot be received.
  void serve(int stop_descriptor);

 private:
  void answer_one(fuse_buf& buffer);
  void answer_pending(fuse_buf& buffer);

  struct Destroyer {
    void operator()(fuse_session* session) const noexcept { fuse_session_destroy(session); }
  };
  Server& server_;
  std::unique_ptr<fuse_session, Destroyer> session_;
};

}  // namespace pps::server
