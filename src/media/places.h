#pragma once

#include "base/places.h"

/// Where media lies on the device, and under which names it stands in archives.
namespace harbix::places {

inline constexpr char MEDIA_PREFIX[] = "/media";  ///< archive names of the shared media
inline constexpr char DTM_PREFIX[] = "/dtm";      ///< archive names of the dtm share
inline constexpr char BOOKMARKS_PREFIX[] = "/media/bookmarks";
inline constexpr char LOST_AND_FOUND[] = "./misc/lost_and_found/";  ///< below the shared media
inline constexpr char MEDIA_LIBRARY[] = "/accounts/1000/db/mmlibrary.db";

}  // namespace harbix::places
