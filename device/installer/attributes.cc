#include "device/installer/attributes.h"

#include <algorithm>

#include "device/pps/attribute_line.h"

namespace installer {

Attributes parse_attributes(std::string_view text) {
  Attributes attributes;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    const auto parsed = pps::parse_attribute_line(line);
    if (!parsed || parsed->kind != pps::AttributeLine::Kind::set) continue;
    attributes.insert_or_assign(std::string(parsed->name), std::string(parsed->value));
  }
  return attributes;
}

std::string value_of(const Attributes& attributes, std::string_view name) {
  const auto found = attributes.find(name);
  return found == attributes.end() ? "" : found->second;
}

}  // namespace installer
