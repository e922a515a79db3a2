#pragma once

#include <dirent.h>

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "fs/exception.h"
#include "fs/file.h"
#include "fs/folder.h"

namespace fs {

/// What a walk came to.
struct WalkItem {
  File file;  ///< without a status where there is a failure
  /// Why the object's status could not be taken ("Path '...' stat failed."), or why the folder of this path
  /// could not be opened or read to its end ("Directory '...' could not be opened.", "... could not be
  /// read.").
  std::optional<Exception> failure;

  /// Whether the failure is only that the object is gone, or that another one has taken its place.
  [[nodiscard]] bool has_vanished() const noexcept;
};

/// Everything below a folder, one item at a time:
///
///   Walk walk(folder, "Music", "Music");
///   while (const WalkItem* item = walk.next()) {
///     if (item->failure) report(*item);
///     else if (is_private(item->file)) walk.stay_out();
///   }
///
/// The items of one folder follow each other in the order in which the file system lists them; what is inside
/// the folders among them comes after the last one. So one folder is open at a time, however deep the tree
/// is. Links are never followed. What vanishes before its turn is passed over; a folder that vanishes, or
/// makes room for another object, before it is entered is given as a failure.
class Walk {
 public:
  /// Walks below `start`, a path relative to `folder`, which must outlive the walk; empty for the folder
  /// itself. In the items' paths `shown` stands for it; an empty one makes them relative to it.
  Walk(Folder& folder, Path start, Path shown);

  /// The next item, valid until the next call; nullptr at the end.
  [[nodiscard]] const WalkItem* next();

  /// Keeps the walk out of the folder that next() has just given.
  void stay_out() noexcept { is_entering_ = false; }

  /// Where the item is that next() has just given, if it has no failure.
  [[nodiscard]] Place place() const noexcept;

 private:
  struct DirectoryCloser {
    // A folder that was only read has nothing left to report.
    void operator()(::DIR* directory) const noexcept { ::closedir(directory); }
  };

  struct Identity {
    dev_t device;
    ino_t inode;
  };
  /// A folder that is to be entered.
  struct Pending {
    Path relative;                ///< to the start
    std::optional<Identity> met;  ///< the object that it was when it was met
  };

  const WalkItem* enter(const Pending& folder);
  void leave();
  const WalkItem* next_entry();
  const WalkItem* fail(const Path& relative, const char* kind, const char* what, int error);

  Folder& folder_;
  Path start_;
  Path shown_;
  std::unique_ptr<::DIR, DirectoryCloser> directory_;  ///< the one that is being read
  Path current_;                                       ///< its path, relative to the start
  std::vector<Pending> found_;                         ///< folders in it, in order
  std::vector<Pending> pending_;                       ///< the next one to be entered stands last
  Path relative_;                                      ///< of the item that next() has just given
  WalkItem item_;
  bool is_entering_ = false;
};

}  // namespace fs
