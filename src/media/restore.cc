#include "media/restore.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <iostream>
#include <new>
#include <optional>
#include <stdexcept>
#include <vector>

#include "archive/extraction.h"
#include "archive/metadata_entry.h"
#include "base/domains.h"
#include "base/log.h"
#include "base/report.h"
#include "fs/accounts.h"
#include "fs/containment.h"
#include "fs/exception.h"
#include "fs/identity.h"
#include "fs/working_directory.h"
#include "media/room.h"
#include "media/share.h"
#include "media/wipe.h"

namespace harbix {
namespace {

constexpr mode_t RESTORE_MASK = 007;

void report_failure(const char* text) {
  std::cerr << "Error: " << text << '\n';
  diagnostics::line(0, "Error occured: '%s'", text);
}

void wipe(const ArchiveReader& reader) {
  diagnostics::line(4, "harbix_media_wipe");
  const fs::Path path(places::SHARED);
  const fs::WorkingDirectory directory(path);
  fs::require_working_directory(path, "Could not change working directory to " + path.text());
  fs::Folder share(path);
  const fs::EffectiveGroup group(media_groups().shared);
  const fs::EffectiveUser user{std::string(domains::MEDIA_USER)};
  wipe_shared_media(share, reader);
}

/// Makes sure that a share is where it should be, and not behind a link, and that the role may enter it.
void require_place(const fs::Path& path, const Role& role) {
  const fs::EffectiveGroup group(role.group);
  const fs::EffectiveUser user(role.user);
  const fs::WorkingDirectory directory(path);
  fs::require_working_directory(path, "Could not chdir");
}

bool is_media(const fs::Path& name) {
  return name.is_inside(places::MEDIA_PREFIX) || name.text().starts_with(places::DTM_PREFIX);
}

/// Whether the next entry is of media. An archive without a single package or entry is a backup of nothing.
bool begins_with_media(ArchiveReader& reader) {
  const std::optional<EntryView> entry = reader.next_header();
  reader.hold_back();
  if (!entry) return !reader.has_met_package();
  const std::optional<fs::Path> name = entry->name();
  return name && is_media(*name);
}

bool holds_media(const Survey& survey) {
  const std::array<fs::Path, 2> prefixes{places::MEDIA_PREFIX, places::DTM_PREFIX};
  return survey.is_empty() || survey.has_entries_below(prefixes);
}

/// Makes sure that there is something to put in the place of what is removed, and room for it. Of an archive
/// that can be read only once, nothing but the first header of media is known.
/// @return whether the shared media may be emptied: not for an archive that cannot be read to its end.
/// @throws std::runtime_error
bool look_before_wipe(ArchiveReader& reader, const Survey* survey) {
  if (survey != nullptr && survey->damage()) return false;
  // Whatever is no archive at all is refused as well.
  reader.require_readable();
  if (survey == nullptr ? !begins_with_media(reader) : !holds_media(*survey))
    throw std::runtime_error("The archive holds no media");
  if (survey != nullptr) require_room(*survey);
  return true;
}

class MediaRestore {
 public:
  MediaRestore(ArchiveReader& reader, Completeness& completeness)
      : reader_(reader), completeness_(completeness) {}

  void run() {
    while (const std::optional<EntryView> entry = reader_.next_header()) {
      if (const std::optional<fs::Path> name = entry->name()) {
        restore(*entry, *name);
      } else {
        completeness_.note_missing();
        report_failure("Malformed archive: an entry has no name");
        reader_.skip(*entry);
      }
    }
    end_package();
  }

 private:
  enum class Place { NONE, SHARED, DTM };

  void restore(const EntryView& entry, const fs::Path& name) {
    if (entry.begins_package()) {
      end_package();
      package_ = name.dirname();
      names_ = read_record_names(reader_);
    } else if (name.text().starts_with(places::DTM_PREFIX)) {
      restore_dtm(entry, name);
    } else {
      restore_media(entry, name);
    }
  }

