#pragma once

namespace device {

/// Makes this process plain root: no other user's ids and no supplementary groups.
/// @throws Failure with EXIT_UNAVAILABLE when the caller is not root.
void become_root_alone();

}  // namespace device
