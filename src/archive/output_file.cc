#include "archive/output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "archive/error.h"

namespace harbix {
namespace {

constexpr std::size_t GATHERED_CAPACITY = std::size_t{128} << 10;
constexpr mode_t CREATION_MODE = 0666;

int open_output(const std::string& name) {
  if (name.empty()) return ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  return ::open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, CREATION_MODE);
}

}  // namespace

OutputFile::OutputFile(const std::string& name) : file_(open_output(name)) {
  if (!file_ || ::fstat(file_.get(), &record_) == -1) {
    throw ArchiveError("Failed to open '" + name + "': " + std::strerror(errno));
  }
}

int OutputFile::write(std::span<const std::byte> data) {
  size_ += static_cast<std::int64_t>(data.size());
  while (!data.empty() && error_ == 0) {
    const std::span<const std::byte> part =
        data.first(std::min(data.size(), GATHERED_CAPACITY - gathered_.size()));
    data = data.subspan(part.size());
    if (part.size() == GATHERED_CAPACITY) {
      send(part);
      continue;
    }
    gathered_.insert(gathered_.end(), part.begin(), part.end());
    if (gathered_.size() == GATHERED_CAPACITY) flush();
  }
  return error_;
}

int OutputFile::close() {
  flush();
  // Some file systems report a failed write only here.
  const int close_error = file_.close();
  if (error_ == 0) error_ = close_error;
  return error_;
}

bool OutputFile::is_described_by(const struct ::stat& record) const noexcept {
  return record_.st_dev == record.st_dev && record_.st_ino == record.st_ino;
}

void OutputFile::flush() {
  send(gathered_);
  gathered_.clear();
}

void OutputFile::send(std::span<const std::byte> data) {
  while (!data.empty() && error_ == 0) {
    const ssize_t written = ::write(file_.get(), data.data(), data.size());
    if (written >= 0) {
      data = data.subspan(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      error_ = errno;
    }
  }
}

}  // namespace harbix
