#include "device/pps/server/session.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include "device/refuse.h"

namespace pps::server {

namespace {

void remove_dead_mount(const std::string& mount_point) {
  struct stat record {};
  if (::stat(mount_point.c_str(), &record) == 0 || errno != ENOTCONN) return;
  if (::umount2(mount_point.c_str(), MNT_DETACH) == -1)
    device::refuse(errno, "cannot unmount '" + mount_point + "'");
}

fuse_session* new_session(Server& server) {
  std::string program = "harbix-pps";
  // Permissions are the kernel's to check, for every user of the device.
  std::string option = "-oallow_other,default_permissions,fsname=pps,subtype=pps";
  std::array<char*, 2> texts{program.data(), option.data()};
  fuse_args arguments{.argc = static_cast<int>(texts.size()), .argv = texts.data(), .allocated = 0};
  fuse_session* session = fuse_session_new(&arguments, &operations(), sizeof(fuse_lowlevel_ops), &server);
  fuse_opt_free_args(&arguments);
  return session;
}

// The kernel may take a request back between the poll and the read; a read that blocks would then not see the
// stop.
void read_without_blocking(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFL);
  if (flags == -1 || ::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) == -1) {
    device::refuse(errno, "cannot set up the kernel's requests");
  }
}

struct BufferOwner {
  fuse_buf buffer{};

  BufferOwner() = default;
  BufferOwner(const BufferOwner&) = delete;
  BufferOwner& operator=(const BufferOwner&) = delete;
  // The library allocates it with malloc.
  ~BufferOwner() { std::free(buffer.mem); }
};

}  // namespace

Session::Session(Server& server, const std::string& mount_point) : server_(server) {
  remove_dead_mount(mount_point);
  session_.reset(new_session(server));
  if (!session_) throw std::runtime_error("cannot make a session");
  if (fuse_session_mount(session_.get(), mount_point.c_str()) != 0) {
    throw std::runtime_error("cannot mount '" + mount_point + "'");
  }
  try {
    read_without_blocking(fuse_session_fd(session_.get()));
  } catch (...) {
    fuse_session_unmount(session_.get());
    throw;
  }
}

Session::~Session() {
  server_.refuse_waiting_reads(ENODEV);
  fuse_session_unmount(session_.get());
}

void Session::serve(int stop_descriptor) {
  BufferOwner owner;
  std::array<pollfd, 2> watched{pollfd{.fd = fuse_session_fd(session_.get()), .events = POLLIN, .revents = 0},
                                pollfd{.fd = stop_descriptor, .events = POLLIN, .revents = 0}};
  while (fuse_session_exited(session_.get()) == 0) {
    if (::poll(watched.data(), watched.size(), -1) == -1) {
      if (errno == EINTR) continue;
      device::refuse(errno, "cannot wait for requests");
    }
    if (watched[1].revents != 0) return answer_pending(owner.buffer);
    if (watched[0].revents != 0) answer_one(owner.buffer);
  }
}

void Session::answer_pending(fuse_buf& buffer) {
  // Busy clients could go on for ever; those that asked before the stop are long through by then.
  constexpr int MOST = 1000;
  pollfd requests{.fd = fuse_session_fd(session_.get()), .events = POLLIN, .revents = 0};
  for (int i = 0; i < MOST && fuse_session_exited(session_.get()) == 0; ++i) {
    // An error here is as good as nothing to answer: the program is about to stop.
    if (::poll(&requests, 1, 0) <= 0) return;
    answer_one(buffer);
  }
}

void Session::answer_one(fuse_buf& buffer) {
  const int received = fuse_session_receive_buf(session_.get(), &buffer);
  // 0 is the end of the mount: the session has exited.
  if (received == 0 || received == -EINTR || received == -EAGAIN) return;
  if (received < 0) device::refuse(-received, "cannot receive requests");
  fuse_session_process_buf(session_.get(), &buffer);
}

}  // namespace pps::server
