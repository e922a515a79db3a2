#include "device/own_programs.h"

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "base/file_descriptor.h"
#include "device/failure.h"

namespace device {
namespace {

// Where the programs are installed, seen from the folder of this one.
constexpr std::array INSTALLED = {
    "harbix-device",
    HARBIX_FROM_BIN_TO_SBIN "/harbix",
    HARBIX_FROM_BIN_TO_HELPERS "/harbix-installer",
    HARBIX_FROM_BIN_TO_HELPERS "/harbix-pps",
    HARBIX_FROM_BIN_TO_HELPERS "/use",
};

// Of a package of its own, which need not be here.
constexpr char INSPECT[] = "harbix-inspect";

DetachedMount take(const std::string& path) {
  std::optional<DetachedMount> mount = DetachedMount::read_only(path);
  if (!mount) throw system_failure(ENOENT, "bind", path);
  return std::move(*mount);
}

}  // namespace

std::string folder_of_this_program() {
  std::error_code error;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) throw system_failure(error.value(), "read the link", "/proc/self/exe");
  return program.parent_path().string();
}

OwnPrograms::OwnPrograms(const std::string& folder) {
  std::error_code error;
  if (std::filesystem::is_directory(folder + "/" HARBIX_FROM_BIN_TO_HELPERS, error)) {
    take_installed(folder);
  } else {
    folder_.push_back(take(folder));
  }
}

void OwnPrograms::take_installed(const std::string& folder) {
  for (const std::filesystem::path place : INSTALLED) {
    programs_.push_back({.name = place.filename().string(), .mount = take((folder / place).string())});
  }
  if (std::optional<DetachedMount> mount = DetachedMount::read_only(folder + '/' + INSPECT))
    programs_.push_back({.name = INSPECT, .mount = std::move(*mount)});
}

void OwnPrograms::attach(const std::string& root) const {
  const std::string target = root + OWN_PROGRAMS;
  if (!folder_.empty()) return folder_.front().attach(target);
  // In memory, so that a kept device has no mount points of one installation that the next one leaves empty.
  mount_memory(target);
  for (const Program& program : programs_) {
    const std::string path = target + "/" + program.name;
    if (!base::FileDescriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644))) {
      throw system_failure(errno, "create", path);
    }
    program.mount.attach(path);
  }
  make_read_only(target);
}

}  // namespace device
