#include "media/restore_area.h"

namespace harbix {

RestoreArea::RestoreArea(ArchiveReader& reader, gid_t group, uid_t user, const fs::Path& place)
    : group_(group), user_(user), directory_(place), extraction_(reader, Keep::NO, Keep::NO) {
  fs::require_working_directory(place, "Could not chdir");
}

void RestoreArea::extract(const EntryView& entry, const fs::Path& target) {
  extraction_.extract(entry, entry.destination(target));
}

}  // namespace harbix
