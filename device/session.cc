#include "device/session.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>

#include "device/failure.h"

namespace device {
namespace {

struct Variable {
  const char* name;
  const char* value;
};
constexpr std::array VARIABLES = {
    Variable{"PATH", "/opt/harbix/bin:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"},
    Variable{"HOME", "/root"},
    // The colon at the end stands for the usual places.
    Variable{"MANPATH", "/opt/harbix/share/man:"},
};

}  // namespace

void set_up_session() {
  if (::chdir("/") == -1) throw system_failure(errno, "enter", "/");
  ::umask(022);
  for (const Variable& variable : VARIABLES) {
    if (::setenv(variable.name, variable.value, 1) == -1) throw system_failure(errno, "set the environment");
  }
  // It names a folder of the host's, without which programs on the device could make no temporary file.
  if (::unsetenv("TMPDIR") == -1) throw system_failure(errno, "set the environment");
}

std::vector<std::string> login_shell() {
  constexpr const char* USUAL = "/bin/bash";
  return {::access(USUAL, X_OK) == 0 ? USUAL : "/bin/sh", "-l"};
}

}  // namespace device
