#include "device/pps/open_name.h"

#include <cerrno>
#include <climits>

namespace pps {

OpenName split_open_name(std::string_view component) {
  const std::size_t mark = component.find('?');
  if (mark == std::string_view::npos) return {.name = component, .options = {}, .has_options = false};

  OpenName result{.name = component.substr(0, mark), .options = {}, .has_options = true};
  std::string_view rest = component.substr(mark + 1);
  while (!rest.empty()) {
    const std::string_view option = rest.substr(0, rest.find(','));
    rest.remove_prefix(option.size() == rest.size() ? rest.size() : option.size() + 1);
    if (option == "wait") result.options.wait = true;
    if (option == "delta") result.options.delta = true;
  }
  return result;
}

std::string_view live_name(std::string_view stored) { return stored.substr(0, stored.find('@')); }

int check_name(std::string_view name) {
  if (name.empty() || name == "." || name == "..") return EINVAL;
  // A NUL cannot arrive in a path; the others would not come back from the store or from a reader's first
  // line.
  if (name.find_first_of("?@\n/") != std::string_view::npos) return EINVAL;
  return name.size() > NAME_MAX ? ENAMETOOLONG : 0;
}

}  // namespace pps
