#include "media/restore.h"

#include <exception>
#include <iostream>
#include <optional>
#include <stdexcept>

#include "archive/error.h"
#include "archive/extraction.h"
#include "archive/metadata_entry.h"
#include "base/log.h"
#include "base/report.h"
#include "fs/exception.h"
#include "fs/identity.h"
#include "media/restore_rules.h"
#include "media/share.h"
#include "media/wipe.h"

namespace harbix {
namespace {

constexpr mode_t RESTORE_MASK = 007;

void report_failure(const char* text) {
  std::cerr << "Error: " << text << '\n';
  diagnostics::line(0, "Error occured: '%s'", text);
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
  void restore(const EntryView& entry, const fs::Path& name) {
    if (entry.begins_package()) {
      end_package();
      package_ = name.dirname();
      names_ = read_record_names(reader_);
    } else {
      restore_item(entry, name);
    }
  }

  void restore_item(const EntryView& entry, const fs::Path& name) {
    const MediaPlace place = place_of(name);
    enter(place);
    const MediaDestination destination = destination_of(name);
    const fs::Path& target = destination.target;
    names_.meet(destination.below);
    if (destination.is_relocated)
      std::cerr << "Relocating: " << name << " to: " << places::LOST_AND_FOUND << '\n';
    // Shared media are shown whatever becomes of them.
    if (place == MediaPlace::SHARED) report::progress("Restoring: ", target);
    // What stands there already, the extraction finds for itself: to look before would be one call more for
    // each file.
    const auto is_taken = [] { return false; };
    if (refusal_of(entry, place, is_taken) || !extract(entry, place, target)) skip(entry, target);
  }

  /// @return false where something of the shared media stands already.
  bool extract(const EntryView& entry, MediaPlace place, const fs::Path& target) {
    if (place == MediaPlace::SHARED) return area_->extract_new(entry, entry.destination(target));
    report::progress("Restoring: ", target);
    area_->extract(entry, entry.destination(target));
    return true;
  }

  /// Looks back at the package that ends: an item under a name that is not its own comes back all the same.
  void end_package() {
    if (!names_.has_changed_names()) return;
    report_changed_names(package_);
    completeness_.note_missing();
  }

  void skip(const EntryView& entry, const fs::Path& target) {
    diagnostics::line(4, "Skipping %s", target.c_str());
    report::progress("Skipping ", target);
    reader_.skip(entry);
  }

  /// Identity and directory are changed only when the place is another than that of the entry before.
  void enter(MediaPlace place) {
    if (place_ == place) return;
    area_.reset();
    place_.reset();
    const fs::Path path = folder_of(place);
    const Role role = role_in(place);
    require_place(path, role);
    area_.emplace(reader_, role, path, Keep::NO, completeness_);
    place_ = place;
  }

  ArchiveReader& reader_;
  Completeness& completeness_;
  fs::Path package_;   ///< the one at hand
  RecordNames names_;  ///< that its manifest lists
  std::optional<Extraction> area_;
  std::optional<MediaPlace> place_;  ///< of the area
};

}  // namespace
}  // namespace harbix

namespace harbix::media {

int restore(ArchiveReader& reader) {
  diagnostics::line(2, "harbix_media_restore");
  try {
    const bool is_whole = look_before_wipe(reader);
    if (is_whole) {
      diagnostics::line(4, "harbix_media_wipe");
      wipe_shared_media(reader);
    }
    const fs::FileMask mask(RESTORE_MASK);
    Completeness completeness;
    MediaRestore(reader, completeness).run();
    // Behind the media, where the restore did not get to it.
    if (!is_whole) throw std::runtime_error(damage_text(*reader.survey()));
    return completeness.result();
  } catch (const std::exception& error) {
    if (lacks_memory(error)) throw;  // the run is over
    report_failure(error.what());
    return 1;
  }
}

}  // namespace harbix::media
