#include "settings/restore_identity.h"

namespace harbix {

RestoreIdentity::RestoreIdentity(ArchiveReader& reader, uid_t owner)
    : owner_(owner), group_(GROUP), user_(owner), extraction_(reader, Keep::NO, Keep::YES) {}

void RestoreIdentity::extract(const EntryView& entry, const fs::File& target) {
  struct ::stat record = target.record();
  record.st_mode &= ~static_cast<mode_t>(S_ISUID | S_ISGID | S_ISVTX);
  extraction_.extract(entry, {target.path(), record});
}

}  // namespace harbix
