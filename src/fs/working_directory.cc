#include "fs/working_directory.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "fs/exception.h"

namespace fs {
namespace {

constexpr std::size_t PATH_CAPACITY = 1025;

[[noreturn]] void throw_failed(const Path& path) {
  const int error = errno;
  throw Exception(error, "Failed to chdir to '" + path.text() + "'");
}

Path resolve(const Path& path, const Path& asked) {
  try {
    return path.realpath().strip_leading_dots();
  } catch (const Exception& failure) {
    errno = failure.error();
    throw_failed(asked);
  }
}

}  // namespace

Path current_directory() {
  std::array<char, PATH_CAPACITY> buffer{};
  return ::getcwd(buffer.data(), buffer.size()) == nullptr ? Path() : Path(buffer.data());
}

void change_directory(const Path& path) {
  // Resolved before the change: afterwards a relative path would mean something else.
  const Path wanted = resolve(path, path);
  const base::FileDescriptor before(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (::chdir(path.c_str()) == -1) throw_failed(path);
  if (resolve(Path::current(), path) == wanted) return;

  // A link was exchanged under our feet. Going back may fail as well, but the caller learns of one failure.
  if (before && ::fchdir(before.get()) == -1) throw_failed(path);
  errno = ENOTDIR;
  throw_failed(path);
}

void require_working_directory(const Path& wanted, const std::string& message) {
  if (current_directory() != wanted) throw Exception(message);
}

WorkingDirectory::WorkingDirectory(const Path& path) : saved_(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
  if (!saved_) throw_failed(path);
  change_directory(path);
}

WorkingDirectory::~WorkingDirectory() {
  // Where the process came from may be gone by now; there is no one left to act on that, and every piece of
  // work that depends on its directory checks it.
  if (::fchdir(saved_.get()) == -1) return;
}

}  // namespace fs
