#pragma once

#include <sys/types.h>

namespace harbix {

struct MediaGroups {
  gid_t shared;           ///< owns the shared media folders
  gid_t protected_media;  ///< marks items that are left alone
};

/// The ids of the media groups, looked up when the first media operation asks: runs for other keywords do not
/// depend on them.
/// @throws std::runtime_error "Group 'NAME' does not exist"
[[nodiscard]] const MediaGroups& media_groups();

}  // namespace harbix
