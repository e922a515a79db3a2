#include "archive/package_name.h"

#include <algorithm>
#include <array>

namespace harbix {
namespace {

constexpr char SEPARATOR = '/';
constexpr std::string_view APPLICATIONS = "/app";
constexpr std::string_view SETTINGS = "/settings";
constexpr std::array PARTS{APPLICATIONS, std::string_view("/dtm"), std::string_view("/media"), SETTINGS};
constexpr std::array<std::string_view, 3> APPLICATION_KINDS{"bin", "appdata", "pps"};

/// Takes the text before the next '/', and that '/', off the front of a name; all of it where there is none.
std::string_view take_component(std::string_view& name) {
  const std::size_t end = std::min(name.find(SEPARATOR), name.size());
  const std::string_view component = name.substr(0, end);
  name.remove_prefix(std::min(end + 1, name.size()));
  return component;
}

std::string_view without_root(std::string_view name) {
  if (name.starts_with(SEPARATOR)) return name.substr(1);
  while (name.starts_with("./")) name.remove_prefix(2);
  return name;
}

bool is_kind_of_application_package(std::string_view text) {
  return std::ranges::find(APPLICATION_KINDS, text) != APPLICATION_KINDS.end();
}

}  // namespace

std::string_view part_of(std::string_view name) {
  name = without_root(name);
  const std::string_view first = take_component(name);
  const auto* const found =
      std::ranges::find(PARTS, first, [](std::string_view part) { return part.substr(1); });
  return found == PARTS.end() ? std::string_view() : *found;
}

std::string rooted_name(std::string_view name) {
  if (part_of(name).empty()) return std::string(name);
  return std::string(1, SEPARATOR).append(without_root(name));
}

bool begins_package(std::string_view name) {
  if (!name.starts_with(SEPARATOR)) return false;
  const std::string_view part = part_of(name);
  if (part.empty()) return false;
  name.remove_prefix(std::min(part.size() + 1, name.size()));
  if (part != SETTINGS && take_component(name).empty()) return false;
  if (part == APPLICATIONS && !is_kind_of_application_package(take_component(name))) return false;
  return name == METADATA_NAME;
}

}  // namespace harbix
