#include "app/home_screen_programs.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "base/file_descriptor.h"
#include "base/log.h"
#include "platform/process.h"

namespace harbix {
namespace {

constexpr char SLAY[] = "/base/bin/slay";
constexpr char SHELL[] = "/base/bin/sh";
constexpr char STARTUP[] = "/base/scripts/startup.sh";

/// Sends to standard error what programs print, until the end of the scope.
class OutputToErrors {
 public:
  OutputToErrors() : saved_(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)) {
    std::cout.flush();
    // Without a standard error, or an output to go back to, there is nothing to be kept apart.
    if (saved_) static_cast<void>(::dup2(STDERR_FILENO, STDOUT_FILENO));
  }
  ~OutputToErrors() {
    if (saved_) static_cast<void>(::dup2(saved_.get(), STDOUT_FILENO));
  }
  OutputToErrors(const OutputToErrors&) = delete;
  OutputToErrors& operator=(const OutputToErrors&) = delete;
  OutputToErrors(OutputToErrors&&) = delete;
  OutputToErrors& operator=(OutputToErrors&&) = delete;

 private:
  base::FileDescriptor saved_;
};

}  // namespace

void stop_home_screen() {
  const OutputToErrors redirection;
  if (platform::spawnl(platform::P_WAIT, SLAY, {SLAY, "-f", "navigator"}) == -1) {
    const int error = errno;
    diagnostics::line(1, "Could not kill navigator");
    std::cerr << "Error slaying navigator " << std::strerror(error) << '\n';
  }
  if (platform::spawnl(platform::P_WAIT, SHELL, {SHELL, STARTUP, "launcher", "stop"}) == -1) {
    const int error = errno;
    diagnostics::line(1, "Could not stop launcher");
    std::cerr << "Error executing " << SHELL << " launcher stop ('" << std::strerror(error) << "')\n";
  }
}

}  // namespace harbix
