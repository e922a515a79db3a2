#pragma once

#include <string>
#include <string_view>

namespace device {

/// One message of the system log as a line of a file: as it was received, its "<priority>" in front, with one
/// newline at its end dropped, each other control character written as '#' and three octal digits ("#012" for
/// a newline) and a newline added.
[[nodiscard]] std::string log_line(std::string_view message);

}  // namespace device
