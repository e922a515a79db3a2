#pragma once

#include <string>

namespace device {

/// Makes the content of a new device in the empty folder `root`: with `bare` accounts and empty folders only,
/// else sample content too. @throws Failure as TreeWriter does; what was made before stays.
void write_factory_state(const std::string& root, bool bare);

}  // namespace device
