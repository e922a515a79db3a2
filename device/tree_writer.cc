#include "device/tree_writer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ctime>

#include "base/file_descriptor.h"
#include "device/content/random.h"
#include "device/failure.h"

namespace device {
namespace {

// The first second of 2014, and how long after it an item may have changed.
constexpr std::time_t EARLIEST_TIME = 1388534400;
constexpr std::uint64_t TIME_RANGE = std::uint64_t{365} * 24 * 60 * 60;

std::array<timespec, 2> times_of(std::string_view path) {
  const timespec time = {.tv_sec = EARLIEST_TIME + static_cast<std::time_t>(hash(path) % TIME_RANGE),
                         .tv_nsec = 0};
  return {time, time};
}

void set_times(const std::string& host, std::string_view path) {
  if (::utimensat(AT_FDCWD, host.c_str(), times_of(path).data(), AT_SYMLINK_NOFOLLOW) == -1) {
    throw system_failure(errno, "set the times of", host);
  }
}

/// The owner first: a change of owner takes set-id bits away.
void set_owner_and_mode(const std::string& host, Owner owner, mode_t mode) {
  if (::lchown(host.c_str(), owner.user, owner.group) == -1) {
    throw system_failure(errno, "set the owner of", host);
  }
  if (::chmod(host.c_str(), mode) == -1) throw system_failure(errno, "set the mode of", host);
}

base::FileDescriptor create(const std::string& host) {
  base::FileDescriptor file(::open(host.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file) throw system_failure(errno, "create", host);
  return file;
}

void write_all(int file, std::string_view content, const std::string& host) {
  while (!content.empty()) {
    const ssize_t written = ::write(file, content.data(), content.size());
    if (written == -1 && errno == EINTR) continue;
    if (written == -1) throw system_failure(errno, "write", host);
    content.remove_prefix(static_cast<std::size_t>(written));
  }
}

void close_written(base::FileDescriptor& file, const std::string& host) {
  if (const int error = file.close(); error != 0) throw system_failure(error, "write", host);
}

}  // namespace

void TreeWriter::folder(std::string_view path, Owner owner, mode_t mode) {
  const std::string host = host_path(path);
  if (::mkdir(host.c_str(), 0700) == -1) throw system_failure(errno, "create the folder", host);
  set_owner_and_mode(host, owner, mode);
  folders_.emplace_back(path);
}

void TreeWriter::file(std::string_view path, Owner owner, mode_t mode, std::string_view content) const {
  const std::string host = host_path(path);
  base::FileDescriptor file = create(host);
  write_all(file.get(), content, host);
  close_written(file, host);
  adopt_file(path, owner, mode);
}

void TreeWriter::sparse_file(std::string_view path, Owner owner, mode_t mode, std::uint64_t size) const {
  constexpr std::string_view HEAD = "head of a file with a hole\n";
  constexpr std::string_view TAIL = "tail of a file with a hole\n";
  const std::string host = host_path(path);
  base::FileDescriptor file = create(host);
  write_all(file.get(), HEAD, host);
  if (::lseek(file.get(), static_cast<off_t>(size - TAIL.size()), SEEK_SET) == -1) {
    throw system_failure(errno, "write", host);
  }
  write_all(file.get(), TAIL, host);
  close_written(file, host);
  adopt_file(path, owner, mode);
}

void TreeWriter::link(std::string_view path, Owner owner, std::string_view target) const {
  const std::string host = host_path(path);
  if (::symlink(std::string(target).c_str(), host.c_str()) == -1) {
    throw system_failure(errno, "create the link", host);
  }
  if (::lchown(host.c_str(), owner.user, owner.group) == -1) {
    throw system_failure(errno, "set the owner of", host);
  }
  set_times(host, path);
}

void TreeWriter::adopt_file(std::string_view path, Owner owner, mode_t mode) const {
  const std::string host = host_path(path);
  set_owner_and_mode(host, owner, mode);
  set_times(host, path);
}

void TreeWriter::finish() const {
  for (const std::string& path : folders_) set_times(host_path(path), path);
}

}  // namespace device
