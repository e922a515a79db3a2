#include "device/device_root.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <optional>

#include "base/file_descriptor.h"
#include "device/failure.h"
#include "device/mounts.h"

namespace device {
namespace {

// Links into /usr on most hosts, folders on some; a host without one of them needs none of it.
constexpr std::array SYSTEM_FOLDERS = {"/usr", "/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32"};
// What the host's programs need to find their libraries and each other.
constexpr std::array SYSTEM_SETTINGS = {"/etc/ld.so.cache", "/etc/ld.so.conf", "/etc/ld.so.conf.d",
                                        "/etc/alternatives",
                                        // and "man" its pages.
                                        "/etc/manpath.config", "/etc/man.conf", "/etc/groff"};
constexpr std::array DEVICE_NODES = {"/dev/null",    "/dev/zero", "/dev/full", "/dev/random",
                                     "/dev/urandom", "/dev/tty",  "/dev/fuse"};

struct Link {
  const char* path;
  const char* target;
};
constexpr std::array DEVICE_LINKS = {
    Link{"/dev/ptmx", "pts/ptmx"},          Link{"/dev/fd", "/proc/self/fd"},
    Link{"/dev/stdin", "/proc/self/fd/0"},  Link{"/dev/stdout", "/proc/self/fd/1"},
    Link{"/dev/stderr", "/proc/self/fd/2"},
};

/// A kept device has its mount points from the start before.
void ensure_folder(const std::string& path, mode_t mode) {
  if (::mkdir(path.c_str(), mode) == -1 && errno != EEXIST) {
    throw system_failure(errno, "create the folder", path);
  }
}

void ensure_file(const std::string& path) {
  const base::FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (!file) throw system_failure(errno, "create", path);
}

void ensure_link(const std::string& path, const std::string& target) {
  if (::symlink(target.c_str(), path.c_str()) == -1 && errno != EEXIST) {
    throw system_failure(errno, "create the link", path);
  }
}

void share_read_only(const std::string& root, const std::string& path) {
  const std::optional<DetachedMount> shared = DetachedMount::read_only(path);
  if (!shared) return;
  const std::string target = root + path;
  if (std::filesystem::is_directory(path)) {
    ensure_folder(target, 0755);
  } else {
    ensure_file(target);
  }
  shared->attach(target);
}

void share_system_folder(const std::string& root, const std::string& path) {
  if (!std::filesystem::is_symlink(path)) return share_read_only(root, path);
  ensure_link(root + path, std::filesystem::read_symlink(path).string());
}

void make_device_folder(const std::string& root) {
  const std::string folder = root + "/dev";
  mount_memory(folder);
  for (const char* node : DEVICE_NODES) {
    const std::optional<DetachedMount> shared = DetachedMount::device_node(node);
    if (!shared) continue;
    ensure_file(root + node);
    shared->attach(root + node);
  }
  ensure_folder(folder + "/shm", 0777);
  if (::chmod((folder + "/shm").c_str(), 01777) == -1) {
    throw system_failure(errno, "set the mode of", folder + "/shm");
  }
  ensure_folder(folder + "/pts", 0755);
  mount_terminals(folder + "/pts");
  for (const Link& link : DEVICE_LINKS) ensure_link(root + link.path, link.target);
}

}  // namespace

std::optional<DetachedMount> own_pages(const std::filesystem::path& folder) {
  // Where the build has them, and where an installation has.
  for (const std::filesystem::path& pages : {folder / "share/man", folder / "../share/man"}) {
    std::error_code error;
    const bool has_pages = std::filesystem::exists(pages / "man1/harbix.1", error) ||
                           std::filesystem::exists(pages / "man1/harbix.1.gz", error);
    if (has_pages) return DetachedMount::read_only(pages.string());
  }
  return std::nullopt;
}

void furnish_root(const std::string& root, const OwnPrograms& programs,
                  const std::optional<DetachedMount>& pages) try {
  for (const char* folder : SYSTEM_FOLDERS) share_system_folder(root, folder);
  for (const char* item : SYSTEM_SETTINGS) share_read_only(root, item);
  programs.attach(root);
  if (pages) {
    for (const char* folder : {"/opt/harbix/share", "/opt/harbix/share/man"})
      ensure_folder(root + folder, 0755);
    pages->attach(root + "/opt/harbix/share/man");
  }
  make_device_folder(root);
  mount_processes(root + "/proc");
} catch (const std::filesystem::filesystem_error& error) {
  throw system_failure(error.code().value(), "look at", error.path1().string());
}

}  // namespace device
