#pragma once

#include <sys/stat.h>

#include <exception>
#include <iostream>
#include <new>
#include <system_error>

#include <fuse_lowlevel.h>

#include "device/pps/server/server.h"

namespace pps::server {

/// Answers with an error number, 0 being success. The result is dropped: only a client that is gone cannot be
/// answered.
inline void reply_error(fuse_req_t request, int error) { static_cast<void>(fuse_reply_err(request, error)); }

/// Runs one operation, which answers as its last step, and turns what it throws into the client's error
/// number. No exception may pass through the C library that calls.
template <typename Operation>
void answer(fuse_req_t request, Operation&& operation) noexcept {
  try {
    operation(*static_cast<Server*>(fuse_req_userdata(request)));
  } catch (const std::system_error& error) {
    reply_error(request, error.code().value());
  } catch (const std::bad_alloc&) {
    reply_error(request, ENOMEM);
  } catch (const std::exception& error) {
    std::cerr << "harbix-pps: " << error.what() << "\n";
    reply_error(request, EIO);
  }
}

/// What stat(2) shows of a node.
[[nodiscard]] struct stat stat_record(const Node& node);

/// Answers with stat_record(); an object's is to be asked for again at the next look.
void reply_attributes(fuse_req_t request, const Node& node);

/// What a lookup answers: the node under the number that carries the open options. Nothing of an object may
/// be remembered, because the kernel takes "object" and "object?wait" for two files.
[[nodiscard]] fuse_entry_param entry_record(const Node& node, OpenOptions options);

/// Answers with entry_record() and counts the reference that the kernel has then.
void reply_entry(fuse_req_t request, Server& server, Node& node, OpenOptions options);

}  // namespace pps::server
