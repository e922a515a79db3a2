#include "app/component_restore.h"

#include <sys/stat.h>

#include <cerrno>

#include "app/layout.h"
#include "fs/exception.h"
#include "fs/folder.h"

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

ComponentRestore::ComponentRestore(ArchiveReader& reader, uid_t user, mode_t mask, Completeness& completeness)
    : mask_(mask),
      file_mask_(mask),
      extraction_(reader, {.user = user, .group = GROUP}, places::APPLICATION_DATA, Keep::NO, completeness) {}

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

void ComponentRestore::make_folders_above(const fs::Path& path) {
  const fs::FileMask mask(mask_ & ~SEARCHING);
  fs::Folder& all_data = extraction_.folder();
  fs::Path folder;
  for (const fs::Path& name : all_data.relative(path.dirname()).components()) {
    folder = folder.empty() ? name : folder / name;
    if (all_data.holds(folder)) {
      // Nothing is made behind a link; extraction reports it.
      if (!all_data.file(folder).is_directory()) return;
      continue;
    }
    const fs::Place place = all_data.place_of(folder);
    if (::mkdirat(place.folder, place.name, folder_mode(EVERYTHING, mask_)) == -1) {
      const int error = errno;
      throw fs::Exception(error, "Mkdir '" + (all_data.path() / folder).text() + "' failed.");
    }
  }
}

}  // namespace harbix
