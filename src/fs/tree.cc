#include "fs/tree.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <span>
#include <string>
#include <utility>

#include "base/log.h"
#include "fs/exception.h"
#include "fs/walk.h"
#include "platform/path_manager.h"

namespace fs {
namespace {

/// Appends the items of one folder, each followed by what is inside it. `folders` are the lists of all
/// folders, by their paths.
void append_in_place(const std::map<std::string, std::span<const File>>& folders, const std::string& folder,
                     std::vector<File>& files) {
  const auto items = folders.find(folder);
  if (items == folders.end()) return;
  for (const File& item : items->second) {
    files.push_back(item);
    if (item.is_directory()) append_in_place(folders, item.path().text(), files);
  }
}

/// A walk gives the items of one folder in one piece.
std::vector<File> with_immediate_descent(const std::vector<File>& deferred, const Path& directory) {
  std::map<std::string, std::span<const File>> folders;
  const std::span<const File> all(deferred);
  for (std::size_t begin = 0; begin < all.size();) {
    const Path folder = all[begin].path().dirname();
    std::size_t end = begin + 1;
    while (end < all.size() && all[end].path().dirname() == folder) ++end;
    folders.emplace(begin == 0 ? directory.text() : folder.text(), all.subspan(begin, end - begin));
    begin = end;
  }
  std::vector<File> files;
  files.reserve(deferred.size());
  append_in_place(folders, directory.text(), files);
  return files;
}

std::vector<File> list_below(Folder& folder, const Path& start, const Path& shown, Tolerance tolerance) {
  std::vector<File> files;
  Walk walk(folder, start, shown);
  while (const WalkItem* item = walk.next()) {
    if (item->failure) {
      if (tolerance == Tolerance::STRICT) throw Exception(*item->failure);
    } else if (tolerance == Tolerance::STRICT || item->file.allows(READ | WRITE)) {
      files.push_back(item->file);
    } else {
      walk.stay_out();
    }
  }
  return files;
}

void remove_listed(Folder& folder, const Path& relative) {
  const File top = folder.file(relative);
  std::vector<File> items;
  if (top.is_directory()) items = list_below(folder, relative, top.path(), Tolerance::STRICT);
  items.insert(items.begin(), top);
  // A directory stands before its contents in the list, so going backwards empties it before its own removal.
  // One that stays is logged, and then so is the one that holds it.
  for (auto item = items.rbegin(); item != items.rend(); ++item) {
    const Path item_relative = folder.relative(item->path());
    static_cast<void>(remove_at(folder.place_of(item_relative), item->is_directory(), item->path()));
  }
}

/// The folder that holds `path`.
Path parent_of(const Path& path) {
  if (!path.last_separator()) return Path::current();
  const Path parent = path.dirname();
  return parent.empty() ? Path("/") : parent;
}

}  // namespace

std::vector<File> list_tree(const Path& directory, Descent descent, Tolerance tolerance) try {
  Folder folder(directory);
  std::vector<File> files = list_below(folder, Path(), directory, tolerance);
  return descent == Descent::DEFERRED ? files : with_immediate_descent(files, directory);
} catch (const Exception&) {
  if (tolerance == Tolerance::STRICT) throw;
  return {};
}

int remove_at(const Place& place, bool is_directory, const Path& path) noexcept {
  if (::unlinkat(place.folder, place.name, is_directory ? AT_REMOVEDIR : 0) == 0) return 0;
  const int error = errno;
  struct ::stat record {};
  const bool is_link = !is_directory && look_up(place, record) == 0 && S_ISLNK(record.st_mode);
  // A link may live in the path manager instead of on disk, where the system's call does not see it.
  if (is_link && platform::pathmgr_unlink(path.c_str()) == 0) return 0;
  diagnostics::line(1, is_directory ? "Failed to rmdir '%s' (%s)" : "Failed to unlink '%s' (%s)",
                    path.c_str(), std::strerror(error));
  errno = error;
  return -1;
}

void remove_tree(Folder& folder, const Path& relative) {
  try {
    remove_listed(folder, relative);
  } catch (const Exception& failure) {
    diagnostics::line(1, "Errors encountered while unlinking '%s' (%s)", (folder.path() / relative).c_str(),
                      failure.what());
  }
  folder.let_go();
}

void remove_tree(const File& file) {
  if (!file.is_directory()) {
    file.unlink();
    return;
  }
  try {
    Folder parent(parent_of(file.path()));
    remove_tree(parent, file.path().basename());
  } catch (const Exception& failure) {
    diagnostics::line(1, "Errors encountered while unlinking '%s' (%s)", file.path().c_str(), failure.what());
  }
}

}  // namespace fs
