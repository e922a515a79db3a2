#include "device/pps/store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "device/refuse.h"

namespace pps {

namespace {

constexpr mode_t FOLDER_MODE = 0755;

void write_all(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(file, text.data(), text.size());
    if (written == -1 && errno == EINTR) continue;
    if (written == -1) device::refuse(errno, "write", Store::UNFINISHED);
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

// The owner comes first: a change of owner may take set-id bits away.
void put_metadata(int file, const Metadata& metadata, const std::string& path) {
  if (::fchown(file, metadata.uid, metadata.gid) == -1) device::refuse(errno, "give the owner of", path);
  if (::fchmod(file, metadata.mode) == -1) device::refuse(errno, "give the mode of", path);
  const std::array<timespec, 2> times{metadata.accessed, metadata.modified};
  if (::futimens(file, times.data()) == -1) device::refuse(errno, "give the times of", path);
}

}  // namespace

std::string store_path(const Node& directory, std::string_view name) {
  if (directory.stored_as.empty() || directory.stored_as.back().empty()) return std::string(name);
  return directory.stored_as.back() + "/" + std::string(name);
}

Store::Store(const std::string& folder, std::string passing) : passing_(std::move(passing)) {
  if (::mkdir(folder.c_str(), FOLDER_MODE) == -1 && errno != EEXIST)
    device::refuse(errno, "make the store", folder);
  folder_ = base::FileDescriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder_) device::refuse(errno, "open the store", folder);
}

bool Store::keeps(const Node& directory, std::string_view name) const {
  if (!keeps()) return false;
  if (passing_.empty()) return true;
  std::string path(name);
  for (const Node* each = &directory; each->parent != nullptr; each = each->parent) {
    path.insert(0, each->name + "/");
  }
  return path != passing_ && !path.starts_with(passing_ + "/");
}

void Store::write_unfinished(const Node& object) const {
  base::FileDescriptor file(::openat(
      folder_.get(), UNFINISHED, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!file) device::refuse(errno, "make", UNFINISHED);
  write_all(file.get(), stored_text(object));
  put_metadata(file.get(), object.metadata, UNFINISHED);
  if (const int error = file.close(); error != 0) {
    throw std::system_error(error, std::generic_category(), "cannot close the unfinished file");
  }
}

void Store::save(Node& object) const {
  if (keeps(*object.parent, object.name)) {
    if (object.stored_as.empty()) object.stored_as.push_back(store_path(*object.parent, object.name));
    const std::string& path = object.stored_as.back();
    // A failed save leaves its unfinished file behind; the next one begins it anew.
    write_unfinished(object);
    if (::renameat(folder_.get(), UNFINISHED, folder_.get(), path.c_str()) == -1)
      device::refuse(errno, "save", path);
  }
  object.unsaved = false;
}

std::string Store::make_directory(const Node& parent, std::string_view name, const Metadata& metadata) const {
  std::string path = store_path(parent, name);
  if (!keeps(parent, name)) return path;
  if (::mkdirat(folder_.get(), path.c_str(), FOLDER_MODE) == -1) device::refuse(errno, "make", path);
  const base::FileDescriptor made(
      ::openat(folder_.get(), path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!made) device::refuse(errno, "open", path);
  put_metadata(made.get(), metadata, path);
  return path;
}

void Store::save_directory(const Node& directory) const {
  if (directory.parent == nullptr ? !keeps() : !keeps(*directory.parent, directory.name)) return;
  const std::string path = directory.stored_as.back().empty() ? "." : directory.stored_as.back();
  const base::FileDescriptor folder(
      ::openat(folder_.get(), path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder) device::refuse(errno, "open", path);
  put_metadata(folder.get(), directory.metadata, path);
}

void Store::remove(const Node& node) const {
  if (!keeps()) return;
  for (const std::string& path : node.stored_as) {
    if (::unlinkat(folder_.get(), path.c_str(), node.is_directory() ? AT_REMOVEDIR : 0) == -1 &&
        errno != ENOENT) {
      device::refuse(errno, "remove", path);
    }
  }
}

}  // namespace pps
