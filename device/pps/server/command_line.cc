#include "device/pps/server/command_line.h"

#include <array>
#include <ostream>
#include <vector>

#include "device/option_reader.h"

namespace pps::server {

namespace {

CommandLine parse(std::span<char* const> arguments) {
  CommandLine result;
  const std::array options = {
      device::Option{.name = "store", .has_value = true, .take = [&](const auto& v) { result.store = v; }},
      device::Option{
          .name = "passing", .has_value = true, .take = [&](const auto& v) { result.passing = v; }},
      device::Option{
          .name = "hanging", .has_value = true, .take = [&](const auto& v) { result.hanging.push_back(v); }},
      device::Option{.name = "ready-fd",
                     .has_value = true,
                     .take = [&](const auto& v) { result.ready_fd = device::parse_descriptor(v); }},
  };
  const std::vector<std::string> operands =
      device::read_options(options, {arguments.begin() + 1, arguments.end()});
  if (operands.empty()) throw device::WrongOption("no mount point given");
  if (operands.size() > 1) throw device::WrongOption("more than one mount point given");
  result.mount_point = operands.front();
  if (result.mount_point.empty()) throw device::WrongOption("the mount point's name is empty");
  return result;
}

}  // namespace

std::optional<CommandLine> parse_command_line(std::span<char* const> arguments, std::ostream& errors) {
  try {
    return parse(arguments);
  } catch (const device::WrongOption& problem) {
    errors << "harbix-pps: " << problem.what()
           << "; usage: harbix-pps [--store DIR] [--passing PATH] [--hanging PATH]... [--ready-fd N] "
              "MOUNTPOINT\n";
    return std::nullopt;
  }
}

}  // namespace pps::server
