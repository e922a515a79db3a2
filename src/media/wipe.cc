#include "media/wipe.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <utility>
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

/// A folder in another one.
struct Inner {
  std::string name;
  dev_t device;
  ino_t inode;
};

Inner inner_of(const fs::File& folder) {
  return {folder.path().basename().text(), folder.record().st_dev, folder.record().st_ino};
}

/// Opens a folder that was met before. @return nothing, with errno set, when it cannot be opened or is
/// another one by now.
base::FileDescriptor open_again(int from, const Inner& met) {
  base::FileDescriptor opened(
      ::openat(from, met.name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct ::stat record {};
  if (!opened || ::fstat(opened.get(), &record) == -1) return {};
  if (record.st_dev == met.device && record.st_ino == met.inode) return opened;
  errno = ENOENT;
  return {};
}

fs::Folder opened_anew(const base::FileDescriptor& folder, const fs::Path& path) {
  return {path, base::FileDescriptor(::fcntl(folder.get(), F_DUPFD_CLOEXEC, 0))};
}

/// Empties a folder, however deep it is: removes the files in it, and then the folders, each as soon as it is
/// empty itself. Of the folders on the way to the one at hand the names are remembered and not the paths,
/// which would take far more than the tree. The last few are held open, and some of those before: the way
/// back leads on from these by names, as a step by ".." can take the longer the deeper it is.
class Emptying {
 public:
  /// @throws fs::Exception when the folder cannot be opened.
  Emptying(const fs::Folder& share, const fs::File& top, const ArchiveReader& reader, Wiper& wiper)
      : reader_(reader), wiper_(wiper), path_(top.path()) {
    way_.push_back({inner_of(top), {}, open_again(share.descriptor(), inner_of(top))});
    if (!way_.back().held) throw_unopened();
  }

  /// @throws fs::Exception when the folder cannot be listed to its end, or when one below it is moved while
  /// it is being emptied; what is left then stays.
  void run() {
    way_.back().left = remove_files(way_.back().held, path_);
    while (!way_.empty()) {
      if (way_.back().left.empty()) {
        leave();
      } else {
        enter();
      }
    }
  }

 private:
  /// A folder on the way to the one that is being emptied, which stands last.
  struct Step {
    Inner folder;
    std::vector<Inner> left;    ///< what is in it and still has to be emptied; the next one stands last
    base::FileDescriptor held;  ///< of the last one always
  };

  // So many at the end of the way are held, and of the others one in so many.
  static constexpr std::size_t MOST_AT_THE_END = 32;
  static constexpr std::size_t APART = 256;

  [[noreturn]] void throw_unopened() const {
    const int error = errno;
    throw fs::Exception(error, "Directory '" + path_.text() + "' could not be opened.");
  }

  /// Removes what is no folder. @return the folders, the first one last.
  [[nodiscard]] std::vector<Inner> remove_files(const base::FileDescriptor& opened,
                                                const fs::Path& path) const {
    std::vector<Inner> folders;
    fs::Folder folder = opened_anew(opened, path);
    fs::Walk walk(folder, {}, path);
    while (const fs::WalkItem* item = walk.next()) {
      walk.stay_out();
      const fs::Path& found = item->file.path();
      if (item->failure) {
        if (way_.size() == 1 && found == path_) throw fs::Exception(*item->failure);
        skip(found);
        continue;
      }
      diagnostics::line(3, "Unlinking '%s'", found.c_str());
      if (is_kept(item->file, ids_, reader_)) {
        diagnostics::line(3, "skip");
        wiper_.spare(found);
      } else if (item->file.is_directory()) {
        folders.push_back(inner_of(item->file));
      } else {
        wiper_.remove_file(walk.place(), item->file);
      }
    }
    std::ranges::reverse(folders);
    return folders;
  }

  /// Goes on in the next folder that is left here.
  void enter() {
    Inner inner = std::move(way_.back().left.back());
    way_.back().left.pop_back();
    fs::Path path = path_ / inner.name;
    base::FileDescriptor opened = open_again(way_.back().held.get(), inner);
    if (!opened) return skip(path);
    std::vector<Inner> left = remove_files(opened, path);
    if (left.empty()) return remove(path);
    path_ = std::move(path);
    way_.push_back({std::move(inner), std::move(left), std::move(opened)});
    if (way_.size() <= MOST_AT_THE_END) return;
    const std::size_t behind = way_.size() - MOST_AT_THE_END - 1;
    if (behind % APART != 0) static_cast<void>(way_[behind].held.close());
  }

  /// Goes back to the folder that holds this one, and removes this one from there. The first one stays.
  void leave() {
    way_.pop_back();
    if (way_.empty()) return;
    const fs::Path path = std::exchange(path_, path_.dirname());
    if (!way_.back().held) go_there_again();
    remove(path);
  }

  /// Opens the end of the way, from the last folder on it that is held.
  void go_there_again() {
    std::size_t step = way_.size() - 1;
    while (!way_[step].held) --step;
    base::FileDescriptor passed;
    for (int from = way_[step].held.get(); ++step < way_.size();) {
      base::FileDescriptor opened = open_again(from, way_[step].folder);
      if (!opened) throw_unopened();
      base::FileDescriptor& place = way_.size() - step <= MOST_AT_THE_END ? way_[step].held : passed;
      place = std::move(opened);
      from = place.get();
    }
  }

  void skip(const fs::Path& path) const {
    report_skipped(path);
    wiper_.spare(path);
  }

  /// Removes a folder from the one that stands last.
  void remove(const fs::Path& path) const {
    fs::Folder folder = opened_anew(way_.back().held, path.dirname());
    if (!wiper_.remove_folder(folder, path)) report_skipped(path);
  }

  const ArchiveReader& reader_;
  Wiper& wiper_;
  const fs::EffectiveIds ids_ = fs::effective_ids();
  fs::Path path_;          ///< of the folder that is being emptied
  std::vector<Step> way_;  ///< from the first one on
};

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
      Emptying(share, item, reader, wiper).run();
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

bool Wiper::remove_folder(fs::Folder& folder, const fs::Path& path) {
  return fs::remove_at(folder.place_of(folder.relative(path)), true, path) == 0;
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
