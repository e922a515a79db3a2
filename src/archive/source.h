#pragma once

#include <string>

#include "fs/file.h"
#include "platform/file_descriptor.h"

namespace harbix {

/// A file-system object that is ready to be archived: everything that can fail for it alone has been done.
struct Source {
  fs::File file;                      ///< its status as of now, and its path on the device
  platform::FileDescriptor contents;  ///< of a plain file
  std::string link_target;            ///< of a symbolic link
};

/// Opens a plain file, directory or symbolic link, following no link in the last component. The status is
/// that of the very object that was opened: whatever has happened since it was listed, header and contents
/// agree.
/// @throws std::runtime_error "Error opening: PATH", for objects of other kinds as well.
[[nodiscard]] Source open_source(const fs::Path& path);

/// What a symbolic link points to.
/// @throws std::runtime_error "Error opening: PATH"
[[nodiscard]] std::string read_link(const fs::Path& path);

}  // namespace harbix
