#include "settings/path_list.h"

#include <iostream>
#include <optional>

#include "base/flags.h"
#include "base/log.h"
#include "fs/tree.h"
#include "fs/walk.h"
#include "fs/working_directory.h"
#include "settings/script_lists.h"

namespace harbix {
namespace {

/// The object of a name, if there is one.
std::optional<fs::File> find(const fs::Path& path) {
  try {
    return fs::File(path);
  } catch (const fs::Exception&) {
    return std::nullopt;
  }
}

bool is_control_object(const fs::Path& path) {
  return is_pps_path(path) && path.basename() == places::CONTROL_NAME;
}

bool is_excluded(const fs::Path& path, const std::vector<fs::Path>& blacklist) {
  if (is_control_object(path) || is_blacklisted(path, blacklist)) return true;
  const std::optional<fs::File> object = find(path);
  return object && (object->is_directory() || object->is_symbolic_link());
}

void append_live_objects(const std::vector<fs::Path>& blacklist, std::vector<fs::Path>& paths) {
  std::vector<fs::File> stored;
  {
    const fs::Path store(places::PERSISTENT_PPS);
    const fs::WorkingDirectory directory(store);
    stored = fs::list_tree(store, fs::Descent::DEFERRED, fs::Tolerance::STRICT);
  }
  const fs::WorkingDirectory directory{places::PERSISTENT_ROOT};
  for (const fs::File& file : stored) {
    fs::Path live = live_name(file.path());
    if (!is_excluded(live, blacklist)) paths.push_back(std::move(live));
  }
}

/// Appends what a whitelisted folder holds.
void append_below(const fs::Path& path, const std::vector<fs::Path>& blacklist,
                  std::vector<fs::Path>& paths) {
  fs::Folder root(places::ROOT);
  fs::Walk walk(root, root.relative(path), path);
  while (const fs::WalkItem* item = walk.next()) {
    const fs::Path& found = item->file.path();
    if (item->failure) {
      diagnostics::line(1, "can't access: '%s'; skipping.", found.c_str());
    } else if (!is_blacklisted(found, blacklist) && !is_control_object(found)) {
      paths.push_back(found);
    }
  }
}

void append_whitelisted(const fs::Path& path, const std::vector<fs::Path>& blacklist,
                        std::vector<fs::Path>& paths) {
  const std::optional<fs::File> item = find(path);
  if (!item) return;
  if (item->is_directory()) {
    append_below(path, blacklist, paths);
  } else if (!is_control_object(path)) {
    paths.push_back(path);
  }
}

}  // namespace

bool is_pps_path(const fs::Path& path) { return path.first_component() == places::PPS; }

std::vector<fs::Path> settings_path_list() {
  const std::vector<fs::Path> whitelist = settings_script_list(ScriptList::WHITELIST);
  const std::vector<fs::Path> blacklist = settings_script_list(ScriptList::BLACKLIST);
  std::vector<fs::Path> paths;
  append_live_objects(blacklist, paths);
  paths.emplace_back(places::WALLPAPER);
  for (const fs::Path& path : whitelist) append_whitelisted(path, blacklist, paths);
  if (verbose) {
    for (const fs::Path& path : paths) std::cerr << path << '\n';
  }
  return paths;
}

fs::Path live_name(const fs::Path& stored) {
  fs::Path live;
  for (const fs::Path& component : stored.relative_to(places::PERSISTENT_ROOT).components()) {
    live /= std::string_view(component.text()).substr(0, component.text().find('@'));
  }
  return live;
}

}  // namespace harbix
