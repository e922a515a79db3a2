#include "media/wipe.h"

#include <string>
#include <vector>

#include "base/domains.h"
#include "base/log.h"
#include "fs/exception.h"
#include "fs/identity.h"
#include "fs/tree.h"
#include "fs/walk.h"
#include "fs/working_directory.h"
#include "media/share.h"

namespace harbix {
namespace {

void report_skipped(const fs::Path& path) { diagnostics::line(1, "Skipped '%s'", path.c_str()); }

bool is_kept(const fs::File& item, const fs::EffectiveIds& ids, const ArchiveReader& reader) {
  // The archive may be the owner's only copy.
  return is_skipped(item, ids) || reader.is_input(item);
}

/// Removes what is below a top-level folder: files as they are met, folders at the end, the deepest first.
void empty(fs::Folder& share, const fs::File& top, const ArchiveReader& reader, Wiper& wiper) {
  std::vector<fs::Path> folders;
  const fs::EffectiveIds ids = fs::effective_ids();
  fs::Walk walk(share, share.relative(top.path()), top.path());
  while (const fs::WalkItem* item = walk.next()) {
    const fs::Path& path = item->file.path();
    if (item->failure) {
      // A top-level file cannot be entered, and stays.
      if (path == top.path()) throw fs::Exception(*item->failure);
      report_skipped(path);
      wiper.spare(path);
      continue;
    }
    diagnostics::line(3, "Unlinking '%s'", path.c_str());
    if (is_kept(item->file, ids, reader)) {
      diagnostics::line(3, "skip");
      wiper.spare(path);
      walk.stay_out();
    } else if (item->file.is_directory()) {
      folders.push_back(path);
    } else {
      wiper.remove_file(walk.place(), item->file);
    }
  }
  for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
    if (!wiper.remove_folder(share, *folder)) report_skipped(*folder);
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

/// Expects the identity under which media is handled.
void wipe(fs::Folder& share, const ArchiveReader& reader, Wiper& wiper) {
  for (const fs::File& item : top_level_items(share)) {
    const fs::Path& path = item.path();
    diagnostics::line(3, "Unlinking content of '%s'", path.c_str());
    if (is_in_no_backup(item) || is_skipped(item)) {
      diagnostics::line(3, "skip");
      wiper.spare(path);
      continue;
    }
    wiper.begin(item);
    try {
      empty(share, item, reader, wiper);
    } catch (const fs::Exception&) {
      diagnostics::line(1, "Error while unlinking content: %s", path.c_str());
      wiper.spare(path);
    }
  }
}

}  // namespace

void Wiper::remove_file(const fs::Place& place, const fs::File& item) {
  static_cast<void>(fs::remove_at(place, false, item.path()));  // logged there
}

bool Wiper::remove_folder(fs::Folder& share, const fs::Path& path) {
  return fs::remove_at(share.place_of(share.relative(path)), true, path) == 0;
}

void wipe_shared_media(const ArchiveReader& reader) {
  Wiper wiper;
  wipe_shared_media(reader, wiper);
}

void wipe_shared_media(const ArchiveReader& reader, Wiper& wiper) {
  const fs::Path path(places::SHARED);
  const fs::WorkingDirectory directory(path);
  fs::require_working_directory(path, "Could not change working directory to " + path.text());
  fs::Folder share(path);
  const fs::EffectiveGroup group(media_groups().shared);
  const fs::EffectiveUser user{std::string(domains::MEDIA_USER)};
  wipe(share, reader, wiper);
}

}  // namespace harbix
