#include "device/fault.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <iterator>
#include <string_view>
#include <system_error>

#include "base/file_descriptor.h"
#include "device/copy.h"
#include "device/failure.h"
#include "device/mounts.h"
#include "device/option_reader.h"
#include "device/signal_source.h"

namespace device {
namespace {

constexpr const char* SHARE = "/accounts/1000/shared";
constexpr const char* LIBRARY = "/accounts/1000/db/mmlibrary.db";
constexpr std::string_view OBJECTS = "/pps/";

std::uint64_t parse_size(const std::string& text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size()) {
    throw WrongOption("'" + text + "' is no number of bytes");
  }
  return number;
}

/// Memory where something is prepared before it covers a part of the device.
class Scratch {
 public:
  Scratch(const std::string& root, unsigned long flags) : place_(root + "/tmp") {
    if (::mount("tmpfs", place_.c_str(), "tmpfs", flags, "mode=0755,nr_inodes=0") == -1) {
      throw system_failure(errno, "mount a tmpfs on", place_);
    }
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  // What is mounted elsewhere by then stays. A failure leaves a mount that goes with the namespace.
  ~Scratch() {
    if (!moved_) ::umount2(place_.c_str(), MNT_DETACH);
  }

  [[nodiscard]] const std::string& place() const noexcept { return place_; }

  void move_to(const std::string& target) {
    if (::mount(place_.c_str(), target.c_str(), nullptr, MS_MOVE, nullptr) == -1) {
      throw system_failure(errno, "mount on", target);
    }
    moved_ = true;
  }

 private:
  std::string place_;
  bool moved_ = false;
};

void fill_share(const std::string& root, std::uint64_t left, const SignalSource& signals) {
  Scratch memory(root, 0);
  copy_folder(root + SHARE, memory.place(), signals);
  struct statvfs room = {};
  if (::statvfs(memory.place().c_str(), &room) == -1) throw system_failure(errno, "look at", memory.place());
  // A size of 0 would be none, so that one page is there in any case.
  const std::uint64_t used = std::max<std::uint64_t>((room.f_blocks - room.f_bfree) * room.f_frsize, 1);
  const std::string size = "size=" + std::to_string(used + left);
  if (::mount(nullptr, memory.place().c_str(), nullptr, MS_REMOUNT, size.c_str()) == -1) {
    throw system_failure(errno, "set the size of", memory.place());
  }
  memory.move_to(root + SHARE);
}

void cover(const std::string& target, const std::string& with) {
  if (::mount(with.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) == -1) {
    throw system_failure(errno, "mount on", target);
  }
}

void make_unreadable(const std::string& root) {
  // A device's node where there can be none: not even root may open it.
  const Scratch memory(root, MS_NODEV);
  const std::string node = memory.place() + "/library";
  if (::mknod(node.c_str(), S_IFCHR | 0644, 0) == -1) throw system_failure(errno, "create", node);
  cover(root + LIBRARY, node);
}

void make_corrupt(const std::string& root) {
  constexpr std::size_t HEADER_BYTES = 100;
  const std::string library = root + LIBRARY;
  struct stat record = {};
  if (::stat(library.c_str(), &record) == -1) throw system_failure(errno, "look at", library);
  std::ifstream file(library, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(file), {}};
  // The header stays, so that it passes for a library until it is read.
  if (bytes.size() > HEADER_BYTES) std::fill(bytes.begin() + HEADER_BYTES, bytes.end(), '\xa5');
  const Scratch memory(root, 0);
  const std::string copy = memory.place() + "/library";
  std::ofstream damaged(copy, std::ios::binary);
  damaged << bytes << std::flush;
  if (!damaged) throw Failure("cannot write '" + copy + "'");
  if (::chown(copy.c_str(), record.st_uid, record.st_gid) == -1 ||
      ::chmod(copy.c_str(), record.st_mode) == -1) {
    throw system_failure(errno, "set the owner of", copy);
  }
  cover(library, copy);
}

}  // namespace

void add_fault(Faults& faults, const std::string& text) {
  const std::size_t end = text.find('=');
  const std::string name = text.substr(0, end);
  const bool has_value = end != std::string::npos;
  const std::string value = has_value ? text.substr(end + 1) : "";
  if (name == "full-share") {
    faults.share_left = has_value ? parse_size(value) : 0;
  } else if (text == "unreadable-library") {
    faults.library = Faults::Library::unreadable;
  } else if (text == "corrupt-library") {
    faults.library = Faults::Library::corrupt;
  } else if (name == "hanging-object") {
    if (!value.starts_with(OBJECTS) || value.size() == OBJECTS.size()) {
      throw WrongOption("fault 'hanging-object' needs an object: 'hanging-object=/pps/PATH'");
    }
    faults.hanging_objects.push_back(value.substr(OBJECTS.size()));
  } else if (name == "dying-installer") {
    faults.installer_dies_of = value.empty() ? "all" : value;
  } else if (text == "power-loss") {
    faults.power_loss = true;
  } else {
    throw WrongOption("unknown fault '" + text + "'");
  }
}

void spoil_files(const Faults& faults, const std::string& root, const SignalSource& signals) {
  if (faults.share_left) fill_share(root, *faults.share_left, signals);
  if (faults.library == Faults::Library::sound) return;
  if (::access((root + LIBRARY).c_str(), F_OK) == -1) {
    throw Failure("the device has no media library that could be spoiled");
  }
  if (faults.library == Faults::Library::unreadable) make_unreadable(root);
  if (faults.library == Faults::Library::corrupt) make_corrupt(root);
}

void spoil_installer(const Faults& faults) {
  if (faults.installer_dies_of.empty()) return;
  constexpr const char* CONTROL = "/pps/system/installer/control";
  const std::string wish = "die::" + faults.installer_dies_of + "\n";
  base::FileDescriptor control(::open(CONTROL, O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  if (!control) throw system_failure(errno, "open", CONTROL);
  if (::write(control.get(), wish.data(), wish.size()) == -1) throw system_failure(errno, "write", CONTROL);
  if (const int error = control.close(); error != 0) throw system_failure(error, "write", CONTROL);
}

}  // namespace device
