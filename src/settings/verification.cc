#include "settings/verification.h"

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <string>

#include "fs/exception.h"
#include "fs/file.h"
#include "settings/path_list.h"
#include "settings/script_lists.h"

namespace harbix {
namespace {

bool exists_as_folder_or_link(const fs::Path& path) {
  if (!fs::exists(path)) return false;
  const fs::File object(path);
  return object.is_directory() || object.is_symbolic_link();
}

/// Whether something that is not in the list counts as a setting all the same.
bool is_acceptable_unlisted(const AllowedSettings& allowed, const fs::Path& candidate) {
  if (is_pps_path(candidate)) return false;
  const bool is_whitelisted =
      begins_with_any(candidate, allowed.whitelist) && !is_blacklisted(candidate, allowed.blacklist);
  if (!is_whitelisted && !candidate.text().starts_with(places::WALLPAPER)) return false;
  return !exists_as_folder_or_link(candidate);
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

bool verify_restore_path(const AllowedSettings& allowed, const fs::Path& candidate) {
  const bool is_listed = std::ranges::binary_search(allowed.paths, candidate);
  if (!is_listed && !is_acceptable_unlisted(allowed, candidate)) return false;
  if (!has_tricks(candidate.text())) return true;
  std::cerr << "Path " << candidate << " failed verification for restore\n";
  return false;
}

}  // namespace harbix
