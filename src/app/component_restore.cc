#include "app/component_restore.h"

#include <sys/stat.h>

#include <utility>

#include "app/places.h"
#include "app/record_path.h"
#include "archive/link_check.h"
#include "fs/file.h"

namespace harbix {
namespace {

constexpr mode_t READING = 0444;
constexpr mode_t SEARCHING = 0111;
constexpr mode_t EVERYTHING = 0777;

mode_t folder_mode(mode_t wanted, mode_t mask) {
  const mode_t allowed = wanted & EVERYTHING & ~mask;
  return allowed | (allowed & READING) >> 2U;
}

}  // namespace

ComponentRestore::ComponentRestore(ArchiveReader& reader, fs::Path folder, uid_t user, mode_t mask)
    : folder_(std::move(folder)),
      mask_(mask),
      group_(GROUP),
      user_(user),
      file_mask_(mask),
      extraction_(reader, Keep::NO, Keep::NO) {}

bool ComponentRestore::accepts(const fs::Path& path) const { return is_record_path_below(path, folder_); }

bool ComponentRestore::accepts(const EntryView& entry, const fs::Path& path) const {
  if (!entry.is_restorable()) return false;
  const std::optional<std::string_view> target = entry.link_target();
  return !target || leads_inside(path, *target, folder_);
}

void ComponentRestore::extract(const EntryView& entry, const fs::File& destination) {
  make_folders_above(destination.path());
  if (!destination.is_directory()) {
    extraction_.extract(entry, destination);
    return;
  }
  const fs::FileMask mask(mask_ & ~SEARCHING);
  struct ::stat record = destination.record();
  record.st_mode = S_IFDIR | folder_mode(record.st_mode, mask_);
  extraction_.extract(entry, {destination.path(), record});
}

void ComponentRestore::make_folders_above(const fs::Path& path) const {
  const fs::FileMask mask(mask_ & ~SEARCHING);
  fs::Path folder(places::APPLICATION_DATA);
  for (const fs::Path& name : path.dirname().relative_to(folder).components()) {
    folder /= name;
    if (!fs::exists(folder)) {
      struct ::stat record {};
      record.st_mode = folder_mode(EVERYTHING, mask_);
      fs::File(folder, record).mkdir();
    } else if (!fs::File(folder).is_directory()) {
      // Nothing is made behind a link; extraction tells of it.
      return;
    }
  }
}

}  // namespace harbix
