#include "inspect/planned_tree.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include "fs/exception.h"
#include "fs/walk.h"
#include "inspect/record_table.h"

namespace harbix::inspect {
namespace {

constexpr mode_t PERMISSIONS = 07777;
constexpr mode_t WRITING = 2;
constexpr mode_t SEARCHING = 1;

std::string below(const std::string& folder, const std::string& name) {
  return folder.empty() ? name : folder + fs::Path::SEPARATOR + name;
}

std::uint64_t hash_below(std::uint64_t folder, const std::string& name) {
  PathHash hash;
  for (unsigned shift = 0; shift < 64; shift += 8) hash.add(static_cast<char>(folder >> shift & 0xffU));
  hash.add(name);
  return hash.value();
}

PlannedTree::Kind kind_of_mode(mode_t mode) {
  if (S_ISDIR(mode)) return PlannedTree::Kind::FOLDER;
  return S_ISLNK(mode) ? PlannedTree::Kind::LINK : PlannedTree::Kind::FILE;
}

std::vector<gid_t> supplementary_groups() {
  const int count = ::getgroups(0, nullptr);
  std::vector<gid_t> groups(static_cast<std::size_t>(std::max(count, 0)));
  if (count > 0 && ::getgroups(count, groups.data()) == -1) groups.clear();
  return groups;
}

}  // namespace

PlannedTree::PlannedTree(const fs::Path& root) : folder_(root), groups_(supplementary_groups()) {
  struct ::stat record {};
  // A folder that is open has a status.
  if (::fstat(folder_.descriptor(), &record) == 0)
    root_ = {Kind::FOLDER, record.st_mode & PERMISSIONS, record.st_uid, record.st_gid};
}

PlannedTree::Names PlannedTree::names_of(const fs::Path& path) const {
  std::string_view text = path.text();
  if (text.starts_with(fs::Path::SEPARATOR) && text.starts_with(folder_.path().text()))
    text.remove_prefix(folder_.path().text().size());
  Names names;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(fs::Path::SEPARATOR), text.size());
    const std::string_view name = text.substr(0, end);
    if (!name.empty() && name != ".") names.emplace_back(name);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return names;
}

PlannedTree::Step PlannedTree::root_step() const { return {root_, Disk::COUNTS, 0}; }

PlannedTree::Step PlannedTree::next(const Step& folder, const std::string& name, const std::string& path) {
  Step step{{}, folder.disk, hash_below(folder.hash, name)};
  if (step.disk == Disk::CLEARED) {
    if (!on_the_way_.contains(step.hash)) step.disk = Disk::GONE;
    if (kept_.contains(step.hash)) step.disk = Disk::COUNTS;
  }
  if (removed_.contains(step.hash)) step.disk = Disk::GONE;
  const bool is_on_disk = step.disk != Disk::GONE && folder.node.kind == Kind::FOLDER;
  if (is_on_disk) step.node = on_disk(path);
  if (const Node own = made(step.hash); own.kind != Kind::NOTHING) {
    // A folder that was there is still the one on disk.
    if (own.kind != Kind::FOLDER || step.node.kind != Kind::FOLDER) step = {own, Disk::GONE, step.hash};
  }
  const bool is_cleared = cleared_.contains(step.hash) && !kept_.contains(step.hash);
  if (is_cleared && step.disk == Disk::COUNTS) step.disk = Disk::CLEARED;
  return step;
}

PlannedTree::Node PlannedTree::made(std::uint64_t hash) const {
  if (const auto found = made_.find(hash); found != made_.end()) return found->second;
  return made_files_.contains(hash) ? Node{.kind = Kind::FILE} : Node{};
}

PlannedTree::Node PlannedTree::on_disk(const std::string& path) {
  try {
    const struct ::stat record = folder_.file(fs::Path(path)).record();
    return {kind_of_mode(record.st_mode), record.st_mode & PERMISSIONS, record.st_uid, record.st_gid};
  } catch (const fs::Exception&) {
    return {};
  }
}

