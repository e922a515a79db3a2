#pragma once

#include <sys/types.h>

#include "base/places.h"
#include "fs/file.h"
#include "fs/identity.h"

/// Where media lies on the device, and under which names it stands in archives.
namespace harbix::places {

inline constexpr char MEDIA_PREFIX[] = "/media";  ///< archive names of the shared media
inline constexpr char DTM_PREFIX[] = "/dtm";      ///< archive names of the dtm share
inline constexpr char BOOKMARKS_PREFIX[] = "/media/bookmarks";
inline constexpr char LOST_AND_FOUND[] = "./misc/lost_and_found/";  ///< below the shared media
inline constexpr char MEDIA_LIBRARY[] = "/accounts/1000/db/mmlibrary.db";

}  // namespace harbix::places

namespace harbix {

struct MediaGroups {
  gid_t shared;           ///< owns the shared media folders
  gid_t protected_media;  ///< marks items that are left alone
};

/// The ids of the media groups, looked up when the first media operation asks: runs for other keywords do not
/// depend on them.
/// @throws std::runtime_error "Group 'NAME' does not exist"
[[nodiscard]] const MediaGroups& media_groups();

/// Whether backup and wipe leave an item alone: items of the protected media group without a word (-v: "Skip:
/// PATH"), and items that the effective ids may not read with a line in the log at level 1 (-v: "permission
/// denied: PATH skipping").
[[nodiscard]] bool is_skipped(const fs::File& item, const fs::EffectiveIds& ids = fs::effective_ids());

/// Says that an item cannot be read, as is_skipped() does.
void report_unreadable(const fs::Path& path);

}  // namespace harbix
