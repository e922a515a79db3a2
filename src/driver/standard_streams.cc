#include "driver/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "fs/exception.h"

namespace harbix {

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

}  // namespace harbix