PlannedTree::Step PlannedTree::step_on_the_way(const Step& folder, const Names& names, std::size_t i,
                                               const std::string& path) {
  if (i < trail_.size() && trail_[i].first == names[i]) return trail_[i].second;
  trail_.erase(trail_.begin() + static_cast<std::ptrdiff_t>(std::min(i, trail_.size())), trail_.end());
  const Step step = next(folder, names[i], path);
  if (i == trail_.size()) trail_.emplace_back(names[i], step);
  return step;
}

PlannedTree::Kind PlannedTree::at(const fs::Path& path) {
  const Names names = names_of(path);
  Step step = root_step();
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (step.node.kind != Kind::FOLDER || names[i] == "..") return Kind::NOTHING;
    text = below(text, names[i]);
    step = i + 1 < names.size() ? step_on_the_way(step, names, i, text) : next(step, names[i], text);
  }
  return step.node.kind;
}

std::optional<PlannedTree::Kind> PlannedTree::made_at(const fs::Path& path) {
  std::uint64_t hash = 0;
  for (const std::string& name : names_of(path)) hash = hash_below(hash, name);
  const Node node = made(hash);
  return node.kind == Kind::NOTHING ? std::nullopt : std::optional(node.kind);
}

std::optional<int> PlannedTree::walk_to_parent(const Names& names, const fs::EffectiveIds& ids,
                                               Step& parent) {
  // Names are looked at before the disk is.
  if (std::ranges::find(names, "..") != names.end()) return EXDEV;
  std::string text;
  for (std::size_t i = 0; i + 1 < names.size(); ++i) {
    if (!allows(parent.node, SEARCHING, ids)) return EACCES;
    if (names[i].size() > NAME_MAX) return ENAMETOOLONG;
    text = below(text, names[i]);
    const Step step = step_on_the_way(parent, names, i, text);
    if (step.node.kind == Kind::LINK) return ELOOP;
    if (step.node.kind == Kind::FILE) return ENOTDIR;
    // From here on folders are made, for who may.
    if (step.node.kind == Kind::NOTHING) {
      const bool fits = std::ranges::all_of(names, [](const auto& name) { return name.size() <= NAME_MAX; });
      if (!fits) return ENAMETOOLONG;
      parent.disk = Disk::GONE;
      return allows(parent.node, WRITING, ids) ? std::nullopt : std::optional(EACCES);
    }
    parent = step;
  }
  return allows(parent.node, SEARCHING, ids) ? std::nullopt : std::optional(EACCES);
}

std::optional<std::string> PlannedTree::obstacle(const fs::Path& path, Kind kind,
                                                 const fs::EffectiveIds& ids) {
  const Names names = names_of(path);
  if (names.empty()) return kind == Kind::FOLDER ? std::nullopt : std::optional(std::strerror(EISDIR));
  Step parent = root_step();
  if (const std::optional<int> error = walk_to_parent(names, ids, parent))
    return *error == EXDEV ? "Path contains '..'" : std::strerror(*error);
  if (names.back().size() > NAME_MAX) return std::strerror(ENAMETOOLONG);
  const Kind there = at(path);
  if (there == Kind::FOLDER && kind == Kind::FOLDER) return std::nullopt;
  if (!allows(parent.node, WRITING, ids)) return std::strerror(EACCES);
  if (there == Kind::FOLDER && !is_empty(names)) return std::strerror(ENOTEMPTY);
  if (there != Kind::NOTHING && !may_remove(path, ids)) return std::strerror(EPERM);
  return std::nullopt;
}

bool PlannedTree::may_remove(const fs::Path& path, const fs::EffectiveIds& ids) {
  const Names names = names_of(path);
  if (names.empty()) return false;
  Step parent = root_step();
  if (walk_to_parent(names, ids, parent) || !allows(parent.node, WRITING, ids)) return false;
  if ((parent.node.mode & S_ISVTX) == 0 || ids.user == fs::SUPERUSER || ids.user == parent.node.user)
    return true;
  std::string text;
  for (const std::string& name : names) text = below(text, name);
  return next(parent, names.back(), text).node.user == ids.user;
}

