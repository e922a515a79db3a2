#pragma once

#include <sys/types.h>

#include "fs/file.h"

namespace harbix {

/// Whom the files of an application belong to, and what others may do with them.
struct Ownership {
  uid_t user;
  gid_t group;
  mode_t mode;  ///< permission bits that may stay
};

/// Gives a file to its owner. Its own permissions only ever lose bits; a link keeps its mode, and what it
/// leads to is left alone. "." and ".." are never touched.
/// @throws fs::Exception "Applying perms. to PATH" or "Applying exception to PATH", which are told of on
/// standard error as well.
void apply_ownership(const Ownership& ownership, const fs::File& file);

/// The same for everything below a folder, deepest first, but not for the folder itself. Lists what it found
/// on standard error.
/// @throws also fs::Exception when the folder cannot be listed.
void apply_ownership_recursively(const Ownership& ownership, const fs::Path& root);

}  // namespace harbix
