#include "media/share.h"

#include "base/domains.h"
#include "base/log.h"
#include "base/report.h"
#include "fs/accounts.h"

namespace harbix {

const MediaGroups& media_groups() {
  static const MediaGroups groups{.shared = fs::group_id(domains::SHARED_GROUP),
                                  .protected_media = fs::group_id(domains::PROTECTED_MEDIA_GROUP)};
  return groups;
}

bool is_skipped(const fs::File& item, const fs::EffectiveIds& ids) {
  if (item.record().st_gid == media_groups().protected_media) {
    report::progress("Skip: ", item.path());
    return true;
  }
  if (item.allows(fs::READ, ids)) return false;
  report_unreadable(item.path());
  return true;
}

void report_unreadable(const fs::Path& path) {
  diagnostics::line(1, "can't access: '%s'; skipping.", path.c_str());
  report::progress("permission denied: ", path, " skipping");
}

}  // namespace harbix
