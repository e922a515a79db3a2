// Makes each of the calls that failing_calls can make fail, three times, and prints how it went: a line a
// call, "CALL: 0 0 0" with the error number in place of the 0 that failed.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

namespace {

template <typename Call>
void probe(const char* name, const Call& call) {
  std::array<int, 3> errors{};
  for (int& error : errors) {
    errno = 0;
    error = call() == -1 ? errno : 0;
  }
  std::printf("%s: %d %d %d\n", name, errors[0], errors[1], errors[2]);
}

}  // namespace

int main() {
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  std::array<char, 1> byte{};
  struct ::stat record {};
  // Each on its own, so that descriptors of one probe are not those of the next.
  probe("openat", [] { return ::openat(AT_FDCWD, "/dev/null", O_RDONLY | O_CLOEXEC); });
  probe("read", [&] { return ::read(null, byte.data(), 1); });
  probe("write", [&] { return ::write(null, "x", 1); });
  probe("lstat", [&] { return ::lstat("/", &record); });
  probe("fstatat", [&] { return ::fstatat(AT_FDCWD, "/", &record, AT_SYMLINK_NOFOLLOW); });
  probe("close", [] { return ::close(::openat(AT_FDCWD, "/dev/null", O_RDONLY | O_CLOEXEC)); });
  probe("open", [] { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); });
  return std::fflush(stdout);
}
