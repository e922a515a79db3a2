#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/file_descriptor.h"
#include "fs/file.h"
#include "fs/path.h"

namespace fs {

/// Where an object is, without a path that could lead elsewhere in the next moment: the folder that holds it,
/// by descriptor, and its name in there. For fstatat(2) and its relatives. Owns nothing: valid until the
/// Folder or Walk that gave it is asked for another one.
struct Place {
  int folder;
  const char* name;
};

/// Takes the status of what is there: a link's own, not that of what it leads to.
/// @return 0, or -1 with errno set.
int look_up(const Place& place, struct ::stat& record) noexcept;

/// A folder that is held open, and the way to everything below it: no symbolic link is followed on the way,
/// and the folder is never left. Other programs may change what is below at any moment; work that root does
/// there goes by places.
class Folder {
 public:
  /// Opens a folder of the device that only root can replace: links on the way to it are followed.
  /// @throws fs::Exception "Directory 'PATH' could not be opened."
  explicit Folder(Path path);
  /// Takes over a folder that is open, for example one that is made beside its place and has another name
  /// until it is complete: `path` is the name that it goes by.
  Folder(Path path, base::FileDescriptor descriptor) noexcept
      : path_(std::move(path)), descriptor_(std::move(descriptor)) {}

  /// The path that it was opened by.
  [[nodiscard]] const Path& path() const noexcept { return path_; }
  [[nodiscard]] int descriptor() const noexcept { return descriptor_.get(); }

  /// What `path` is called from here, without "./" in front, so that the same folder has the same name: an
  /// absolute path must lie below this folder.
  /// @throws fs::Exception (no error number) when it does not.
  [[nodiscard]] Path relative(const Path& path) const;

  /// The place of `relative`, for example "a/b/c", best as relative() gives it. The folder that holds it
  /// stays open until one of another folder is asked for.
  /// @throws fs::Exception "Directory 'PATH' could not be opened.", with the whole path.
  [[nodiscard]] Place place_of(const Path& relative);

  /// Takes the status of what lies at `relative`, as look_up() does. For many things that may not be there,
  /// of which an exception each would take longer than all else.
  /// @return 0, or the error number.
  [[nodiscard]] int look_up(const Path& relative, struct ::stat& record) noexcept;

  /// The status of what lies at `relative`, its path put behind this folder's.
  /// @throws fs::Exception "Path 'PATH' stat failed." or as place_of() does.
  [[nodiscard]] File file(const Path& relative);

  /// Whether something lies at `relative`, a dangling link included.
  [[nodiscard]] bool holds(const Path& relative) noexcept;

  /// Closes the folders that stay open between two calls. To be called when some of them were removed: what
  /// is made under their names later are other folders.
  void let_go() noexcept { held_.clear(); }

 private:
  /// A folder on the way to the one that was asked for last.
  struct Held {
    std::size_t length;  ///< of its name, the beginning of held_name_
    base::FileDescriptor descriptor;
  };

  void hold(std::string_view parent);
  void hold_next(std::string_view parent);

  Path path_;
  base::FileDescriptor descriptor_;
  std::string held_name_;   ///< the folder that was asked for last, relative
  std::vector<Held> held_;  ///< the last few folders on the way there: a walk comes back to them
};

}  // namespace fs
