#include "device/tablet.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "device/content/live_state.h"
#include "device/content/sample.h"
#include "device/device_root.h"
#include "device/failure.h"
#include "device/init.h"
#include "device/log_collector.h"
#include "device/mounts.h"
#include "device/own_programs.h"
#include "device/service.h"
#include "device/storage.h"
#include "device/tree_writer.h"
#include "device/well_known_folders.h"

namespace device {
namespace {

void die_with_parent(const Channel& host) {
  if (::prctl(PR_SET_PDEATHSIG, SIGKILL) == -1) throw system_failure(errno, "follow the parent process");
  // It may have died before the request; its end of the channel is closed then.
  pollfd parent = {host.descriptor(), 0, 0};
  if (::poll(&parent, 1, 0) == 1) throw Failure("the parent process is gone");
}

void enter_mount_namespace() {
  if (::unshare(CLONE_NEWNS) == -1) {
    throw system_failure(errno, "make a mount namespace", {}, EXIT_UNAVAILABLE);
  }
  make_mounts_private();
}

/// Told before anything is made: a kernel without it, or a machine that does not let it be used.
void require_fuse() {
  constexpr const char* DEVICE = "/dev/fuse";
  const platform::FileDescriptor fuse(::open(DEVICE, O_RDWR | O_CLOEXEC));
  if (fuse) return;
  const std::string reason = system_failure(errno, "open", DEVICE).what();
  throw Failure(reason + "; run 'modprobe fuse', and give /dev/fuse to a container", EXIT_UNAVAILABLE);
}

std::vector<Service> services() {
  std::vector<Service> services;
  // The installer has a ledger of its own: what it publishes, and what it is asked, is no setting to be
  // backed up, and must not come back with one.
  services.emplace_back(std::vector<std::string>{"/opt/harbix/bin/harbix-pps", "--store", "/var/pps",
                                                 "--passing", "system/installer", "/pps"});
  // A client that waits for its answer gets it after a new start.
  services.emplace_back(std::vector<std::string>{"/opt/harbix/bin/harbix-installer"},
                        Service::Loss::start_again);
  // A part of the sample content: a bare device has nothing live.
  if (::access(LIVE_STATE_PROGRAM, X_OK) == 0)
    services.emplace_back(std::vector<std::string>{LIVE_STATE_PROGRAM});
  return services;
}

void fill(const Storage& storage, bool bare) try {
  storage.begin_filling();
  TreeWriter tree(storage.path());
  write_well_known_folders(tree);
  if (!bare) write_sample_content(tree);
  tree.finish();
  storage.end_filling();
} catch (...) {
  storage.discard();
  throw;
}

/// TMPDIR names a folder of the host's, without which programs on the device could make no temporary file.
void set_environment() {
  constexpr const char* PROGRAM_FOLDERS =
      "/opt/harbix/bin:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
  if (::setenv("PATH", PROGRAM_FOLDERS, 1) == -1 || ::setenv("HOME", "/root", 1) == -1 ||
      ::unsetenv("TMPDIR") == -1) {
    throw system_failure(errno, "set the environment");
  }
}

}  // namespace

int run_tablet(const Options& options, const SignalSource& signals, Channel host, const Terminal& terminal) {
  die_with_parent(host);
  // A signal to the group that the program was started in is for the program alone, which passes it on once.
  if (::setpgid(0, 0) == -1) throw system_failure(errno, "make a process group");
  const std::string program_folder = folder_of_this_program();
  enter_mount_namespace();
  require_fuse();
  const OwnPrograms programs(program_folder);
  platform::FileDescriptor log_file;
  // Before anything covers a folder of the host. A device that is refused leaves the old log alone.
  const auto open_host_log = [&] {
    if (!options.log.empty()) log_file = LogCollector::open_file(options.log, true);
  };
  if (options.state.empty()) open_host_log();
  const Storage storage = options.state.empty() ? Storage::in_memory() : Storage::kept_in(options.state);
  if (!options.state.empty()) open_host_log();
  if (storage.is_empty()) fill(storage, options.bare);
  furnish_root(storage.path(), programs);
  enter_root(storage.path());
  ::umask(022);
  set_environment();
  if (!log_file) log_file = LogCollector::open_file("/var/log/messages", false);
  LogCollector log("/dev/log", std::move(log_file));
  return Init(signals, host, terminal, log, services()).run(options.command);
}

}  // namespace device
