#include "platform/streams.h"

#include <cstdio>

namespace platform {

int flushall() noexcept { return std::fflush(nullptr); }

}  // namespace platform
