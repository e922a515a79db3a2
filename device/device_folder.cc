#include "device/device_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string_view>
#include <thread>

#include "device/failure.h"

namespace device {
namespace {

// A plain file in the root of every kept device: tells it from any other folder.
constexpr std::string_view MARKER = "/.harbix-device";
constexpr std::string_view FILLED_TEXT = "harbix-device layout 1\n";
constexpr std::string_view FILLING_TEXT = "harbix-device is being filled\n";

/// A device that was just killed may hold its lock for a moment longer.
bool lock(int folder, const std::string& name) {
  constexpr int ATTEMPTS = 25;
  constexpr std::chrono::milliseconds PAUSE(20);
  for (int attempt = 1; ::flock(folder, LOCK_EX | LOCK_NB) == -1; ++attempt) {
    if (errno != EWOULDBLOCK) throw system_failure(errno, "lock", name);
    if (attempt == ATTEMPTS) return false;
    std::this_thread::sleep_for(PAUSE);
  }
  return true;
}

/// What the marker of the folder `path` says; nothing when it has none.
std::optional<std::string> marker_text(const std::string& path) {
  const std::string marker = path + std::string(MARKER);
  const base::FileDescriptor file(::open(marker.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!file && errno == ENOENT) return std::nullopt;
  if (!file) throw system_failure(errno, "open", marker);
  std::array<char, 256> text = {};
  const ssize_t size = ::read(file.get(), text.data(), text.size());
  if (size == -1) throw system_failure(errno, "read", marker);
  return std::string(text.data(), static_cast<std::size_t>(size));
}

void write_marker(const std::string& path, std::string_view text) {
  const std::string marker = path + std::string(MARKER);
  base::FileDescriptor file(
      ::open(marker.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (!file) throw system_failure(errno, "create", marker);
  const ssize_t written = ::write(file.get(), text.data(), text.size());
  if (written == -1) throw system_failure(errno, "write", marker);
  if (const int error = file.close(); error != 0) throw system_failure(error, "write", marker);
}

/// Whether the name `folder` still stands for what was opened: while one waits for the lock, the folder may
/// have been replaced.
bool is_still(const std::string& folder, int opened) {
  struct stat before = {};
  struct stat now = {};
  if (::fstat(opened, &before) == -1 || ::stat(folder.c_str(), &now) == -1) return false;
  return before.st_dev == now.st_dev && before.st_ino == now.st_ino;
}

struct flock lock_on_marker() {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return lock;
}

}  // namespace

base::FileDescriptor hold_folder(const std::string& folder) {
  while (true) {
    base::FileDescriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened) throw system_failure(errno, "open the folder", folder);
    if (!lock(opened.get(), folder)) throw Failure("a device is running in '" + folder + "' already");
    if (is_still(folder, opened.get())) return opened;
  }
}

FolderContent content_of_folder(const std::string& path) {
  if (std::filesystem::is_empty(path)) return FolderContent::nothing;
  const std::optional<std::string> text = marker_text(path);
  if (!text) {
    throw Failure("'" + path + "' is neither empty nor a device's folder; nothing was changed in it");
  }
  if (*text == FILLED_TEXT) return FolderContent::device;
  // An empty marker is one whose writing was cut short.
  if (text->empty() || *text == FILLING_TEXT) return FolderContent::unfinished_device;
  throw Failure("'" + path + "' holds a device of another layout; nothing was changed in it");
}

void mark_unfinished(const std::string& path) { write_marker(path, FILLING_TEXT); }

void mark_finished(const std::string& path) { write_marker(path, FILLED_TEXT); }

void remove_content(const std::string& path) {
  const std::string marker = path + std::string(MARKER);
  for (const auto& item : std::filesystem::directory_iterator(path)) {
    if (item.path() != marker) std::filesystem::remove_all(item.path());
  }
  // Without it, what is left when this is cut short would not be known as a device's.
  std::filesystem::remove(marker);
}

// A lock of this kind belongs to a process, and the system says to which; it goes with the process.
base::FileDescriptor show_running(int folder) {
  const std::string name(MARKER.substr(1));
  base::FileDescriptor marker(::openat(folder, name.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC));
  if (!marker) throw system_failure(errno, "open", name);
  struct flock lock = lock_on_marker();
  if (::fcntl(marker.get(), F_SETLK, &lock) == -1) throw system_failure(errno, "lock", name);
  return marker;
}

std::optional<pid_t> running_process(const std::string& path) {
  const std::string name = path + std::string(MARKER);
  const base::FileDescriptor marker(::open(name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!marker) throw system_failure(errno, "open", name);
  struct flock lock = lock_on_marker();
  if (::fcntl(marker.get(), F_GETLK, &lock) == -1) throw system_failure(errno, "look for the lock of", path);
  if (lock.l_type == F_UNLCK) return std::nullopt;
  return lock.l_pid;
}

}  // namespace device
