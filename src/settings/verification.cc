#include "settings/verification.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "fs/containment.h"
#include "fs/file.h"
#include "settings/path_list.h"
#include "settings/script_lists.h"

namespace harbix {
namespace {

/// Whether something that is not in the list counts as a setting all the same.
bool is_acceptable_unlisted(const AllowedSettings& allowed, const fs::Path& candidate,
                            const StandsInTheWay& in_the_way) {
  if (is_pps_path(candidate)) return false;
  const bool is_whitelisted =
      begins_with_any(candidate, allowed.whitelist) && !is_blacklisted(candidate, allowed.blacklist);
  if (!is_whitelisted && !candidate.text().starts_with(places::WALLPAPER)) return false;
  return !in_the_way(candidate);
}

/// Whether the first occurrence of `ending` is the end of the text. In 32 bits, where a search that finds
/// nothing and a text that is one character too short give the same number: a text of two characters "ends"
/// in "/..", and one of a single character in "/.".
bool first_stands_at_end(const std::string& text, const std::string& ending) {
  return static_cast<std::uint32_t>(text.find(ending)) ==
         static_cast<std::uint32_t>(text.size() - ending.size());
}

bool contains(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

}  // namespace

bool has_tricks(const std::string& text) {
  return text.starts_with("./") || text.starts_with("../") || first_stands_at_end(text, "/..") ||
         first_stands_at_end(text, "/.") || contains(text, "/./") || contains(text, "/../") ||
         contains(text, "//");
}

AllowedSettings allowed_settings(Completeness& completeness) {
  AllowedSettings allowed;
  allowed.paths = settings_path_list(completeness);
  std::ranges::sort(allowed.paths);
  allowed.whitelist = settings_script_list(ScriptList::WHITELIST);
  allowed.blacklist = settings_script_list(ScriptList::BLACKLIST);
  return allowed;
}

bool exists_as_folder_or_link(const fs::Path& path) {
  if (!fs::exists(path)) return false;
  const fs::File object(path);
  return object.is_directory() || object.is_symbolic_link();
}

std::optional<Refusal> refusal_of_path(const AllowedSettings& allowed, const fs::Path& candidate,
                                       const StandsInTheWay& in_the_way) {
  const bool is_listed = std::ranges::binary_search(allowed.paths, candidate);
  if (!is_listed && !is_acceptable_unlisted(allowed, candidate, in_the_way)) return Refusal::NO_SETTING;
  return has_tricks(candidate.text()) ? std::optional(Refusal::TRICKS) : std::nullopt;
}

std::optional<Refusal> refusal_of(fs::Folder& root, const AllowedSettings& allowed, const EntryView& entry,
                                  const fs::Path& target, const StandsInTheWay& in_the_way) {
  if (!entry.is_restorable()) return Refusal::KIND;
  const std::optional<std::string_view> link_target = entry.link_target();
  if (link_target && !fs::leads_inside(root, target, *link_target, target.dirname()))
    return Refusal::LINK_LEADS_OUT;
  return refusal_of_path(allowed, target, in_the_way);
}

}  // namespace harbix
