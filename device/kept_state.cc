#include "device/kept_state.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "device/copy.h"
#include "device/device_folder.h"
#include "device/factory_state.h"
#include "device/failure.h"

namespace device {
namespace {

constexpr const char* NEW = "/.new";

bool exists(const std::string& path) {
  struct stat record = {};
  return ::lstat(path.c_str(), &record) == 0;
}

/// A kept device that is not running, held for this program.
class KeptDevice {
 public:
  explicit KeptDevice(const std::string& folder) : held_(hold_folder(folder)), path_(full_path(folder)) {
    if (content_of_folder(path_) != FolderContent::device) {
      throw Failure("there is no device in '" + folder + "'; nothing was changed in it");
    }
  }

  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  [[nodiscard]] std::string snapshots() const { return path_ + ".snapshots"; }

 private:
  static std::string full_path(const std::string& folder) {
    std::error_code error;
    std::string path = std::filesystem::canonical(folder, error).string();
    if (error) throw system_failure(error.value(), "use the folder", folder);
    return path;
  }

  base::FileDescriptor held_;
  std::string path_;
};

/// The place beside a device where its next state, or a snapshot, is built. What is in it at the end is
/// removed.
class Workshop {
 public:
  explicit Workshop(const KeptDevice& device) : folder_(device.snapshots()) {
    // Others than root have no business with states whose files may be set-id.
    if (::mkdir(folder_.c_str(), 0700) == -1 && errno != EEXIST) {
      throw system_failure(errno, "create the folder", folder_);
    }
    // What a program that was killed has left.
    std::filesystem::remove_all(place());
  }
  Workshop(const Workshop&) = delete;
  Workshop& operator=(const Workshop&) = delete;
  ~Workshop() {
    std::error_code error;
    // What stays is removed the next time.
    std::filesystem::remove_all(place(), error);
    // Stays when there is a snapshot in it.
    ::rmdir(folder_.c_str());
  }

  [[nodiscard]] std::string place() const { return folder_ + NEW; }

  /// Puts what was built in the device's place, in one step.
  void exchange_with(const std::string& device) const {
    write_to_disk();
    if (::renameat2(AT_FDCWD, place().c_str(), AT_FDCWD, device.c_str(), RENAME_EXCHANGE) == -1) {
      throw system_failure(errno, "replace the folder", device);
    }
  }

  void keep_as(const std::string& snapshot) const {
    write_to_disk();
    if (::renameat2(AT_FDCWD, place().c_str(), AT_FDCWD, snapshot.c_str(), RENAME_NOREPLACE) == -1) {
      throw system_failure(errno, "create the folder", snapshot);
    }
  }

 private:
  // A name may reach the disk before what it stands for.
  void write_to_disk() const {
    const base::FileDescriptor built(::open(place().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!built || ::syncfs(built.get()) == -1) throw system_failure(errno, "write to the disk", place());
  }

  std::string folder_;
};

std::string snapshot_path(const KeptDevice& device, const std::string& name) {
  return device.snapshots() + "/" + name;
}

}  // namespace

void reset_device(const std::string& folder, bool bare, const SignalSource& signals) try {
  const KeptDevice device(folder);
  const Workshop workshop(device);
  if (::mkdir(workshop.place().c_str(), 0755) == -1) {
    throw system_failure(errno, "create the folder", workshop.place());
  }
  // The device's accounts have to pass its root, also when this program has a stricter mask.
  if (::chmod(workshop.place().c_str(), 0755) == -1) {
    throw system_failure(errno, "set the mode of", workshop.place());
  }
  mark_unfinished(workshop.place());
  write_factory_state(workshop.place(), bare);
  mark_finished(workshop.place());
  give_way_to_signals(signals);
  workshop.exchange_with(device.path());
} catch (const std::filesystem::filesystem_error& error) {
  throw system_failure(error.code().value(), "reset", folder);
}

void keep_snapshot(const std::string& folder, const std::string& name, const SignalSource& signals) try {
  const KeptDevice device(folder);
  const std::string snapshot = snapshot_path(device, name);
  if (exists(snapshot)) {
    throw Failure("'" + folder + "' has a snapshot '" + name + "' already; nothing was changed");
  }
  const Workshop workshop(device);
  copy_folder(device.path(), workshop.place(), signals);
  workshop.keep_as(snapshot);
} catch (const std::filesystem::filesystem_error& error) {
  throw system_failure(error.code().value(), "keep a snapshot of", folder);
}

void bring_back_snapshot(const std::string& folder, const std::string& name,
                         const SignalSource& signals) try {
  const KeptDevice device(folder);
  const std::string snapshot = snapshot_path(device, name);
  if (!exists(snapshot)) {
    throw Failure("'" + folder + "' has no snapshot '" + name + "'; nothing was changed");
  }
  // Another harbix-device may run it as its device.
  const base::FileDescriptor held = hold_folder(snapshot);
  if (content_of_folder(snapshot) != FolderContent::device) {
    throw Failure("there is no device in '" + snapshot + "'; nothing was changed");
  }
  const Workshop workshop(device);
  copy_folder(snapshot, workshop.place(), signals);
  workshop.exchange_with(device.path());
} catch (const std::filesystem::filesystem_error& error) {
  throw system_failure(error.code().value(), "bring back", folder);
}

void replace_device(const std::string& folder, const std::string& state, const SignalSource& signals,
                    int kept) try {
  const KeptDevice device(folder);
  const Workshop workshop(device);
  copy_folder(state, workshop.place(), signals, kept);
  workshop.exchange_with(device.path());
} catch (const std::filesystem::filesystem_error& error) {
  throw system_failure(error.code().value(), "replace", folder);
}

}  // namespace device
