#include "media/groups.h"

#include "base/domains.h"
#include "fs/accounts.h"

namespace harbix {

const MediaGroups& media_groups() {
  static const MediaGroups groups{.shared = fs::group_id(domains::SHARED_GROUP),
                                  .protected_media = fs::group_id(domains::PROTECTED_MEDIA_GROUP)};
  return groups;
}

}  // namespace harbix
