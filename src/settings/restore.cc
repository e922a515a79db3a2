#include "settings/restore.h"

#include <exception>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>

#include "archive/error.h"
#include "archive/extraction.h"
#include "archive/file_record.h"
#include "archive/metadata_entry.h"
#include "archive/pps_object.h"
#include "archive/space_report.h"
#include "base/flags.h"
#include "base/report.h"
#include "fs/containment.h"
#include "fs/identity.h"
#include "fs/working_directory.h"
#include "platform/streams.h"
#include "settings/path_list.h"
#include "settings/script_lists.h"
#include "settings/verification.h"
#include "subscribers/subscribers.h"

namespace harbix {
namespace {

// The group that owns settings which were not there before.
constexpr gid_t GROUP = 0;

class SettingsRestore {
 public:
  SettingsRestore(ArchiveReader& reader, Completeness& completeness)
      : reader_(reader), completeness_(completeness), allowed_(allowed_settings(completeness)) {}

  void run() {
    while (reader_.error_number() == 0) {
      RecordNames names;
      const std::optional<Package> package =
          find_manifest(reader_, METADATA_NAME, OtherEntries::REFUSE, &names);
      if (!package) {
        report::progress("EOF");
        break;
      }
      if (verbose) report_space(*package);
      if (reader_.error_number() == 0) restore_package(*package, names);
    }
    // An archive that is cut within its metadata must not pass for a whole one.
    if (reader_.error_number() != 0)
      throw std::runtime_error("Archive not ARCHIVE_OK " + reader_.error_text());
    // The writer of a pipe may leave it open, and is not waited for.
    if (reader_.input().is_regular() && reader_.has_more_behind_end())
      throw std::runtime_error(MORE_BEHIND_END);
  }

 private:
  static void report_space(const Package& package) {
    const std::vector<FileRecord> records = read_file_records(package.manifest);
    // The counters of this report have always been 32 bits wide, and its readers expect them to wrap.
    std::cerr << space_report(wrapped_at_32_bits(space_needed(records)), package.entry_name);
  }

  /// An item under a name that is not its own is most often refused, and would be missing unseen.
  void restore_package(const Package& package, RecordNames& names) {
    restore_entries(names);
    if (!names.has_changed_names()) return;
    report_changed_names(fs::Path(package.entry_name).dirname());
    completeness_.note_missing();
  }

  /// Restores up to the next package or the end of the section. The records are not counted on: names with
  /// line ends can make more or fewer of them than there are entries.
  void restore_entries(RecordNames& names) {
    while (const std::optional<EntryView> entry = reader_.next_header()) {
      const std::optional<fs::Path> name = entry->name();
      if (!name) {
        completeness_.note_missing();
        report::error("Malformed archive: an entry has no name");
        reader_.skip(*entry);
      } else if (entry->begins_package()) {
        reader_.hold_back();
        return;
      } else {
        note_name(*name, names);
        restore_one(*entry, *name);
      }
    }
  }

  static void note_name(const fs::Path& name, RecordNames& names) {
    const fs::Path prefix(places::SETTINGS_PREFIX);
    if (name.is_inside(prefix)) names.meet(fs::Path(places::ROOT) / name.relative_to(prefix));
  }

  void restore_one(const EntryView& entry, const fs::Path& name) {
    try {
      restore_or_skip(entry, name);
    } catch (const fs::IdentityError&) {
      throw;  // the next entry would be restored under another identity
    } catch (const std::runtime_error& error) {
      std::cerr << "WARNING: File " << name << " could not be restored due to " << error.what() << '\n';
      completeness_.note_missing();
      // Reported; left in place it would end the search for the next package.
      reader_.clear_error();
    }
  }

  void restore_or_skip(const EntryView& entry, const fs::Path& name) {
    const fs::Path target = fs::Path(places::ROOT) / fs::name_below(name, places::SETTINGS_PREFIX);
    if (const std::optional<Refusal> refusal = refusal_of_entry(entry, target)) {
      if (refusal == Refusal::TRICKS) std::cerr << "Path " << target << " failed verification for restore\n";
      std::cerr << "Skip: " << name << '\n';
      reader_.skip(entry);
      return;
    }
    const fs::File destination = entry.destination(target);
    become(destination.record().st_uid);
    std::cerr << "Restore: " << name << '\n';
    if (is_pps_path(target)) {
      restore_pps_object(reader_, entry, target);
    } else {
      struct ::stat record = destination.record();
      record.st_mode &= ~static_cast<mode_t>(S_ISUID | S_ISGID | S_ISVTX);
      extraction_->extract(entry, {target, record});
    }
  }

  [[nodiscard]] std::optional<Refusal> refusal_of_entry(const EntryView& entry, const fs::Path& target) {
    // What is looked up must not depend on what the owner of the entry before may see.
    const fs::EffectiveUser superuser(fs::SUPERUSER);
    return refusal_of(root_, allowed_, entry, target, exists_as_folder_or_link);
  }

  void become(uid_t owner) {
    if (extraction_ && extraction_->role().user == owner) return;
    extraction_.reset();
    extraction_.emplace(reader_, Role{.user = owner, .group = GROUP}, places::ROOT, Keep::YES, completeness_);
  }

  ArchiveReader& reader_;
  Completeness& completeness_;
  AllowedSettings allowed_;
  fs::Folder root_{places::ROOT};
  std::optional<Extraction> extraction_;  ///< kept while entries of one owner follow each other
};

void restore_settings(ArchiveReader& reader, Completeness& completeness) {
  static_cast<void>(settings_script_list(ScriptList::WHITELIST));
  static_cast<void>(settings_script_list(ScriptList::BLACKLIST));
  subscribers::SubscriberNotice notice(true, subscribers::SubscriberManager::NOTIFY_MODE);
  notice.start();
  // A stream that fails is reported where it is written to.
  platform::flushall();
  const fs::WorkingDirectory root{places::ROOT};
  SettingsRestore(reader, completeness).run();
}

}  // namespace
}  // namespace harbix

namespace harbix::settings {

int restore(ArchiveReader& reader) {
  try {
    Completeness completeness;
    restore_settings(reader, completeness);
    platform::flushall();
    return completeness.result();
  } catch (const std::exception& error) {
    if (lacks_memory(error)) throw;  // the run is over
    report::error(error.what());
    return 1;
  }
}

}  // namespace harbix::settings
