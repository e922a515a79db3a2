#include "device/storage.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>

#include "device/failure.h"
#include "device/mounts.h"

namespace device {
namespace {

// A plain file in the root of every kept device: tells it from any other folder.
constexpr std::string_view MARKER = "/.harbix-device";
constexpr std::string_view FILLED_TEXT = "harbix-device layout 1\n";
constexpr std::string_view FILLING_TEXT = "harbix-device is being filled\n";

// Mounting here hides what the host has there from the device's set-up alone, which needs nothing of it.
constexpr const char* MEMORY_MOUNT_POINT = "/tmp";

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
  const platform::FileDescriptor file(::open(marker.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!file && errno == ENOENT) return std::nullopt;
  if (!file) throw system_failure(errno, "open", marker);
  std::array<char, 256> text = {};
  const ssize_t size = ::read(file.get(), text.data(), text.size());
  if (size == -1) throw system_failure(errno, "read", marker);
  return std::string(text.data(), static_cast<std::size_t>(size));
}

void write_marker(const std::string& path, std::string_view text) {
  const std::string marker = path + std::string(MARKER);
  platform::FileDescriptor file(
      ::open(marker.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (!file) throw system_failure(errno, "create", marker);
  const ssize_t written = ::write(file.get(), text.data(), text.size());
  if (written == -1) throw system_failure(errno, "write", marker);
  if (const int error = file.close(); error != 0) throw system_failure(error, "write", marker);
}

/// The marker goes last: without it, what is left when this is cut short would be nobody's.
void remove_content(const std::string& path) {
  const std::string marker = path + std::string(MARKER);
  for (const auto& item : std::filesystem::directory_iterator(path)) {
    if (item.path() != marker) std::filesystem::remove_all(item.path());
  }
  std::filesystem::remove(marker);
}

/// Whether the folder `path` can be filled; it is emptied for that when its filling was cut short.
bool make_ready(const std::string& path) {
  if (std::filesystem::is_empty(path)) return true;
  const std::optional<std::string> text = marker_text(path);
  if (!text)
    throw Failure("'" + path + "' is neither empty nor a device's folder; nothing was changed in it");
  if (*text == FILLED_TEXT) return false;
  // An empty marker is one whose writing was cut short.
  if (!text->empty() && *text != FILLING_TEXT) {
    throw Failure("'" + path + "' holds a device of another layout; nothing was changed in it");
  }
  remove_content(path);
  return true;
}

}  // namespace

Storage Storage::in_memory() {
  mount_memory(MEMORY_MOUNT_POINT);
  Storage storage;
  storage.path_ = MEMORY_MOUNT_POINT;
  return storage;
}

Storage Storage::kept_in(const std::string& folder) try {
  Storage storage;
  storage.kept_ = true;
  storage.created_ = ::mkdir(folder.c_str(), 0755) == 0;
  if (!storage.created_ && errno != EEXIST) throw system_failure(errno, "create the folder", folder);
  storage.path_ = std::filesystem::canonical(folder).string();
  storage.lock_ = platform::FileDescriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!storage.lock_) throw system_failure(errno, "open the folder", folder);
  if (!lock(storage.lock_.get(), folder)) throw Failure("a device is running in '" + folder + "' already");
  storage.empty_ = make_ready(storage.path_);
  DetachedMount::root_folder(storage.path_).attach(storage.path_);
  return storage;
} catch (const std::filesystem::filesystem_error& error) {
  throw system_failure(error.code().value(), "use the folder", folder);
}

void Storage::begin_filling() const {
  if (kept_) write_marker(path_, FILLING_TEXT);
  // Whoever made the folder may have kept it to himself, but the device's accounts have to pass its root.
  if (::chmod(path_.c_str(), 0755) == -1) throw system_failure(errno, "set the mode of", path_);
  if (::chown(path_.c_str(), 0, 0) == -1) throw system_failure(errno, "set the owner of", path_);
}

void Storage::end_filling() const {
  if (kept_) write_marker(path_, FILLED_TEXT);
}

void Storage::discard() const noexcept {
  if (!kept_) return;
  try {
    remove_content(path_);
  } catch (const std::exception&) {
    return;  // The failure that led here is the one to report; the next start empties the folder.
  }
  // A mount point cannot be removed. No result matters: an empty folder that stays does no harm.
  if (created_ && ::umount2(path_.c_str(), MNT_DETACH) == 0) ::rmdir(path_.c_str());
}

}  // namespace device
