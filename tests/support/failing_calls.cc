// A library to preload (LD_PRELOAD) into a program that is tested as it ships. It can do three things, as the
// environment asks.
//
// Make one call of one function fail:
//   HARBIX_FAIL_CALL   open, openat, openat2, read, write, pwrite, close, lstat, fstatat, unlinkat, renameat,
//                      renameat2, mkdirat, symlinkat, fchownat, fchmod, fsync, syncfs, readdir, popen,
//                      setresuid or setresgid
//   HARBIX_FAIL_NTH    which call of it, from 1; with a '+' behind it, all from that one on
//   HARBIX_FAIL_ERRNO  the error number
//   HARBIX_FAIL_PATH   for openat: what the absolute path must end with; other calls are not counted
// The object of a close that is made to fail is closed all the same, as the system does.
//
// Run a shell command, once, at one moment of the program's work, so that what another program could do by
// luck between two calls of this one happens every time:
//   HARBIX_ACT_AT       listed: an entry has been read from a folder, nothing was done with it yet
//                       closed: a folder has been listed to its end
//                       open:   an object is about to be opened, whether it is to be made or not
//                       opened: open(2) has just returned
//                       announced: the system was told that an object will be read
//                       renamed: renameat(2) has just given an object this path
//   HARBIX_ACT_PATH     what the object's absolute path must end with
//   HARBIX_ACT_NTH      which of these moments, from 1
//   HARBIX_ACT_COMMAND  for /bin/sh, which root runs without this library, also when the program is another
//                       user just then
// Whether the command ran shows in what it did.
//
// Let disks seem to be slow, with HARBIX_COLD: whenever the process asks, it has waited for one since it
// asked last, though everything is in memory.
//
// Calls and moments are counted in each process for itself, from its start on; without the variables nothing
// happens. What the program does through other calls (readv, statx, ...) and what the C library does inside
// of itself is not seen, but for openat2, which has no function of its own and is seen in syscall.

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

std::string_view setting(const char* variable) {
  const char* text = std::getenv(variable);
  return text == nullptr ? "" : text;
}

long number(const char* variable) { return std::strtol(setting(variable).data(), nullptr, 10); }

struct Failure {
  std::string_view call = setting("HARBIX_FAIL_CALL");
  long nth = number("HARBIX_FAIL_NTH");
  bool is_lasting = setting("HARBIX_FAIL_NTH").ends_with('+');
  int error = static_cast<int>(number("HARBIX_FAIL_ERRNO"));
  std::string_view path = setting("HARBIX_FAIL_PATH");
  long seen = 0;
};

struct Act {
  std::string_view moment = setting("HARBIX_ACT_AT");
  std::string_view path = setting("HARBIX_ACT_PATH");
  long nth = number("HARBIX_ACT_NTH");
  long seen = 0;
};

/// Counts one call; true, with errno set, when it is one that fails. `path` is that of its object, where that
/// can be asked for.
bool fails(std::string_view call, const std::string& path = "") {
  static Failure plan;
  if (plan.call != call || !path.ends_with(plan.path) || ++plan.seen < plan.nth) return false;
  if (plan.seen > plan.nth && !plan.is_lasting) return false;
  errno = plan.error;
  return true;
}

std::string link_target(const std::string& link) {
  std::array<char, PATH_MAX> text{};
  const ssize_t length = ::readlink(link.c_str(), text.data(), text.size());
  return length == -1 ? "" : std::string(text.data(), static_cast<std::size_t>(length));
}

std::string path_of(int folder) {
  return link_target(folder == AT_FDCWD ? "/proc/self/cwd" : "/proc/self/fd/" + std::to_string(folder));
}

std::string path_of(int folder, const char* name) {
  return name[0] == '/' ? name : path_of(folder) + "/" + name;
}

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

void run_command() {
  const ::pid_t child = ::fork();
  if (child == 0) {
    ::unsetenv("LD_PRELOAD");
    // The real and the saved user are still root.
    if (next<int(uid_t, uid_t, uid_t)>("setresuid")(0, 0, 0) == -1 ||
        next<int(gid_t, gid_t, gid_t)>("setresgid")(0, 0, 0) == -1) {
      ::_exit(EXIT_FAILURE);
    }
    ::execl("/bin/sh", "sh", "-c", std::getenv("HARBIX_ACT_COMMAND"), nullptr);
    ::_exit(EXIT_FAILURE);
  }
  while (child != -1 && ::waitpid(child, nullptr, 0) == -1 && errno == EINTR) continue;
}

Act& act() {
  static Act one;
  return one;
}

/// Comes to a moment; `path` gives the path of its object, and is asked only where the plan wants it.
template <typename Path>
void come_to(std::string_view moment, const Path& path) {
  Act& plan = act();
  if (plan.moment != moment || plan.seen == plan.nth) return;
  const int error = errno;
  if (std::string(path()).ends_with(plan.path) && ++plan.seen == plan.nth) run_command();
  errno = error;
}

