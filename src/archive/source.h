#pragma once

#include <stdexcept>
#include <string>

#include "base/file_descriptor.h"
#include "fs/file.h"
#include "fs/folder.h"

namespace harbix {

/// A file-system object that is ready to be archived: everything that can fail for it alone has been done.
struct Source {
  fs::File file;                  ///< its status as of now, and its path on the device
  base::FileDescriptor contents;  ///< of a plain file
  std::string link_target;        ///< of a symbolic link
};

/// Opens the plain file, directory or symbolic link `path`, which lies below `folder`; a relative path counts
/// from there. Follows no link. The status is that of the very object that was opened: whatever has happened
/// since it was listed, header and contents agree.
/// @throws std::runtime_error "Error opening: PATH: REASON", for objects of other kinds as well;
/// ResourceError with the same text when no object could be opened just now.
[[nodiscard]] Source open_source(fs::Folder& folder, const fs::Path& path);

/// What a symbolic link below `folder` points to.
/// @throws as open_source does.
[[nodiscard]] std::string read_link(fs::Folder& folder, const fs::Path& path);

/// Reports that an object cannot be archived, for the reason that this error number has.
/// @throws as open_source does, always.
[[noreturn]] void throw_unopened(const fs::Path& path, int error);

/// The same for an object that is not the one that was listed.
[[noreturn]] void throw_replaced(const fs::Path& path);

}  // namespace harbix
