#pragma once

namespace platform {

/// Writes out what every C stream still holds in its buffer.
/// @return 0, or EOF with errno set when a stream could not be written.
int flushall() noexcept;

}  // namespace platform
