#include "pps/server/command_line.h"

#include <charconv>
#include <ostream>
#include <string_view>

namespace pps::server {

namespace {

std::optional<int> parse_descriptor(std::string_view text) {
  int number = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || number < 0) return std::nullopt;
  return number;
}

std::optional<CommandLine> parse(std::span<char* const> arguments) {
  CommandLine result;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const std::string_view argument = arguments[i];
    const bool has_value = i + 1 < arguments.size();
    if (argument == "--store" && has_value) {
      result.store = arguments[++i];
    } else if (argument == "--passing" && has_value) {
      result.passing = arguments[++i];
    } else if (argument == "--ready-fd" && has_value) {
      result.ready_fd = parse_descriptor(arguments[++i]);
      if (!result.ready_fd) return std::nullopt;
    } else if (!argument.empty() && argument.front() != '-' && result.mount_point.empty()) {
      result.mount_point = argument;
    } else {
      return std::nullopt;
    }
  }
  if (result.mount_point.empty()) return std::nullopt;
  return result;
}

}  // namespace

std::optional<CommandLine> parse_command_line(std::span<char* const> arguments, std::ostream& errors) {
  auto result = parse(arguments);
  if (!result) errors << "usage: harbix-pps [--store DIR] [--passing PATH] [--ready-fd N] MOUNTPOINT\n";
  return result;
}

}  // namespace pps::server
