#include "device/tablet.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <optional>
#include <string>

#include "device/content/contents.h"
#include "device/device_root.h"
#include "device/factory_state.h"
#include "device/failure.h"
#include "device/fault.h"
#include "device/init.h"
#include "device/log_collector.h"
#include "device/mounts.h"
#include "device/own_programs.h"
#include "device/service.h"
#include "device/session.h"
#include "device/storage.h"

namespace device {
namespace {

void die_with_parent(const Channel& host) {
  if (::prctl(PR_SET_PDEATHSIG, SIGKILL) == -1) throw system_failure(errno, "follow the parent process");
  // It may have died before the request; its end of the channel is closed then.
  pollfd parent = {host.descriptor(), 0, 0};
  if (::poll(&parent, 1, 0) == 1) throw Failure("the parent process is gone");
}

void enter_namespaces() {
  if (::unshare(CLONE_NEWNS) == -1) {
    throw system_failure(errno, "make a mount namespace", {}, EXIT_UNAVAILABLE);
  }
  if (::unshare(CLONE_NEWUTS) == -1) {
    throw system_failure(errno, "make a namespace for the host name", {}, EXIT_UNAVAILABLE);
  }
  make_mounts_private();
}

/// The device has a host name of its own, which its owner can change.
void name_host() {
  std::ifstream file("/etc/hostname");
  std::string name;
  if (!std::getline(file, name) || name.empty()) name = "tablet";
  if (::sethostname(name.c_str(), name.size()) == -1) throw system_failure(errno, "set the host name", name);
}

/// Fails before anything is made when the kernel has no FUSE, or the machine does not let it be used.
void require_fuse() {
  constexpr const char* DEVICE = "/dev/fuse";
  const base::FileDescriptor fuse(::open(DEVICE, O_RDWR | O_CLOEXEC));
  if (fuse) return;
  const std::string reason = system_failure(errno, "open", DEVICE).what();
  throw Failure(reason + "; run 'modprobe fuse', and give /dev/fuse to a container", EXIT_UNAVAILABLE);
}

std::vector<Service> services(const Faults& faults) {
  std::vector<Service> services;
  // The installer has a ledger of its own: what it publishes, and what it is asked, is no setting to be
  // backed up, and must not come back with one.
  std::vector<std::string> file_system = {"/opt/harbix/bin/harbix-pps", "--store", "/var/pps", "--passing",
                                          "system/installer"};
  for (const std::string& object : faults.hanging_objects) {
    file_system.insert(file_system.end(), {"--hanging", object});
  }
  file_system.emplace_back("/pps");
  services.emplace_back(file_system);
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
  write_factory_state(storage.path(), bare);
  storage.end_filling();
} catch (...) {
  storage.discard();
  throw;
}

}  // namespace

int run_tablet(const Options& options, const SignalSource& signals, Channel host, const Terminal& terminal,
               const Disk* disk) {
  die_with_parent(host);
  // A signal to the group that the program was started in is for the program alone, which passes it on once.
  if (::setpgid(0, 0) == -1) throw system_failure(errno, "make a process group");
  const std::string program_folder = folder_of_this_program();
  enter_namespaces();
  require_fuse();
  const OwnPrograms programs(program_folder);
  const std::optional<DetachedMount> pages = own_pages(program_folder);
  base::FileDescriptor log_file;
  // Before anything covers a folder of the host. A device that is refused leaves the old log alone.
  const auto open_host_log = [&] {
    if (!options.log.empty()) log_file = LogCollector::open_file(options.log, true);
  };
  if (options.state.empty()) open_host_log();
  Storage storage = options.state.empty() ? Storage::in_memory() : Storage::kept_in(options.state);
  if (!options.state.empty()) open_host_log();
  if (storage.is_empty()) fill(storage, options.bare);
  if (disk != nullptr) disk->replace(storage.path(), signals);
  spoil_files(options.faults, storage.path(), signals);
  furnish_root(storage.path(), programs, pages);
  enter_root(storage.path());
  set_up_session();
  name_host();
  if (!log_file) log_file = LogCollector::open_file("/var/log/messages", false);
  LogCollector log("/dev/log", std::move(log_file));
  Init init(signals, host, terminal, log, services(options.faults), [&] {
    spoil_installer(options.faults);
    storage.announce();
  });
  if (disk != nullptr) init.end_by([disk] { disk->lose_power(); });
  return init.run(options.command.empty() ? login_shell() : options.command);
}

}  // namespace device
