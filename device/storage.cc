#include "device/storage.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "device/device_folder.h"
#include "device/failure.h"
#include "device/mounts.h"

namespace device {
namespace {

// Mounting here hides what the host has there from the device's set-up alone, which needs nothing of it.
constexpr const char* MEMORY_MOUNT_POINT = "/tmp";

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
  storage.lock_ = hold_folder(folder);
  const FolderContent content = content_of_folder(storage.path_);
  if (content == FolderContent::unfinished_device) remove_content(storage.path_);
  storage.empty_ = content != FolderContent::device;
  DetachedMount::root_folder(storage.path_).attach(storage.path_);
  return storage;
} catch (const std::filesystem::filesystem_error& error) {
  throw system_failure(error.code().value(), "use the folder", folder);
}

void Storage::begin_filling() const {
  if (kept_) mark_unfinished(path_);
  // The user who made the folder may have closed it to others, but the device's accounts have to pass its
  // root.
  if (::chmod(path_.c_str(), 0755) == -1) throw system_failure(errno, "set the mode of", path_);
  if (::chown(path_.c_str(), 0, 0) == -1) throw system_failure(errno, "set the owner of", path_);
}

void Storage::end_filling() const {
  if (kept_) mark_finished(path_);
}

void Storage::announce() {
  if (kept_) running_ = show_running(lock_.get());
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
