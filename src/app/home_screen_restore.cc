#include "app/home_screen_restore.h"

#include <iostream>
#include <vector>

#include "app/component_restore.h"
#include "app/home_screen_rules.h"
#include "app/layout.h"
#include "app/package_entries.h"
#include "archive/pps_object.h"
#include "base/report.h"
#include "fs/exception.h"
#include "fs/tree.h"
#include "fs/walk.h"

namespace harbix {
namespace {

constexpr mode_t NAVIGATOR_MASK = 0177;
constexpr mode_t SYSTEM_TRAY_MASK = 0117;
constexpr mode_t CLOCK_DATABASE_MODE = 0660;

void skip(ArchiveReader& reader, const EntryView& entry, const fs::Path& path) {
  std::cerr << "Skip: " << path << '\n';
  reader.skip(entry);
}

class NavigatorObjects {
 public:
  NavigatorObjects(ArchiveReader& reader, const ApplicationPackage& package)
      : reader_(reader),
        records_(package.records()),
        entries_(reader, records_, package_name(places::NAVIGATOR, places::OBJECT_KIND), fs::Path()) {}

  void restore(Completeness& completeness) {
    while (const std::optional<PackageEntries::Match> match = entries_.next()) {
      try {
        restore_one(match->entry, records_[match->position].path);
      } catch (const fs::Exception& failure) {
        report::error(failure.what());
        completeness.note_missing();
      }
    }
    if (!entries_.is_complete()) completeness.note_missing();
  }

 private:
  void restore_one(const EntryView& entry, const fs::Path& object) {
    std::cerr << "Navigator pps object: " << entry.name().value_or(fs::Path()) << '\n';
    const std::optional<Refusal> refusal = refusal_of_object(root_, entry, object);
    if (refusal == Refusal::UNKNOWN_OBJECT) {
      reader_.skip(entry);
      return;
    }
    std::cerr << "Restoring: " << object << '\n';
    if (refusal) {
      skip(reader_, entry, object);
    } else {
      restore_pps_object(reader_, entry, object);
    }
  }

  ArchiveReader& reader_;
  const std::vector<FileRecord>& records_;
  PackageEntries entries_;
  fs::Folder root_{"/"};
};

/// Empties the navigator's data folder, but for hidden names.
void remove_navigator_data() {
  fs::Folder all_data(places::APPLICATION_DATA);
  const fs::Path data = fs::Path(places::NAVIGATOR) / places::DATA_FOLDER;
  if (!all_data.holds(data) || !all_data.file(data).is_directory()) return;
  std::vector<fs::Path> old;
  fs::Walk walk(all_data, data, data);
  while (const fs::WalkItem* item = walk.next()) {
    walk.stay_out();
    if (item->failure) throw fs::Exception(*item->failure);
    if (is_replaced_navigator_data(item->file.path())) old.push_back(item->file.path());
  }
  for (const fs::Path& item : old) fs::remove_tree(all_data, item);
}

void restore_navigator_data(ArchiveReader& reader, const ApplicationPackage& package, uid_t user,
                            OldData old_data, Completeness& completeness) {
  const fs::Path folder = data_folder(places::NAVIGATOR);
  ComponentRestore component(reader, user, NAVIGATOR_MASK, completeness);
  PackageEntries entries(reader, package.records(), package.name(), folder);
  if (!entries.is_readable()) return;
  if (old_data == OldData::REMOVED) {
    remove_navigator_data();
    std::cerr << "Navigator data removed\n";
  }
  fs::Folder root("/");
  while (const std::optional<PackageEntries::Match> match = entries.next()) {
    const fs::Path& path = package.records()[match->position].path;
    std::cerr << "Restoring: " << path << '\n' << path << '\n';
    if (refusal_of_navigator_data(root, match->entry, path, fs::exists)) {
      skip(reader, match->entry, path);
    } else {
      component.extract(match->entry, match->entry.destination(path));
    }
  }
  if (!entries.is_complete()) completeness.note_missing();
}

fs::File clock_database(const EntryView& entry, const fs::Path& path) {
  struct ::stat record = entry.destination(path).record();
  record.st_mode &= S_IFMT | CLOCK_DATABASE_MODE;
  return {path, record};
}

void restore_system_tray_data(ArchiveReader& reader, const ApplicationPackage& package, uid_t user,
                              Completeness& completeness) {
  const fs::Path folder = data_folder(places::SYSTEM_TRAY);
  ComponentRestore component(reader, user, SYSTEM_TRAY_MASK, completeness);
  // Nothing is: only one file comes back, in the place of the old one.
  std::cerr << "System tray data removed\n";
  PackageEntries entries(reader, package.records(), package.name(), folder);
  fs::Folder root("/");
  while (const std::optional<PackageEntries::Match> match = entries.next()) {
    const EntryView& entry = match->entry;
    const fs::Path& path = package.records()[match->position].path;
    const fs::Path name = entry.name().value_or(fs::Path());
    std::cerr << "ae.path: " << name << "  basename: " << name.basename() << "\nit: " << path << '\n';
    const std::optional<Refusal> refusal = refusal_of_system_tray_data(root, entry, path);
    if (refusal != Refusal::NO_CLOCK_DATABASE) std::cerr << "Restoring: " << name << '\n';
    if (refusal) {
      skip(reader, entry, path);
    } else {
      component.extract(entry, clock_database(entry, path));
    }
  }
  if (!entries.is_complete()) completeness.note_missing();
}

/// A package without records holds nothing, unless its list is damaged.
void report_unlisted_entries(ArchiveReader& reader, const ApplicationPackage& package,
                             Completeness& completeness) {
  PackageEntries entries(reader, package.records(), package.name(), fs::Path());
  // Answers none, after it has skipped them all.
  static_cast<void>(entries.next());
  if (!entries.is_complete()) completeness.note_missing();
}

}  // namespace

void restore_home_screen(ArchiveReader& reader, const ApplicationPackage& package, uid_t user,
                         OldData old_data, Completeness& completeness) {
  const HomeScreenPart part = part_of(package);
  if (part == HomeScreenPart::NOTHING) {
    report_unlisted_entries(reader, package, completeness);
    return;
  }
  std::cerr << "Processing: " << package.metadata_name() << '\n';
  if (part == HomeScreenPart::OBJECTS) {
    NavigatorObjects(reader, package).restore(completeness);
    return;
  }
  const std::vector<fs::Path> components = package.metadata_name().components();
  for (const fs::Path& component : components) std::cerr << component << '\n';
  if (part == HomeScreenPart::NAVIGATOR_DATA) {
    std::cerr << "navigator data: " << package.metadata_name() << '\n';
    restore_navigator_data(reader, package, user, old_data, completeness);
  } else if (part == HomeScreenPart::SYSTEM_TRAY_DATA) {
    std::cerr << "systray data: " << package.metadata_name() << '\n';
    restore_system_tray_data(reader, package, user, completeness);
  } else {
    std::cerr << "I'm confused: it was supposed to be HMI component. Just skip.\n";
  }
}

}  // namespace harbix
