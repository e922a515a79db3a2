#pragma once

#include <sys/types.h>

#include <string>

#include "fs/folder.h"

namespace harbix {

/// The group ids of applications begin here; a smaller one is no application's.
inline constexpr gid_t FIRST_APPLICATION_GROUP = 10000;

/// The group id that the installer answers with, in decimal.
/// @throws std::runtime_error "'TEXT' is not a group id" for another text, and for an id whose owner of data
/// would be out of range.
[[nodiscard]] gid_t parse_application_group(const std::string& text);

/// The user that owns the data of the application with this group.
[[nodiscard]] uid_t data_owner(gid_t group) noexcept;

/// Whom the files of an application belong to, and what others may do with them.
struct Ownership {
  uid_t user;
  gid_t group;
  mode_t mode;  ///< permission bits that may stay
};

/// Gives what lies at `relative` below `folder` to its owner. Its own permissions only ever lose bits; a link
/// keeps its mode, and what it leads to is left alone, as is what another program puts in its place
/// meanwhile. A file that has other names as well must belong to its owner already.
/// @throws fs::Exception "Applying perms. to PATH" or "Applying exception to PATH", which are reported on
/// standard error as well; "Path '...' stat failed."
void apply_ownership(const Ownership& ownership, fs::Folder& folder, const fs::Path& relative);

/// The same for everything below what lies at `relative`, deepest first, but not for that folder itself.
/// Lists what it found on standard error.
/// @throws also fs::Exception when the folder cannot be listed.
void apply_ownership_below(const Ownership& ownership, fs::Folder& folder, const fs::Path& relative);

}  // namespace harbix