  void restore_dtm(const EntryView& entry, const fs::Path& name) {
    enter(Place::DTM);
    const fs::Path below = name.relative_to(places::DTM_PREFIX);
    names_.meet(below);
    const fs::Path target = fs::Path("./") / below;
    if (!entry.is_restorable()) {
      skip(entry, target);
      return;
    }
    report::progress("Restoring: ", target);
    area_->extract(entry, entry.destination(target));
  }

  void restore_media(const EntryView& entry, const fs::Path& name) {
    enter(Place::SHARED);
    const fs::Path target = media_target(name);
    report::progress("Restoring: ", target);
    if (!entry.is_restorable() || is_taken(target)) {
      skip(entry, target);
    } else {
      area_->extract(entry, entry.destination(target));
    }
  }

  /// Whether something stands at `target` already. Where the disk does not say, the entry is given up: it
  /// could take the place of an existing file.
  bool is_taken(const fs::Path& target) {
    const fs::Path path = area_->folder().relative(target);
    try {
      static_cast<void>(area_->folder().file(path));
      return true;
    } catch (const fs::Exception& error) {
      if (leads_nowhere(error.error())) return false;
      report_unwritten(area_->folder().path() / path, error.reason());
      completeness_.note_missing();
      return true;
    }
  }

  /// Whether nothing can stand at a path that gives this error; what is wrong with it is left to the
  /// extraction.
  static bool leads_nowhere(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == EXDEV;
  }

  /// Where an entry goes, relative to the shared media.
  [[nodiscard]] fs::Path media_target(const fs::Path& name) {
    const fs::Path below = fs::name_below(name, places::MEDIA_PREFIX);
    names_.meet(below);
    fs::Path folder("./");
    if (is_relocated(name.dirname())) {
      folder = places::LOST_AND_FOUND;
      std::cerr << "Relocating: " << name << " to: " << folder << '\n';
    }
    return folder / below;
  }

  /// Looks back at the package that ends: an item under a name that is not its own comes back all the same.
  void end_package() {
    if (!names_.has_changed_names()) return;
    report_changed_names(package_);
    completeness_.note_missing();
  }

  [[nodiscard]] bool is_relocated(const fs::Path& parent) const {
    return std::ranges::any_of(relocated_,
                               [&parent](const fs::Path& place) { return parent.is_inside(place); });
  }

  void skip(const EntryView& entry, const fs::Path& target) {
    diagnostics::line(4, "Skipping %s", target.c_str());
    report::progress("Skipping ", target);
    reader_.skip(entry);
  }

  /// Identity and directory are changed only when the place is another than that of the entry before.
  void enter(Place place) {
    if (place_ == place) return;
    area_.reset();
    place_ = Place::NONE;
    const fs::Path path(place == Place::DTM ? places::DTM_SHARE : places::SHARED);
    const Role role = place == Place::DTM
                          ? Role{.user = fs::SUPERUSER, .group = fs::group_id(domains::SYSTEM_GROUP)}
                          : Role{.user = fs::user_id(domains::MEDIA_USER), .group = media_groups().shared};
    require_place(path, role);
    area_.emplace(reader_, role, path, Keep::NO, completeness_);
    place_ = place;
  }

  ArchiveReader& reader_;
  Completeness& completeness_;
  std::vector<fs::Path> relocated_{places::BOOKMARKS_PREFIX};
  fs::Path package_;   ///< the one at hand
  RecordNames names_;  ///< that its manifest lists
  std::optional<Extraction> area_;
  Place place_ = Place::NONE;
};

}  // namespace
}  // namespace harbix

namespace harbix::media {

int restore(ArchiveReader& reader) {
  diagnostics::line(2, "harbix_media_restore");
  try {
    const Survey* const survey = reader.survey();
    const bool is_whole = look_before_wipe(reader, survey);
    if (is_whole) wipe(reader);
    const fs::FileMask mask(RESTORE_MASK);
    Completeness completeness;
    MediaRestore(reader, completeness).run();
    // Behind the media, where the restore did not get to it.
    if (!is_whole) throw std::runtime_error("The archive is damaged: " + *survey->damage());
    return completeness.result();
  } catch (const std::bad_alloc&) {
    throw;  // the run is over
  } catch (const std::exception& error) {
    report_failure(error.what());
    return 1;
  }
}

}  // namespace harbix::media
