#include "device/pps/attribute_line.h"

namespace pps {

namespace {

constexpr std::string_view NOT_PERSISTENT = "[n]";

bool is_attribute_name(std::string_view name) {
  return !name.empty() && name.find_first_of("-@[") != 0 && name.find(':') == std::string_view::npos;
}

}  // namespace

std::optional<AttributeLine> parse_attribute_line(std::string_view line) {
  AttributeLine result;
  if (line.empty() || line.front() == '@') return result;

  if (line.front() == '-') {
    result.kind = AttributeLine::Kind::remove;
    result.name = line.substr(1);
    if (!is_attribute_name(result.name)) return std::nullopt;
    return result;
  }

  result.kind = AttributeLine::Kind::set;
  if (line.substr(0, NOT_PERSISTENT.size()) == NOT_PERSISTENT) {
    result.persistent = false;
    line.remove_prefix(NOT_PERSISTENT.size());
  }
  const std::size_t first = line.find(':');
  if (first == std::string_view::npos) return std::nullopt;
  const std::size_t second = line.find(':', first + 1);
  if (second == std::string_view::npos) return std::nullopt;
  result.name = line.substr(0, first);
  result.encoding = line.substr(first + 1, second - first - 1);
  result.value = line.substr(second + 1);
  if (!is_attribute_name(result.name)) return std::nullopt;
  return result;
}

void append_attribute(std::string& text, const AttributeLine& line) {
  if (!line.persistent) text += NOT_PERSISTENT;
  text += line.name;
  text += ':';
  text += line.encoding;
  text += ':';
  text += line.value;
  text += '\n';
}

}  // namespace pps
