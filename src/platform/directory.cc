#include "platform/directory.h"

namespace platform {

int dircntl(::DIR* /*directory*/, int /*command*/, int /*flags*/) noexcept { return 0; }

}  // namespace platform
