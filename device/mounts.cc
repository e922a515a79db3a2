#include "device/mounts.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "device/accounts.h"
#include "device/failure.h"

namespace device {
namespace {

base::FileDescriptor copy_tree(const std::string& source, unsigned int flags) {
  return base::FileDescriptor(
      ::open_tree(AT_FDCWD, source.c_str(), OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | flags));
}

void change_attributes(int tree, unsigned int flags, std::uint64_t set, std::uint64_t clear,
                       const std::string& source) {
  mount_attr attributes = {};
  attributes.attr_set = set;
  attributes.attr_clr = clear;
  if (::mount_setattr(tree, "", AT_EMPTY_PATH | flags, &attributes, sizeof attributes) == -1) {
    throw system_failure(errno, "change the mount attributes of", source);
  }
}

void mount_new(const char* type, const std::string& target, unsigned long flags, const std::string& options) {
  if (::mount(type, target.c_str(), type, flags, options.c_str()) == -1) {
    throw system_failure(errno, std::string("mount a ") + type + " on", target);
  }
}

}  // namespace

std::optional<DetachedMount> DetachedMount::read_only(const std::string& source) {
  base::FileDescriptor tree = copy_tree(source, AT_RECURSIVE);
  if (!tree && errno == ENOENT) return std::nullopt;
  if (!tree) throw system_failure(errno, "bind", source);
  change_attributes(tree.get(), AT_RECURSIVE, MOUNT_ATTR_RDONLY, 0, source);
  return DetachedMount(std::move(tree));
}

std::optional<DetachedMount> DetachedMount::device_node(const std::string& source) {
  base::FileDescriptor tree = copy_tree(source, 0);
  if (!tree && errno == ENOENT) return std::nullopt;
  if (!tree) throw system_failure(errno, "bind", source);
  return DetachedMount(std::move(tree));
}

DetachedMount DetachedMount::root_folder(const std::string& source) {
  base::FileDescriptor tree = copy_tree(source, 0);
  if (!tree) throw system_failure(errno, "bind", source);
  change_attributes(tree.get(), 0, 0, MOUNT_ATTR_NOEXEC | MOUNT_ATTR_NOSUID | MOUNT_ATTR_NODEV, source);
  return DetachedMount(std::move(tree));
}

void DetachedMount::attach(const std::string& target) const {
  if (::move_mount(tree_.get(), "", AT_FDCWD, target.c_str(), MOVE_MOUNT_F_EMPTY_PATH) == -1) {
    throw system_failure(errno, "mount on", target);
  }
}

void make_mounts_private() {
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0) return;
  if (errno != EINVAL) throw system_failure(errno, "make the mounts private");
  // As in a chroot into a plain folder.
  throw Failure("/ is not a mount point; run 'mount --bind FOLDER FOLDER' before 'chroot FOLDER'",
                EXIT_UNAVAILABLE);
}

void mount_memory(const std::string& target) {
  // No limit on the number of files: a share of a million small files has to fit.
  mount_new("tmpfs", target, 0, "mode=0755,nr_inodes=0");
}

void mount_processes(const std::string& target) {
  mount_new("proc", target, MS_NOSUID | MS_NODEV | MS_NOEXEC, "");
}

void mount_terminals(const std::string& target) {
  mount_new("devpts", target, MS_NOSUID | MS_NOEXEC,
            "newinstance,ptmxmode=0666,mode=0620,gid=" + std::to_string(TTY_GROUP));
}

void make_read_only(const std::string& target) {
  if (::mount(nullptr, target.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == -1) {
    throw system_failure(errno, "close for writers", target);
  }
}

void enter_root(const std::string& root) {
  if (::chdir(root.c_str()) == -1) throw system_failure(errno, "enter", root);
  if (::syscall(SYS_pivot_root, ".", ".") == -1) throw system_failure(errno, "make the root", root);
  // The old root now lies over the new one.
  if (::umount2(".", MNT_DETACH) == -1) throw system_failure(errno, "leave the host's root");
  if (::chdir("/") == -1) throw system_failure(errno, "enter", "/");
}

}  // namespace device
