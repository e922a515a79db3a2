#include "archive/output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "archive/error.h"
#include "base/waiting.h"

namespace harbix {
namespace {

// Larger ones fall out of the processor's memory between reading and writing.
constexpr std::size_t CAPACITY = std::size_t{256} << 10;
constexpr std::size_t SMALLEST_ROOM = CAPACITY / 4;
constexpr mode_t CREATION_MODE = 0666;

struct Freer {
  void operator()(char* text) const noexcept { std::free(text); }  // NOLINT: realpath(3) asks for that
};

/// The path of an object behind all links; empty when it cannot be told.
std::string real_path(const std::string& name) {
  const std::unique_ptr<char, Freer> path(::realpath(name.c_str(), nullptr));
  return path == nullptr ? "" : path.get();
}

/// The folder that holds the name of an open file, as far as the system knows it.
std::string folder_of(const std::string& name, const base::FileDescriptor& file) {
  std::string path = real_path(name.empty() ? "/proc/self/fd/" + std::to_string(file.get()) : name);
  path.erase(path.rfind('/') == std::string::npos ? 0 : path.rfind('/') + 1);
  return path;
}

}  // namespace

OutputFile::OutputFile(const std::string& name) : name_(name), gathered_(CAPACITY) {
  if (name.empty()) {
    file_ = base::FileDescriptor(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
  } else {
    file_ = base::FileDescriptor(::open(name.c_str(), O_WRONLY | O_CLOEXEC));
    if (!file_ && errno == ENOENT) {
      file_ = base::FileDescriptor(::open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, CREATION_MODE));
      if (file_) created_ = real_path(name);
    }
  }
  if (!file_ || ::fstat(file_.get(), &record_) == -1) {
    throw ArchiveError("Failed to open '" + name + "': " + std::strerror(errno));
  }
}

OutputFile::~OutputFile() {
  // Where that fails an empty file stays, which no restore takes for an archive.
  if (!is_begun_ && !created_.empty()) static_cast<void>(::unlink(created_.c_str()));
}

int OutputFile::write(std::span<const std::byte> data) {
  size_ += static_cast<std::int64_t>(data.size());
  while (!data.empty() && error_ == 0) {
    std::byte* const end = gathered_.data() + gathered_size_;
    const std::span<const std::byte> part = data.first(std::min(data.size(), CAPACITY - gathered_size_));
    data = data.subspan(part.size());
    // What was put into the room is there already.
    if (part.data() != end) std::memcpy(end, part.data(), part.size());
    gathered_size_ += part.size();
    if (gathered_size_ == CAPACITY) flush();
  }
  return error_;
}

std::span<std::byte> OutputFile::room(std::uint64_t wanted) {
  if (CAPACITY - gathered_size_ < std::min<std::uint64_t>(wanted, SMALLEST_ROOM)) flush();
  return std::span(gathered_).subspan(gathered_size_);
}

int OutputFile::close() {
  flush();
  if (error_ == 0) begin();
  if (error_ == 0) synchronize();
  // Some file systems report a failed write only here.
  const int close_error = file_.close();
  if (error_ == 0) error_ = close_error;
  return error_;
}

bool OutputFile::is_described_by(const struct ::stat& record) const noexcept {
  return record_.st_dev == record.st_dev && record_.st_ino == record.st_ino;
}

void OutputFile::flush() {
  send(std::span(gathered_).first(gathered_size_));
  gathered_size_ = 0;
}

void OutputFile::send(std::span<const std::byte> data) {
  if (!data.empty()) begin();
  while (!data.empty() && error_ == 0) {
    const ssize_t written = ::write(file_.get(), data.data(), data.size());
    if (written >= 0) {
      data = data.subspan(static_cast<std::size_t>(written));
    } else if (errno != EINTR && !base::wait_until_writable(file_.get(), errno)) {
      error_ = errno;
    }
  }
}

void OutputFile::begin() {
  if (is_begun_) return;
  is_begun_ = true;
  if (!name_.empty() && S_ISREG(record_.st_mode) && ::ftruncate(file_.get(), 0) == -1) error_ = errno;
}

void OutputFile::synchronize() {
  if (!S_ISREG(record_.st_mode)) return;
  if (::fsync(file_.get()) == -1) {
    error_ = errno;
    return;
  }
  const base::FileDescriptor folder(
      ::open(folder_of(name_, file_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // A folder that cannot be read, or waited for, was the caller's choice; the archive is there.
  if (folder && ::fsync(folder.get()) == -1 && errno == EIO) error_ = errno;
}

}  // namespace harbix
