#include "fs/file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/log.h"
#include "fs/exception.h"
#include "platform/path_manager.h"

namespace fs {
namespace {

constexpr unsigned ALL_RIGHTS = READ | WRITE | EXECUTE;
constexpr mode_t ANY_EXECUTE = S_IXUSR | S_IXGRP | S_IXOTH;

bool superuser_allows(const File& file, unsigned wanted) noexcept {
  const bool is_data = !file.is_directory() && (file.record().st_mode & ANY_EXECUTE) == 0;
  return !is_data || (wanted & EXECUTE) == 0;
}

/// The three right bits that the record holds for these ids.
unsigned granted_bits(const EffectiveIds& ids, const struct ::stat& record) noexcept {
  if (ids.user == record.st_uid) return record.st_mode >> 6;
  if (ids.group == record.st_gid) return record.st_mode >> 3;
  return record.st_mode;
}

}  // namespace

File::File(Path path) : path_(std::move(path)) { stat(); }

bool File::is_same_object(const struct ::stat& other) const noexcept {
  return stat_.st_dev == other.st_dev && stat_.st_ino == other.st_ino;
}

void File::stat() {
  struct ::stat fresh {};
  if (::lstat(path_.c_str(), &fresh) == -1) {
    const int error = errno;  // taken first: building the message may overwrite it
    throw Exception(error, "Path '" + path_.text() + "' stat failed.");
  }
  stat_ = fresh;
}

void File::mkdir() const {
  if (::mkdir(path_.c_str(), stat_.st_mode & ~static_cast<mode_t>(S_IFMT)) == -1) {
    const int error = errno;
    throw Exception(error, "Mkdir '" + path_.text() + "' failed.");
  }
}

int File::rmdir() const noexcept {
  const int result = ::rmdir(path_.c_str());
  if (result == -1) {
    const int error = errno;
    diagnostics::line(1, "Failed to rmdir '%s' (%s)", path_.c_str(), std::strerror(error));
    errno = error;
  }
  return result;
}

void File::unlink() const noexcept {
  if (::unlink(path_.c_str()) == 0) return;
  const int error = errno;
  // A link may live in the path manager instead of on disk, where unlink does not see it.
  if (is_symbolic_link() && platform::pathmgr_unlink(path_.c_str()) == 0) return;
  diagnostics::line(1, "Failed to unlink '%s' (%s)", path_.c_str(), std::strerror(error));
}

bool File::allows(unsigned wanted, const EffectiveIds& ids) const noexcept {
  if (wanted > ALL_RIGHTS) return false;
  if (ids.user == SUPERUSER) return superuser_allows(*this, wanted);
  return (granted_bits(ids, stat_) & wanted) == wanted;
}

bool exists(const Path& path) noexcept {
  struct ::stat record {};
  return ::lstat(path.c_str(), &record) == 0;
}

void rename(const Path& from, const Path& to) {
  if (::rename(from.c_str(), to.c_str()) == -1) {
    const int error = errno;
    throw Exception(error, "Rename '" + from.text() + "' to '" + to.text() + "' failed");
  }
}

std::uint64_t total_size(std::span<const File> files) noexcept {
  std::uint64_t bytes = 0;
  for (const File& file : files) bytes += static_cast<std::uint64_t>(file.record().st_size);
  return bytes;
}

}  // namespace fs
