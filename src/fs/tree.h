#pragma once

#include <vector>

#include "fs/file.h"
#include "fs/folder.h"

namespace fs {

/// Where the contents of a folder stand in a list.
enum class Descent {
  IMMEDIATE,  ///< directly behind it
  DEFERRED,   ///< behind all entries of the folder that holds it
};

/// What list_tree does about a directory that it cannot open.
enum class Tolerance {
  STRICT,    ///< throws
  TOLERANT,  ///< passes over it, and over everything that the effective user may not both read and write
};

/// Everything below `directory`, a folder before what is inside it.
/// @throws fs::Exception "Directory '...' could not be opened." or "Path '...' stat failed.", when strict.
[[nodiscard]] std::vector<File> list_tree(const Path& directory, Descent descent, Tolerance tolerance);

/// Removes an object with everything below it. Never throws fs::Exception: failures are logged at level 1,
/// and where the tree cannot be listed it stays as it was.
void remove_tree(const File& file);

/// The same for what lies at `relative` below a folder. What other programs put in its place meanwhile leads
/// to nothing else.
void remove_tree(Folder& folder, const Path& relative);

/// Removes the file, link or, with `is_directory`, the empty directory that lies at `place`. A failure is
/// logged at level 1 under the name `path`.
/// @return 0, or -1 with errno set.
int remove_at(const Place& place, bool is_directory, const Path& path) noexcept;

}  // namespace fs
