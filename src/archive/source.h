#pragma once

#include <string>

#include "base/file_descriptor.h"
#include "fs/file.h"

namespace harbix {

/// A file-system object that is ready to be archived: everything that can fail for it alone has been done.
struct Source {
  fs::File file;                  ///< its status as of now, and its path on the device
  base::FileDescriptor contents;  ///< of a plain file
  std::string link_target;        ///< of a symbolic link
};

/// Opens a plain file, directory or symbolic link, following no link in the last component. The status is
/// that of the very object that was opened: whatever has happened since it was listed, header and contents
/// agree.
/// @throws std::runtime_error "Error opening: PATH", for objects of other kinds as well.
[[nodiscard]] Source open_source(const fs::Path& path);

/// Opens many objects, one after the other, as open_source does. Those of one folder are looked up in there:
/// for small files, the way to them is a large part of the work. Lives no longer than the working directory
/// is the same.
class SourceOpener {
 public:
  /// @throws as open_source does.
  [[nodiscard]] Source open(const fs::Path& path);

 private:
  void enter(std::string folder, const fs::Path& path);

  std::string folder_;
  base::FileDescriptor descriptor_;  ///< of that folder
};

/// What a symbolic link points to.
/// @throws std::runtime_error "Error opening: PATH"
[[nodiscard]] std::string read_link(const fs::Path& path);

}  // namespace harbix
