// Makes each of the calls that failing_calls can make fail, three times, and prints how it went: a line a
// call, "CALL: 0 0 0" with the error number in place of the 0 that failed.

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

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

/// The calls that make, move and change objects, in a folder of their own. What is prepared and removed
/// around them goes through calls that are not probed.
bool probe_calls_with_names() {
  std::array<char, 32> folder{"/tmp/failing-calls-XXXXXX"};
  if (::mkdtemp(folder.data()) == nullptr || ::chdir(folder.data()) == -1) return false;
  const int descriptor = ::memfd_create("object", MFD_CLOEXEC);
  probe("fchmod", [&] { return ::fchmod(descriptor, 0700); });
  const auto without = [](int result) {
    const int error = errno;
    if (::unlink("object") == -1) ::rmdir("object");  // whichever was made, if it was
    errno = error;
    return result;
  };
  probe("mkdirat", [&] { return without(::mkdirat(AT_FDCWD, "object", 0700)); });
  probe("symlinkat", [&] { return without(::symlinkat("target", AT_FDCWD, "object")); });
  if (::symlink("target", "object") == -1) return false;
  probe("renameat", [] { return ::renameat(AT_FDCWD, "object", AT_FDCWD, "object"); });
  probe("renameat2", [] { return ::renameat2(AT_FDCWD, "object", AT_FDCWD, "object", RENAME_EXCHANGE); });
  probe("fchownat",
        [] { return ::fchownat(AT_FDCWD, "object", ::getuid(), ::getgid(), AT_SYMLINK_NOFOLLOW); });
  probe("unlinkat", [] {
    const int result = ::unlinkat(AT_FDCWD, "object", 0);
    const int error = errno;
    if (result == 0 && ::symlink("target", "object") == -1) return -1;
    errno = error;
    return result;
  });
  without(0);
  return ::chdir("/") == 0 && ::rmdir(folder.data()) == 0;
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
  ::open_how how = {};
  how.flags = O_RDONLY | O_CLOEXEC;
  probe("openat2",
        [&] { return static_cast<int>(::syscall(SYS_openat2, AT_FDCWD, "/dev/null", &how, sizeof how)); });
  probe("pwrite", [&] { return static_cast<int>(::pwrite(null, "x", 1, 0)); });
  probe("syncfs", [&] { return ::syncfs(null); });
  if (!probe_calls_with_names()) return EXIT_FAILURE;
  probe("close", [] { return ::close(::openat(AT_FDCWD, "/dev/null", O_RDONLY | O_CLOEXEC)); });
  probe("open", [] { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); });
  return std::fflush(stdout);
}
