#include "media/wipe.h"

#include <vector>

#include "base/log.h"
#include "fs/exception.h"
#include "fs/tree.h"
#include "fs/walk.h"
#include "media/share.h"

namespace harbix {
namespace {

void report_skipped(const fs::Path& path) { diagnostics::line(1, "Skipped '%s'", path.c_str()); }

bool is_kept(const fs::File& item, const fs::EffectiveIds& ids, const ArchiveReader& reader) {
  // The archive may be the owner's only copy.
  return is_skipped(item, ids) || reader.is_input(item);
}

/// Removes what is below a top-level folder: files as they are met, folders at the end, the deepest first.
void empty(fs::Folder& share, const fs::File& top, const ArchiveReader& reader) {
  std::vector<fs::Path> folders;
  const fs::EffectiveIds ids = fs::effective_ids();
  fs::Walk walk(share, share.relative(top.path()), top.path());
  while (const fs::WalkItem* item = walk.next()) {
    const fs::Path& path = item->file.path();
    if (item->failure) {
      // A top-level file cannot be entered, and stays.
      if (path == top.path()) throw fs::Exception(*item->failure);
      report_skipped(path);
      continue;
    }
    diagnostics::line(3, "Unlinking '%s'", path.c_str());
    if (is_kept(item->file, ids, reader)) {
      diagnostics::line(3, "skip");
      walk.stay_out();
    } else if (item->file.is_directory()) {
      folders.push_back(path);
    } else {
      static_cast<void>(fs::remove_at(walk.place(), false, path));  // logged there
    }
  }
  for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
    const fs::Path relative = share.relative(*folder);
    if (fs::remove_at(share.place_of(relative), true, *folder) != 0) report_skipped(*folder);
  }
}

/// The whole list comes before the first removal: a share that cannot be listed to its end keeps everything.
std::vector<fs::File> top_level_items(fs::Folder& share) {
  std::vector<fs::File> items;
  fs::Walk walk(share, {}, share.path());
  while (const fs::WalkItem* item = walk.next()) {
    walk.stay_out();
    if (!item->failure) {
      items.push_back(item->file);
    } else if (item->file.path() == share.path()) {
      throw fs::Exception(*item->failure);
    } else {
      diagnostics::line(1, "Error while unlinking content: %s", item->file.path().c_str());
    }
  }
  return items;
}

bool is_in_no_backup(const fs::File& top) { return top.path().basename().text().starts_with('.'); }

}  // namespace

void wipe_shared_media(fs::Folder& share, const ArchiveReader& reader) {
  for (const fs::File& item : top_level_items(share)) {
    const fs::Path& path = item.path();
    diagnostics::line(3, "Unlinking content of '%s'", path.c_str());
    if (is_in_no_backup(item) || is_skipped(item)) {
      diagnostics::line(3, "skip");
      continue;
    }
    try {
      empty(share, item, reader);
    } catch (const fs::Exception&) {
      diagnostics::line(1, "Error while unlinking content: %s", path.c_str());
    }
  }
}

}  // namespace harbix
