#include "device/power.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "device/copy.h"
#include "device/failure.h"
#include "device/kept_state.h"

namespace device {
namespace {

// From the kernel's ext4, which has no header for programs.
constexpr unsigned long SHUT_DOWN = _IOR('X', 125, std::uint32_t);
constexpr std::uint32_t WITHOUT_FLUSHING_THE_LOG = 2;

// Memory is taken only for what is used of it.
constexpr off_t DISK_BYTES = off_t{8} << 30;

std::string own_path(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

/// A block device for the image, which goes when nothing uses it any more. Its path is in `path`.
base::FileDescriptor attach(int image, std::string& path) {
  const base::FileDescriptor control(::open("/dev/loop-control", O_RDWR | O_CLOEXEC));
  if (!control) throw system_failure(errno, "open", "/dev/loop-control", EXIT_UNAVAILABLE);
  while (true) {
    const int number = ::ioctl(control.get(), LOOP_CTL_GET_FREE);
    if (number == -1) throw system_failure(errno, "get a loop device", {}, EXIT_UNAVAILABLE);
    path = "/dev/loop" + std::to_string(number);
    base::FileDescriptor loop(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!loop) throw system_failure(errno, "open", path, EXIT_UNAVAILABLE);
    loop_config config = {};
    config.fd = static_cast<std::uint32_t>(image);
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
    if (::ioctl(loop.get(), LOOP_CONFIGURE, &config) == 0) return loop;
    // Another program was faster.
    if (errno != EBUSY) throw system_failure(errno, "set up", path, EXIT_UNAVAILABLE);
  }
}

}  // namespace

Disk::Disk(const SignalSource& signals)
    : image_(::memfd_create("disk", MFD_CLOEXEC)), loss_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!image_ || !loss_ || ::ftruncate(image_.get(), DISK_BYTES) == -1)
    throw system_failure(errno, "make a disk");
  run_helper({"mkfs.ext4", "-F", "-q", "-J", "size=16", "-E", "lazy_itable_init=1,lazy_journal_init=1",
              own_path(image_.get())},
             "make a disk", signals, image_.get());
}

base::FileDescriptor Disk::mount() const {
  std::string path;
  const base::FileDescriptor loop = attach(image_.get(), path);
  const base::FileDescriptor system(::fsopen("ext4", FSOPEN_CLOEXEC));
  if (!system) throw system_failure(errno, "use ext4", {}, EXIT_UNAVAILABLE);
  if (::fsconfig(system.get(), FSCONFIG_SET_STRING, "source", path.c_str(), 0) == -1 ||
      ::fsconfig(system.get(), FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) == -1) {
    throw system_failure(errno, "read the disk", path);
  }
  base::FileDescriptor tree(::fsmount(system.get(), FSMOUNT_CLOEXEC, 0));
  if (!tree) throw system_failure(errno, "mount", path);
  return tree;
}

void Disk::replace(const std::string& source, const SignalSource& signals) const {
  const base::FileDescriptor tree = mount();
  // A disk has it for its repair; the device has none.
  if (::unlinkat(tree.get(), "lost+found", AT_REMOVEDIR) == -1 && errno != ENOENT) {
    throw system_failure(errno, "remove", "lost+found");
  }
  copy_folder(source, own_path(tree.get()) + "/.", signals, tree.get());
  // What was there before is safe. The mount itself is no file that could be synced.
  const base::FileDescriptor root(::openat(tree.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!root || ::syncfs(root.get()) == -1) throw system_failure(errno, "write to the disk");
  if (::move_mount(tree.get(), "", AT_FDCWD, source.c_str(), MOVE_MOUNT_F_EMPTY_PATH) == -1) {
    throw system_failure(errno, "mount on", source);
  }
}

void Disk::bring_back(const std::string& folder, const SignalSource& signals) const {
  const base::FileDescriptor tree = mount();
  replace_device(folder, own_path(tree.get()) + "/.", signals, tree.get());
}

void Disk::lose_power() const {
  const base::FileDescriptor root(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::uint32_t how = WITHOUT_FLUSHING_THE_LOG;
  if (!root || ::ioctl(root.get(), SHUT_DOWN, &how) == -1) throw system_failure(errno, "lose the power");
  if (::eventfd_write(loss_.get(), 1) == -1) throw system_failure(errno, "report the loss of power");
}

bool Disk::has_lost_power() const {
  eventfd_t count = 0;
  return ::eventfd_read(loss_.get(), &count) == 0;
}

}  // namespace device
