// A library to preload (LD_PRELOAD) into a program that is tested as it ships: makes one call of one function
// fail.
//   HARBIX_FAIL_CALL   open, openat, openat2, read, write, pwrite, close, lstat, fstatat, unlinkat, renameat,
//                      mkdirat, symlinkat, fchownat, fchmod, readdir, popen, setresuid or setresgid
//   HARBIX_FAIL_NTH    which call of it, from 1
//   HARBIX_FAIL_ERRNO  the error number
// Calls are counted in each process for itself, from its start on; without the variables nothing fails. What
// the program does through other calls (readv, statx, ...) and what the C library does inside of itself is
// not seen, but for openat2, which has no function of its own and is seen in syscall. The object of a close
// that is made to fail is closed all the same, as the system does.

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Plan {
  const char* call = std::getenv("HARBIX_FAIL_CALL");
  long nth = number("HARBIX_FAIL_NTH");
  int error = static_cast<int>(number("HARBIX_FAIL_ERRNO"));
  long seen = 0;

  static long number(const char* variable) {
    const char* text = std::getenv(variable);
    return text == nullptr ? 0 : std::strtol(text, nullptr, 10);
  }
};

/// Counts one call; true, with errno set, when it is the one that fails.
bool fails(const char* call) {
  static Plan plan;
  if (plan.call == nullptr || std::strcmp(plan.call, call) != 0 || ++plan.seen != plan.nth) return false;
  errno = plan.error;
  return true;
}

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

bool takes_mode(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

int open_through(const char* name, const char* path, int flags, mode_t mode) {
  if (fails("open")) return -1;
  return next<int(const char*, int, ...)>(name)(path, flags, mode);
}

int openat_through(const char* name, int directory, const char* path, int flags, mode_t mode) {
  if (fails("openat")) return -1;
  return next<int(int, const char*, int, ...)>(name)(directory, path, flags, mode);
}

}  // namespace

// Each function takes the place of the C library's whose name follows it; a program may have been built with
// either name of a call.
extern "C" {
int failing_open(const char* path, int flags, ...) __asm__("open");
int failing_open64(const char* path, int flags, ...) __asm__("open64");
int failing_openat(int directory, const char* path, int flags, ...) __asm__("openat");
int failing_openat64(int directory, const char* path, int flags, ...) __asm__("openat64");
ssize_t failing_read(int descriptor, void* buffer, std::size_t size) __asm__("read");
ssize_t failing_write(int descriptor, const void* buffer, std::size_t size) __asm__("write");
int failing_close(int descriptor) __asm__("close");
int failing_lstat(const char* path, void* record) __asm__("lstat");
int failing_lstat64(const char* path, void* record) __asm__("lstat64");
int failing_fstatat(int directory, const char* path, void* record, int flags) __asm__("fstatat");
int failing_fstatat64(int directory, const char* path, void* record, int flags) __asm__("fstatat64");
ssize_t failing_pwrite(int descriptor, const void* buffer, std::size_t size, off_t offset) __asm__("pwrite");
ssize_t failing_pwrite64(int descriptor, const void* buffer, std::size_t size,
                         off_t offset) __asm__("pwrite64");
int failing_unlinkat(int directory, const char* path, int flags) __asm__("unlinkat");
int failing_renameat(int from_directory, const char* from, int to_directory,
                     const char* to) __asm__("renameat");
int failing_mkdirat(int directory, const char* path, mode_t mode) __asm__("mkdirat");
int failing_symlinkat(const char* target, int directory, const char* path) __asm__("symlinkat");
int failing_fchownat(int directory, const char* path, uid_t user, gid_t group, int flags) __asm__("fchownat");
int failing_fchmod(int descriptor, mode_t mode) __asm__("fchmod");
::dirent* failing_readdir(::DIR* directory) __asm__("readdir");
::dirent64* failing_readdir64(::DIR* directory) __asm__("readdir64");
std::FILE* failing_popen(const char* command, const char* type) __asm__("popen");
int failing_setresuid(uid_t real, uid_t effective, uid_t saved) __asm__("setresuid");
int failing_setresgid(gid_t real, gid_t effective, gid_t saved) __asm__("setresgid");
long failing_syscall(long number, ...) __asm__("syscall");
}

int failing_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = takes_mode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return open_through("open", path, flags, mode);
}

int failing_open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = takes_mode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return open_through("open64", path, flags, mode);
}

int failing_openat(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = takes_mode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return openat_through("openat", directory, path, flags, mode);
}

int failing_openat64(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = takes_mode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return openat_through("openat64", directory, path, flags, mode);
}

