#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace device {

/// The children of the device's first process, which calls this. Read anew each time: processes whose parents
/// ended become its children.
[[nodiscard]] std::vector<pid_t> child_processes();

/// All processes of the device, the first one included. Nothing when /proc cannot be read.
[[nodiscard]] std::vector<pid_t> all_processes();

/// The process ids in `text`, which is what /proc/PID/task/TID/children holds: "12 345 ".
[[nodiscard]] std::vector<pid_t> parse_process_ids(const std::string& text);

}  // namespace device
