#pragma once

#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace pps::server {

struct CommandLine {
  std::string mount_point;
  std::string store;                 ///< empty: keep nothing
  std::string passing;               ///< a directory that the store does not keep; empty for none
  std::vector<std::string> hanging;  ///< objects, relative to the mount, whose readers wait for ever
  std::optional<int> ready_fd;       ///< gets a newline, and is closed, when the mount is there
};

/// Shape: "harbix-pps [--store DIR] [--passing PATH] [--hanging PATH]... [--ready-fd N] MOUNTPOINT".
/// @return nothing, and a line on `errors`, when the arguments do not fit.
[[nodiscard]] std::optional<CommandLine> parse_command_line(std::span<char* const> arguments,
                                                            std::ostream& errors);

}  // namespace pps::server
