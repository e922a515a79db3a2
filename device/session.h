#pragma once

#include <string>
#include <vector>

namespace device {

/// Gives this process what every COMMAND on the device starts with: the working directory, the file mode
/// creation mask, PATH, HOME and MANPATH. The device's root has to be this process's.
/// @throws Failure when the system refuses.
void set_up_session();

/// What is run where no COMMAND is given.
[[nodiscard]] std::vector<std::string> login_shell();

}  // namespace device
