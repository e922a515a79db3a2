#include "archive/input_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "archive/error.h"

namespace harbix {
namespace {

constexpr std::size_t BLOCK_SIZE = std::size_t{256} << 10;

/// Takes standard input over: scripts that are run meanwhile read nothing there, instead of the archive.
int take_standard_input() {
  const int input = ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
  const base::FileDescriptor nothing(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  // Where that fails, a script that reads damages the archive, which is told.
  if (input != -1 && nothing) static_cast<void>(::dup2(nothing.get(), STDIN_FILENO));
  return input;
}

int open_input(const std::string& name) {
  return name.empty() ? take_standard_input() : ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
}

}  // namespace

InputFile::InputFile(const std::string& name) : file_(open_input(name)), block_(BLOCK_SIZE) {
  if (!file_ || ::fstat(file_.get(), &record_) == -1) {
    throw ArchiveError("Failed to open '" + name + "': " + std::strerror(errno));
  }
}

std::optional<std::span<const std::byte>> InputFile::read_block() {
  for (;;) {
    const ssize_t count = ::read(file_.get(), block_.data(), block_.size());
    if (count >= 0) {
      is_empty_ = count == 0 && !has_content_;
      has_content_ = has_content_ || count > 0;
      return std::span<const std::byte>(block_).first(static_cast<std::size_t>(count));
    }
    if (errno != EINTR) return std::nullopt;
  }
}

std::int64_t InputFile::skip(std::int64_t count) {
  if (!is_regular()) return 0;
  const std::int64_t before = seek(0, SEEK_CUR);
  if (before == -1) return 0;
  // Not past the end: a truncated archive must be found out by a read that comes up short.
  const std::int64_t possible = std::min<std::int64_t>(count, record_.st_size - before);
  if (possible <= 0 || seek(possible, SEEK_CUR) == -1) return 0;
  return possible;
}

std::int64_t InputFile::seek(std::int64_t offset, int whence) { return ::lseek(file_.get(), offset, whence); }

}  // namespace harbix
