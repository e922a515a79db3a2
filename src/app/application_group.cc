#include "app/application_group.h"

#include <charconv>
#include <limits>
#include <stdexcept>
#include <system_error>

#include "base/domains.h"

namespace harbix {
namespace {

constexpr uid_t USERS_PER_GROUP = 10000;
// The last id of all stands for "unchanged" in the calls that set owners.
constexpr gid_t LAST_GROUP =
    (std::numeric_limits<uid_t>::max() - 1 - domains::USER_ACCOUNT) / USERS_PER_GROUP;

}  // namespace

gid_t parse_application_group(const std::string& text) {
  gid_t group = 0;
  const char* const end = text.data() + text.size();
  const auto [parsed_end, error] = std::from_chars(text.data(), end, group);
  if (error != std::errc() || parsed_end != end || group > LAST_GROUP) {
    throw std::runtime_error("'" + text + "' is not a group id");
  }
  return group;
}

uid_t data_owner(gid_t group) noexcept { return group * USERS_PER_GROUP + domains::USER_ACCOUNT; }

}  // namespace harbix
