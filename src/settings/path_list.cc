#include "settings/path_list.h"

#include <cerrno>
#include <iostream>
#include <optional>

#include "archive/package_writer.h"
#include "base/flags.h"
#include "fs/walk.h"
#include "fs/working_directory.h"
#include "settings/script_lists.h"

namespace harbix {
namespace {

/// The object of a name, if there is one and its status can be taken.
std::optional<fs::File> find(const fs::Path& path) {
  try {
    return fs::File(path);
  } catch (const fs::Exception&) {
    return std::nullopt;
  }
}

/// The next item of a walk that can be had; nothing at the end. Reports what could not be listed.
const fs::WalkItem* next_listed(fs::Walk& walk, Completeness& completeness) {
  const fs::WalkItem* item = walk.next();
  for (; item != nullptr && item->failure; item = walk.next()) {
    if (!item->has_vanished()) report_unlisted(*item->failure, completeness);
  }
  return item;
}

bool is_control_object(const fs::Path& path) {
  return is_pps_path(path) && path.basename() == places::CONTROL_NAME;
}

bool is_excluded(const fs::Path& path, const std::vector<fs::Path>& blacklist) {
  if (is_control_object(path) || is_blacklisted(path, blacklist)) return true;
  const std::optional<fs::File> object = find(path);
  return object && (object->is_directory() || object->is_symbolic_link());
}

std::vector<fs::Path> stored_objects(Completeness& completeness) {
  const fs::Path path(places::PERSISTENT_PPS);
  const fs::WorkingDirectory directory(path);
  fs::Folder store(path);
  std::vector<fs::Path> stored;
  fs::Walk walk(store, {}, path);
  while (const fs::WalkItem* item = next_listed(walk, completeness)) stored.push_back(item->file.path());
  return stored;
}

void append_live_objects(const std::vector<fs::Path>& blacklist, std::vector<fs::Path>& paths,
                         Completeness& completeness) {
  const std::vector<fs::Path> stored = stored_objects(completeness);
  const fs::WorkingDirectory directory{places::PERSISTENT_ROOT};
  for (const fs::Path& object : stored) {
    fs::Path live = live_name(object);
    if (!is_excluded(live, blacklist)) paths.push_back(std::move(live));
  }
}

/// Appends what a whitelisted folder holds.
void append_below(const fs::Path& path, const std::vector<fs::Path>& blacklist, std::vector<fs::Path>& paths,
                  Completeness& completeness) {
  fs::Folder root(places::ROOT);
  fs::Walk walk(root, root.relative(path), path);
  while (const fs::WalkItem* item = next_listed(walk, completeness)) {
    const fs::Path& found = item->file.path();
    if (!is_blacklisted(found, blacklist) && !is_control_object(found)) {
      paths.push_back(found);
    }
  }
}

void append_whitelisted(const fs::Path& path, const std::vector<fs::Path>& blacklist,
                        std::vector<fs::Path>& paths, Completeness& completeness) try {
  const fs::File item(path);
  if (item.is_directory()) {
    append_below(path, blacklist, paths, completeness);
  } else if (!is_control_object(path)) {
    paths.push_back(path);
  }
} catch (const fs::Exception& failure) {
  // Most devices lack some of what their scripts name.
  if (failure.error() == ENOENT || failure.error() == ENOTDIR) return;
  report_unlisted(failure, completeness);
}

}  // namespace

bool is_pps_path(const fs::Path& path) { return path.first_component() == places::PPS; }

std::vector<fs::Path> settings_path_list(Completeness& completeness) {
  const std::vector<fs::Path> whitelist = settings_script_list(ScriptList::WHITELIST);
  const std::vector<fs::Path> blacklist = settings_script_list(ScriptList::BLACKLIST);
  std::vector<fs::Path> paths;
  append_live_objects(blacklist, paths, completeness);
  paths.emplace_back(places::WALLPAPER);
  for (const fs::Path& path : whitelist) {
    append_whitelisted(path, blacklist, paths, completeness);
  }
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