ssize_t failing_read(int descriptor, void* buffer, std::size_t size) {
  if (fails("read")) return -1;
  return next<ssize_t(int, void*, std::size_t)>("read")(descriptor, buffer, size);
}

ssize_t failing_write(int descriptor, const void* buffer, std::size_t size) {
  if (fails("write")) return -1;
  return next<ssize_t(int, const void*, std::size_t)>("write")(descriptor, buffer, size);
}

int failing_close(int descriptor) {
  const bool failing = fails("close");
  const int error = errno;
  const int result = next<int(int)>("close")(descriptor);
  if (!failing) return result;
  errno = error;
  return -1;
}

int failing_lstat(const char* path, void* record) {
  if (fails("lstat")) return -1;
  return next<int(const char*, void*)>("lstat")(path, record);
}

int failing_lstat64(const char* path, void* record) {
  if (fails("lstat")) return -1;
  return next<int(const char*, void*)>("lstat64")(path, record);
}

int failing_fstatat(int directory, const char* path, void* record, int flags) {
  if (fails("fstatat")) return -1;
  return next<int(int, const char*, void*, int)>("fstatat")(directory, path, record, flags);
}

int failing_fstatat64(int directory, const char* path, void* record, int flags) {
  if (fails("fstatat")) return -1;
  return next<int(int, const char*, void*, int)>("fstatat64")(directory, path, record, flags);
}

ssize_t failing_pwrite(int descriptor, const void* buffer, std::size_t size, off_t offset) {
  if (fails("pwrite")) return -1;
  return next<ssize_t(int, const void*, std::size_t, off_t)>("pwrite")(descriptor, buffer, size, offset);
}

ssize_t failing_pwrite64(int descriptor, const void* buffer, std::size_t size, off_t offset) {
  if (fails("pwrite")) return -1;
  return next<ssize_t(int, const void*, std::size_t, off_t)>("pwrite64")(descriptor, buffer, size, offset);
}

int failing_unlinkat(int directory, const char* path, int flags) {
  if (fails("unlinkat")) return -1;
  return next<int(int, const char*, int)>("unlinkat")(directory, path, flags);
}

int failing_renameat(int from_directory, const char* from, int to_directory, const char* to) {
  if (fails("renameat")) return -1;
  return next<int(int, const char*, int, const char*)>("renameat")(from_directory, from, to_directory, to);
}

int failing_mkdirat(int directory, const char* path, mode_t mode) {
  if (fails("mkdirat")) return -1;
  return next<int(int, const char*, mode_t)>("mkdirat")(directory, path, mode);
}

int failing_symlinkat(const char* target, int directory, const char* path) {
  if (fails("symlinkat")) return -1;
  return next<int(const char*, int, const char*)>("symlinkat")(target, directory, path);
}

int failing_fchownat(int directory, const char* path, uid_t user, gid_t group, int flags) {
  if (fails("fchownat")) return -1;
  return next<int(int, const char*, uid_t, gid_t, int)>("fchownat")(directory, path, user, group, flags);
}

int failing_fchmod(int descriptor, mode_t mode) {
  if (fails("fchmod")) return -1;
  return next<int(int, mode_t)>("fchmod")(descriptor, mode);
}

::dirent* failing_readdir(::DIR* directory) {
  if (fails("readdir")) return nullptr;
  return next<::dirent*(::DIR*)>("readdir")(directory);
}

::dirent64* failing_readdir64(::DIR* directory) {
  if (fails("readdir")) return nullptr;
  return next<::dirent64*(::DIR*)>("readdir64")(directory);
}

std::FILE* failing_popen(const char* command, const char* type) {
  if (fails("popen")) return nullptr;
  return next<std::FILE*(const char*, const char*)>("popen")(command, type);
}

int failing_setresuid(uid_t real, uid_t effective, uid_t saved) {
  if (fails("setresuid")) return -1;
  return next<int(uid_t, uid_t, uid_t)>("setresuid")(real, effective, saved);
}

int failing_setresgid(gid_t real, gid_t effective, gid_t saved) {
  if (fails("setresgid")) return -1;
  return next<int(gid_t, gid_t, gid_t)>("setresgid")(real, effective, saved);
}

long failing_syscall(long number, ...) {
  if (number == SYS_openat2 && fails("openat2")) return -1;
  // Every call takes at most six, and the kernel looks only at those that it knows.
  std::array<long, 6> words{};
  va_list arguments;
  va_start(arguments, number);
  for (long& word : words) word = va_arg(arguments, long);
  va_end(arguments);
  return next<long(long, ...)>("syscall")(number, words[0], words[1], words[2], words[3], words[4], words[5]);
}