bool PlannedTree::is_empty(const Names& names) {
  std::uint64_t hash = 0;
  std::string text;
  for (const std::string& name : names) {
    hash = hash_below(hash, name);
    text = below(text, name);
  }
  if (filled_.contains(hash)) return false;
  if (made(hash).kind == Kind::FOLDER && on_disk(text).kind != Kind::FOLDER) return true;
  fs::Walk walk(folder_, fs::Path(text), fs::Path(text));
  while (const fs::WalkItem* item = walk.next()) {
    walk.stay_out();
    if (at(item->file.path()) != Kind::NOTHING) return false;
  }
  return true;
}

bool PlannedTree::allows(const Node& node, mode_t wanted, const fs::EffectiveIds& ids) const {
  constexpr unsigned GROUP_SHIFT = 3;
  constexpr unsigned USER_SHIFT = 6;
  if (ids.user == fs::SUPERUSER) return true;
  const bool is_member = node.group == ids.group || std::ranges::find(groups_, node.group) != groups_.end();
  unsigned shift = is_member ? GROUP_SHIFT : 0;
  if (node.user == ids.user) shift = USER_SHIFT;
  return (node.mode >> shift & wanted) == wanted;
}

void PlannedTree::remove(const fs::Path& path) {
  trail_.clear();
  std::uint64_t hash = 0;
  for (const std::string& name : names_of(path)) hash = hash_below(hash, name);
  removed_.insert(hash);
  made_.erase(hash);
  made_files_.erase(hash);
  filled_.erase(hash);
}

void PlannedTree::clear(const fs::Path& path) {
  trail_.clear();
  std::uint64_t hash = 0;
  for (const std::string& name : names_of(path)) hash = hash_below(hash, name);
  cleared_.insert(hash);
}

void PlannedTree::keep(const fs::Path& path) {
  keep_alone(path);
  std::uint64_t hash = 0;
  for (const std::string& name : names_of(path)) hash = hash_below(hash, name);
  kept_.insert(hash);
}

void PlannedTree::keep_alone(const fs::Path& path) {
  trail_.clear();
  std::uint64_t hash = 0;
  for (const std::string& name : names_of(path)) {
    hash = hash_below(hash, name);
    on_the_way_.insert(hash);
  }
}

void PlannedTree::make(const fs::Path& path, Kind kind, mode_t mode, const fs::EffectiveIds& ids) {
  const Names names = names_of(path);
  Step step = root_step();
  std::string text;
  bool has_changed_way = kind != Kind::FILE;
  for (std::size_t i = 0; i < names.size(); ++i) {
    filled_.insert(step.hash);
    text = below(text, names[i]);
    const bool is_last = i + 1 == names.size();
    step = is_last ? next(step, names[i], text) : step_on_the_way(step, names, i, text);
    const Kind wanted = is_last ? kind : Kind::FOLDER;
    if (wanted == Kind::FOLDER && step.node.kind == Kind::FOLDER) continue;
    has_changed_way = has_changed_way || !is_last || step.node.kind == Kind::FOLDER;
    const mode_t own_mode = is_last ? mode & PERMISSIONS : S_IRWXU | S_IRWXG;
    step = {{wanted, own_mode | (wanted == Kind::FOLDER ? S_IRWXU : 0U), ids.user, ids.group},
            Disk::GONE,
            step.hash};
    note_made(step);
    if (wanted == Kind::FOLDER) unsettled_.emplace_back(step.hash, own_mode);
  }
  if (has_changed_way) trail_.clear();
}

void PlannedTree::settle() {
  trail_.clear();
  for (const auto& [hash, mode] : unsettled_) {
    if (const auto found = made_.find(hash); found != made_.end() && found->second.kind == Kind::FOLDER)
      found->second.mode = mode;
  }
  unsettled_.clear();
}

void PlannedTree::note_made(const Step& step) {
  made_.erase(step.hash);
  made_files_.erase(step.hash);
  if (step.node.kind == Kind::FILE) {
    made_files_.insert(step.hash);
  } else {
    made_.emplace(step.hash, step.node);
  }
}

PlannedTree::Kind planned_kind(const EntryView& entry) {
  return kind_of_mode(entry.destination(fs::Path()).record().st_mode);
}

}  // namespace harbix::inspect
