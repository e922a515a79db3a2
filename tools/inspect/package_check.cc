#include "inspect/package_check.h"

#include <algorithm>
#include <climits>

namespace harbix::inspect {
namespace {

/// Whether any component of a path fulfils a condition.
template <typename Condition>
bool has_component(std::string_view path, const Condition& condition) {
  while (!path.empty()) {
    const std::size_t end = std::min(path.find(fs::Path::SEPARATOR), path.size());
    if (condition(path.substr(0, end))) return true;
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return false;
}

}  // namespace

std::optional<Flaw> flaw_of(const EntryView& entry, const fs::Path& path) {
  if (entry.is_hard_link()) return Flaw{"kind", "A hard link never comes back"};
  const std::optional<std::string_view> target = entry.link_target();
  if (!entry.is_restorable())
    return Flaw{"kind", kind_of(entry) == "link" ? "A link without a target never comes back"
                                                 : "Devices, fifos and sockets never come back"};
  if (has_component(path.text(), [](std::string_view name) { return name == ".."; }))
    return Flaw{"leads-out", "A restore refuses a name with '..'"};
  if (has_component(path.text(), [](std::string_view name) { return name.size() > NAME_MAX; }))
    return Flaw{"too-long", "No file system takes a name of more than 255 bytes"};
  if (target && (target->empty() || target->size() >= PATH_MAX))
    return Flaw{"bad-target", "No file system takes a link with a target of this length"};
  return std::nullopt;
}

}  // namespace harbix::inspect