bool takes_mode(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

int open_through(const char* name, const char* path, int flags, mode_t mode) {
  come_to("open", [&] { return path_of(AT_FDCWD, path); });
  if (fails("open")) return -1;
  const int descriptor = next<int(const char*, int, ...)>(name)(path, flags, mode);
  come_to("opened", [&] { return path_of(AT_FDCWD, path); });
  return descriptor;
}

int openat_through(const char* name, int directory, const char* path, int flags, mode_t mode) {
  come_to("open", [&] { return path_of(directory, path); });
  if (fails("openat", path_of(directory, path))) return -1;
  return next<int(int, const char*, int, ...)>(name)(directory, path, flags, mode);
}

template <typename Entry>
Entry* read_through(const char* name, ::DIR* directory) {
  if (fails("readdir")) return nullptr;
  Entry* const entry = next<Entry*(::DIR*)>(name)(directory);
  if (entry != nullptr) come_to("listed", [&] { return path_of(::dirfd(directory), entry->d_name); });
  return entry;
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
int failing_renameat2(int from_directory, const char* from, int to_directory, const char* to,
                      unsigned flags) __asm__("renameat2");
int failing_mkdirat(int directory, const char* path, mode_t mode) __asm__("mkdirat");
int failing_symlinkat(const char* target, int directory, const char* path) __asm__("symlinkat");
int failing_fchownat(int directory, const char* path, uid_t user, gid_t group, int flags) __asm__("fchownat");
int failing_fchmod(int descriptor, mode_t mode) __asm__("fchmod");
int failing_fsync(int descriptor) __asm__("fsync");
int failing_syncfs(int descriptor) __asm__("syncfs");
::dirent* failing_readdir(::DIR* directory) __asm__("readdir");
::dirent64* failing_readdir64(::DIR* directory) __asm__("readdir64");
std::FILE* failing_popen(const char* command, const char* type) __asm__("popen");
int failing_setresuid(uid_t real, uid_t effective, uid_t saved) __asm__("setresuid");
int failing_setresgid(gid_t real, gid_t effective, gid_t saved) __asm__("setresgid");
int failing_closedir(::DIR* directory) __asm__("closedir");
int failing_fadvise(int descriptor, off_t offset, off_t size, int advice) __asm__("posix_fadvise");
int failing_fadvise64(int descriptor, off_t offset, off_t size, int advice) __asm__("posix_fadvise64");
int failing_getrusage(int who, struct ::rusage* usage) __asm__("getrusage");
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
  const int result =
      next<int(int, const char*, int, const char*)>("renameat")(from_directory, from, to_directory, to);
  if (result == 0) come_to("renamed", [&] { return path_of(to_directory, to); });
  return result;
}

int failing_renameat2(int from_directory, const char* from, int to_directory, const char* to,
                      unsigned flags) {
  if (fails("renameat2")) return -1;
  return next<int(int, const char*, int, const char*, unsigned)>("renameat2")(from_directory, from,
                                                                              to_directory, to, flags);
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

int failing_fsync(int descriptor) {
  if (fails("fsync")) return -1;
  return next<int(int)>("fsync")(descriptor);
}

int failing_syncfs(int descriptor) {
  if (fails("syncfs")) return -1;
  return next<int(int)>("syncfs")(descriptor);
}

::dirent* failing_readdir(::DIR* directory) { return read_through<::dirent>("readdir", directory); }

::dirent64* failing_readdir64(::DIR* directory) { return read_through<::dirent64>("readdir64", directory); }

int failing_closedir(::DIR* directory) {
  come_to("closed", [&] { return path_of(::dirfd(directory)); });
  return next<int(::DIR*)>("closedir")(directory);
}

int failing_fadvise(int descriptor, off_t offset, off_t size, int advice) {
  const int error = next<int(int, off_t, off_t, int)>("posix_fadvise")(descriptor, offset, size, advice);
  come_to("announced", [&] { return path_of(descriptor); });
  return error;
}

int failing_fadvise64(int descriptor, off_t offset, off_t size, int advice) {
  return failing_fadvise(descriptor, offset, size, advice);
}

int failing_getrusage(int who, struct ::rusage* usage) {
  static long blocks = 0;
  const int result = next<int(int, struct ::rusage*)>("getrusage")(who, usage);
  if (!setting("HARBIX_COLD").empty()) usage->ru_inblock += ++blocks;
  return result;
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
  // Every call takes at most six, and the kernel looks only at those that it knows.
  std::array<long, 6> words{};
  va_list arguments;
  va_start(arguments, number);
  for (long& word : words) word = va_arg(arguments, long);
  va_end(arguments);
  if (number == SYS_openat2) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): all words of a call are handed on in one way
    const auto* const path = reinterpret_cast<const char*>(words[1]);
    come_to("open", [&] { return path_of(static_cast<int>(words[0]), path); });
    if (fails("openat2")) return -1;
  }
  return next<long(long, ...)>("syscall")(number, words[0], words[1], words[2], words[3], words[4], words[5]);
}
