#include "driver/process.h"

#include <fcntl.h>
#include <grp.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <initializer_list>
#include <memory>
#include <new>

#include "base/domains.h"
#include "base/file_descriptor.h"
#include "base/places.h"
#include "base/report.h"
#include "fs/accounts.h"
#include "fs/exception.h"
#include "fs/working_directory.h"

namespace harbix {
namespace {

/// What reports of errors, and cleaning up, may take.
using Reserve = std::array<char, std::size_t{256} << 10>;
std::unique_ptr<Reserve> reserve;
std::terminate_handler usual_end = std::abort;

[[noreturn]] void end_without_memory() {
  constexpr int STATUS_EXCEPTION = 2;
  try {
    if (const std::exception_ptr error = std::current_exception()) std::rethrow_exception(error);
  } catch (const std::bad_alloc&) {
    report::error("Out of memory", "ERROR: ");
    ::_exit(STATUS_EXCEPTION);
  } catch (...) {
    usual_end();  // which reports the error
  }
  usual_end();
  std::abort();
}

}  // namespace

void let_writes_fail() {
  // A handler and not SIG_IGN: that would be inherited by the scripts that the program runs.
  struct ::sigaction action {};
  action.sa_handler = [](int) {};
  action.sa_flags = SA_RESTART;
  for (const int signal : {SIGPIPE, SIGXFSZ}) {
    // Fails only for signals that do not exist.
    static_cast<void>(::sigaction(signal, &action, nullptr));
  }
  // A caller that ignores it hands that on, and nothing that was started could be waited for.
  static_cast<void>(std::signal(SIGCHLD, SIG_DFL));
}

void survive_lack_of_memory() {
  reserve.reset(new (std::nothrow) Reserve);
  std::set_new_handler([] {
    reserve.reset();
    throw std::bad_alloc();
  });
  usual_end = std::set_terminate(end_without_memory);
}

void detach_standard_input() {
  const base::FileDescriptor nothing(::open(places::DEV_NULL, O_RDONLY | O_CLOEXEC));
  // Where that fails, a script that reads takes what the caller has there.
  if (nothing) static_cast<void>(::dup2(nothing.get(), STDIN_FILENO));
}

void occupy_closed_streams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    // Fails for closed descriptors only.
    if (::fcntl(stream, F_GETFD) != -1) continue;
    // The lowest number that is free. Known by its path alone, it can neither be read nor written; and the
    // root is there on every device.
    if (::open("/", O_PATH | O_CLOEXEC) == -1) {
      throw fs::Exception(errno, "Failed to occupy a closed standard stream");
    }
  }
}

void prepare_process() {
  fs::change_directory(places::ROOT);
  const std::array<gid_t, 2> groups{domains::USER_ACCOUNT, fs::group_id(domains::SYSTEM_GROUP)};
  // The system refuses this to all but the superuser. Others go on within the limits of their own groups.
  static_cast<void>(::setgroups(groups.size(), groups.data()));
}

void use_utf8_names() {
  // Otherwise the library refuses names beyond ASCII. Nothing else of the locale is changed.
  if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) std::setlocale(LC_CTYPE, "");
}

}  // namespace harbix
