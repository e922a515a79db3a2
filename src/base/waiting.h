#pragma once

namespace base {

// Callers may hand this program descriptors that do not block. A call that says so is made again when the
// descriptor is ready.

/// Waits until a descriptor can be read, after a call that failed with `error`.
/// @return whether the call is to be made again; false, with errno set, for any error but that one.
[[nodiscard]] bool wait_until_readable(int descriptor, int error);

/// As above, until it can be written.
[[nodiscard]] bool wait_until_writable(int descriptor, int error);

}  // namespace base
