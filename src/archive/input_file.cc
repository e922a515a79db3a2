#include "archive/input_file.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "archive/error.h"
#include "base/waiting.h"

namespace harbix {
namespace {

constexpr std::size_t BLOCK_SIZE = std::size_t{256} << 10;

// Of a regular file at first: between two long skips there is often a header alone.
constexpr std::size_t FIRST_SIZE = std::size_t{16} << 10;

// Its pages are not touched before they are read into: a small archive takes a few of them.
std::unique_ptr<std::byte[]> make_block() { return std::make_unique_for_overwrite<std::byte[]>(BLOCK_SIZE); }

int open_input(const std::string& name) {
  return name.empty() ? ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                      : ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
}

[[noreturn]] void throw_unopened_input(const std::string& name) {
  throw ArchiveError("Failed to open '" + name + "': " + std::strerror(errno));
}

}  // namespace

InputFile::InputFile(const std::string& name)
    : file_(open_input(name)), block_(make_block()), next_size_(FIRST_SIZE) {
  if (!file_ || ::fstat(file_.get(), &record_) == -1) throw_unopened_input(name);
  if (is_regular() && (begin_ = ::lseek(file_.get(), 0, SEEK_CUR)) == -1) throw_unopened_input(name);
}

InputFile::InputFile(base::FileDescriptor file, std::int64_t begin)
    : file_(std::move(file)), block_(make_block()), next_size_(FIRST_SIZE), begin_(begin) {
  if (!file_ || ::fstat(file_.get(), &record_) == -1) throw_unopened_input("");
}

std::optional<InputFile> InputFile::again() const {
  if (!is_regular()) return std::nullopt;
  return InputFile(base::FileDescriptor(::fcntl(file_.get(), F_DUPFD_CLOEXEC, 0)), begin_);
}

std::optional<std::span<const std::byte>> InputFile::read_block() {
  if (watcher_) watcher_();
  for (;;) {
    const ssize_t count = is_regular() ? ::pread(file_.get(), block_.get(), next_size_, begin_ + position_)
                                       : ::read(file_.get(), block_.get(), BLOCK_SIZE);
    if (count >= 0) {
      next_size_ = std::min(next_size_ * 2, BLOCK_SIZE);
      is_empty_ = count == 0 && position_ == 0;
      position_ += count;
      return std::span<const std::byte>(block_.get(), static_cast<std::size_t>(count));
    }
    if (errno != EINTR && !base::wait_until_readable(file_.get(), errno)) return std::nullopt;
  }
}

std::int64_t InputFile::read_at(std::int64_t offset, std::span<char> buffer) const {
  std::size_t done = 0;
  while (done < buffer.size()) {
    const std::span<char> rest = buffer.subspan(done);
    const ssize_t count =
        ::pread(file_.get(), rest.data(), rest.size(), begin_ + offset + static_cast<std::int64_t>(done));
    if (count == -1 && errno == EINTR) continue;
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  return static_cast<std::int64_t>(done);
}

void InputFile::begin_at(std::int64_t offset) noexcept {
  begin_ += offset;
  position_ = 0;
}

std::int64_t InputFile::skip(std::int64_t count) {
  if (S_ISFIFO(record_.st_mode)) return skip_in_pipe(count);
  if (!is_regular()) return 0;
  // Not past the end: a truncated archive must be found out by a read that comes up short.
  const std::int64_t rest = std::max<std::int64_t>(record_.st_size - begin_ - position_, 0);
  const std::int64_t passed = std::min(std::max<std::int64_t>(count, 0), rest);
  if (passed >= static_cast<std::int64_t>(BLOCK_SIZE)) next_size_ = FIRST_SIZE;
  position_ += passed;
  return passed;
}

std::int64_t InputFile::skip_in_pipe(std::int64_t count) {
  // The pages of a pipe are dropped so without being copied.
  constexpr std::int64_t MOST_AT_ONCE = std::int64_t{1} << 20;
  if (!sink_) sink_ = base::FileDescriptor(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  std::int64_t passed = 0;
  while (sink_ && passed < count) {
    if (watcher_) watcher_();
    const auto most = static_cast<std::size_t>(std::min(count - passed, MOST_AT_ONCE));
    const ssize_t dropped = ::splice(file_.get(), nullptr, sink_.get(), nullptr, most, 0);
    if (dropped > 0) {
      passed += dropped;
    } else if (dropped == 0 || (errno != EINTR && !base::wait_until_readable(file_.get(), errno))) {
      break;  // what is wrong shows when the next block is read
    }
  }
  position_ += passed;
  return passed;
}

std::int64_t InputFile::seek(std::int64_t offset, int whence) {
  std::int64_t target = offset;
  if (whence == SEEK_CUR) target += position_;
  if (whence == SEEK_END) target += record_.st_size - begin_;
  if (target < 0) {
    errno = EINVAL;
    return -1;
  }
  return position_ = target;
}

void InputFile::drain() {
  // As much as a pipe holds: a writer without end is left alone.
  constexpr std::size_t LARGEST_PIPE = std::size_t{1} << 20;
  // A writer that finds room again needs a moment to fill it.
  constexpr int MOMENT = 20;
  for (std::size_t drained = 0; !is_regular() && drained < LARGEST_PIPE;) {
    ::pollfd waiting{.fd = file_.get(), .events = POLLIN, .revents = 0};
    if (::poll(&waiting, 1, drained == 0 ? 0 : MOMENT) < 1) return;
    const ssize_t count = ::read(file_.get(), block_.get(), BLOCK_SIZE);
    if (count < 1) return;
    drained += static_cast<std::size_t>(count);
  }
}

bool InputFile::has_changed() const noexcept {
  struct ::stat now {};
  // What cannot be asked again is taken for what it was.
  if (!is_regular() || ::fstat(file_.get(), &now) == -1) return false;
  return now.st_size != record_.st_size || now.st_mtim.tv_sec != record_.st_mtim.tv_sec ||
         now.st_mtim.tv_nsec != record_.st_mtim.tv_nsec;
}

bool InputFile::is_longer_than(std::int64_t count) {
  if (is_regular()) return record_.st_size - begin_ > count;
  while (position_ <= count) {
    const std::optional<std::span<const std::byte>> block = read_block();
    if (!block || block->empty()) return false;
  }
  return true;
}

}  // namespace harbix
