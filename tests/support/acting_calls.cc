// A library to preload (LD_PRELOAD) into a program that is tested as it ships: runs a shell command, once, at
// one moment of the program's work, so that what another program could do by luck between two calls of this
// one happens every time.
//   HARBIX_ACT_AT       listed: an entry has been read from a folder, nothing was done with it yet
//                       closed: a folder has been listed to its end
//                       open:   an object is about to be opened, whether it is to be made or not
//                       opened: open(2) has just returned
//   HARBIX_ACT_PATH     what the object's absolute path must end with
//   HARBIX_ACT_NTH      which of these moments, from 1
//   HARBIX_ACT_COMMAND  for /bin/sh, which root runs without this library, whoever the program is just then
// Moments are counted in each process for itself; without the variables nothing happens. Whether the command
// ran shows in what it did.

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

std::string_view setting(const char* variable) {
  const char* text = std::getenv(variable);
  return text == nullptr ? std::string_view() : text;
}

struct Plan {
  std::string_view moment = setting("HARBIX_ACT_AT");
  std::string_view path = setting("HARBIX_ACT_PATH");
  long nth = std::strtol(setting("HARBIX_ACT_NTH").data(), nullptr, 10);
  long seen = 0;
};

Plan& plan() {
  static Plan one;
  return one;
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

void run_command() {
  const ::pid_t child = ::fork();
  if (child == 0) {
    ::unsetenv("LD_PRELOAD");
    // The real and the saved user are still root.
    if (::setresuid(0, 0, 0) == -1 || ::setresgid(0, 0, 0) == -1) ::_exit(EXIT_FAILURE);
    ::execl("/bin/sh", "sh", "-c", std::getenv("HARBIX_ACT_COMMAND"), nullptr);
    ::_exit(EXIT_FAILURE);
  }
  while (child != -1 && ::waitpid(child, nullptr, 0) == -1 && errno == EINTR) continue;
}

/// Comes to a moment; `path` tells the path of its object, and is asked only where the plan wants it.
template <typename Path>
void come_to(std::string_view moment, const Path& path) {
  if (plan().moment != moment || plan().seen == plan().nth) return;
  const int error = errno;
  if (std::string(path()).ends_with(plan().path) && ++plan().seen == plan().nth) run_command();
  errno = error;
}

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

bool takes_mode(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

int open_through(const char* name, const char* path, int flags, mode_t mode) {
  come_to("open", [&] { return path_of(AT_FDCWD, path); });
  const int descriptor = next<int(const char*, int, ...)>(name)(path, flags, mode);
  come_to("opened", [&] { return path_of(AT_FDCWD, path); });
  return descriptor;
}

int openat_through(const char* name, int directory, const char* path, int flags, mode_t mode) {
  come_to("open", [&] { return path_of(directory, path); });
  return next<int(int, const char*, int, ...)>(name)(directory, path, flags, mode);
}

template <typename Entry>
Entry* read_through(const char* name, ::DIR* directory) {
  Entry* const entry = next<Entry*(::DIR*)>(name)(directory);
  if (entry != nullptr) come_to("listed", [&] { return path_of(::dirfd(directory), entry->d_name); });
  return entry;
}

}  // namespace

// Each function takes the place of the C library's whose name follows it; a program may have been built with
// either name of a call.
extern "C" {
int acting_open(const char* path, int flags, ...) __asm__("open");
int acting_open64(const char* path, int flags, ...) __asm__("open64");
int acting_openat(int directory, const char* path, int flags, ...) __asm__("openat");
int acting_openat64(int directory, const char* path, int flags, ...) __asm__("openat64");
long acting_syscall(long number, ...) __asm__("syscall");
::dirent* acting_readdir(::DIR* directory) __asm__("readdir");
::dirent64* acting_readdir64(::DIR* directory) __asm__("readdir64");
int acting_closedir(::DIR* directory) __asm__("closedir");
}

int acting_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = takes_mode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return open_through("open", path, flags, mode);
}

int acting_open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = takes_mode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return open_through("open64", path, flags, mode);
}

int acting_openat(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = takes_mode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return openat_through("openat", directory, path, flags, mode);
}

int acting_openat64(int directory, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = takes_mode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return openat_through("openat64", directory, path, flags, mode);
}

long acting_syscall(long number, ...) {
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
  }
  return next<long(long, ...)>("syscall")(number, words[0], words[1], words[2], words[3], words[4], words[5]);
}

::dirent* acting_readdir(::DIR* directory) { return read_through<::dirent>("readdir", directory); }

::dirent64* acting_readdir64(::DIR* directory) { return read_through<::dirent64>("readdir64", directory); }

int acting_closedir(::DIR* directory) {
  come_to("closed", [&] { return path_of(::dirfd(directory)); });
  return next<int(::DIR*)>("closedir")(directory);
}
