#include "inspect/application_check.h"

#include <sys/stat.h>

#include <algorithm>
#include <istream>

#include "app/layout.h"
#include "app/package_entries.h"
#include "archive/error.h"
#include "archive/manifest_text.h"
#include "archive/pps_object.h"
#include "fs/containment.h"

namespace harbix::inspect {
namespace {

mode_t mode_of(const EntryView& entry) { return entry.destination(fs::Path()).record().st_mode; }

}  // namespace

ApplicationCheck::ApplicationCheck(PackageName package, Findings& findings)
    : PackageCheck(std::move(package), findings), is_component_(is_home_screen(this->package().title)) {}

void ApplicationCheck::read_manifest(const Item& item, ArchiveReader& reader,
                                     const ManifestListener& listener) {
  try {
    read_attributes(reader, listener);
  } catch (const meta::malformed_manifest& error) {
    find(Severity::PROBLEM, "bad-manifest", std::string(error.what()) + ": the package does not come back",
         item);
  }
  if (reader.error_number() != 0) throw DataError(reader.error_text());
  judge_description();
}

void ApplicationCheck::read_attributes(ArchiveReader& reader, const ManifestListener& listener) {
  ManifestText text(reader, listener);
  std::istream stream(&text);
  meta::AttributeReader attributes(stream);
  RecordCollector records;
  while (const meta::Attribute* const attribute = attributes.next()) {
    take(*attribute);
    records.add(*attribute);
    for (const FileRecord& record : records.take()) take(record);
  }
  for (const FileRecord& record : records.finish()) take(record);
}

void ApplicationCheck::take(const meta::Attribute& attribute) {
  if (attribute.key == package_attributes::APP_DIRECTORY && !directory_) directory_ = attribute.value;
  if (attribute.key == package_attributes::DATA_DIRECTORY && !data_directory_)
    data_directory_ = attribute.value;
}

void ApplicationCheck::take(const FileRecord& record) {
  // Without a status it is not known to have vanished; with one of zeros it is.
  const mode_t mode = record.status ? record.status->mode : 0;
  table_.add(record.path.text(), record.size, mode != 0, mode);
  if (package().kind == Kind::OBJECTS || fs::is_record_path_below(record.path, base())) return;
  ++misplaced_;
  find(Severity::PROBLEM, "misplaced-record", "The record lies outside of its package's folder",
       record.path.text());
}

fs::Path ApplicationCheck::base() const {
  if (package().kind == Kind::OBJECTS) return {};
  if (is_component_) return data_folder(package().title);
  if (package().kind == Kind::BINARIES) return binary_folder(directory_.value_or(""));
  return data_directory_ ? fs::Path(*data_directory_) : data_folder(directory_.value_or(""));
}

void ApplicationCheck::judge_description() {
  if (is_component_) return;
  if (!directory_ || !data_directory_) {
    find(Severity::PROBLEM, "no-folder", "The manifest does not name the application's folders");
  } else if (!is_application_folder(*directory_)) {
    find(Severity::PROBLEM, "no-folder", "'" + *directory_ + "' is no name for an application's folder");
  } else if (is_home_screen(*directory_)) {
    find(Severity::PROBLEM, "no-folder", "'" + *directory_ + "' is a part of the home screen");
  } else if (fs::Path(*data_directory_) != data_folder(*directory_)) {
    find(Severity::PROBLEM, "no-folder",
         "'" + *data_directory_ + "' is not where the application's data lies");
  }
}

void ApplicationCheck::meet(const Item& item) {
  const std::optional<fs::Path> path = record_path(item.entry, package().path, base());
  if (path) {
    match(item, *path);
  } else if (kind_of(item.entry) == "folder") {
    find(Severity::NOTE, "wrong-place", "A folder outside of the package, which a restore passes over", item);
  } else {
    find(Severity::PROBLEM, "wrong-place", "Stands outside of its package: a restore passes over it", item);
  }
}

void ApplicationCheck::match(const Item& item, const fs::Path& path) {
  RecordTable::Record* const record = table_.find(path.text());
  if (record == nullptr) {
    find(Severity::PROBLEM, "no-record", "The manifest has no record of this item: a restore leaves it out",
         item);
    return;
  }
  if (record->is_met != 0) {
    find(Severity::PROBLEM, "twice", "The same name stands twice: the second is left out", item);
    return;
  }
  table_.meet(*record, kind_of(item.entry) == "folder");
  if (const std::optional<Flaw> flaw = refusal_of(item.entry, path)) {
    find(Severity::PROBLEM, flaw->code, std::string(flaw->reason), item);
  } else if (!is_component_ && record->had_item != 0 &&
             record->type != RecordTable::type_of(mode_of(item.entry))) {
    find(Severity::PROBLEM, "other-kind", "The record describes another kind of item", item);
  } else if (table_.is_behind_leaf(path.text())) {
    find(Severity::PROBLEM, "behind-leaf", "Lies behind something that is no folder", item);
  } else if (item.entry.is_plain_file() && package().kind != Kind::OBJECTS &&
             !RecordTable::has_size(*record, static_cast<std::uint64_t>(item.entry.size()))) {
    find(Severity::NOTE, "size", "The size is not the record's: the file changed during the backup", item);
  } else if (package().title == places::SYSTEM_TRAY && path.basename().text() != places::CLOCK_DATABASE) {
    find(Severity::NOTE, "left-out", "Never comes back: of the system tray only the clock's database does",
         item);
  }
}

std::optional<Flaw> ApplicationCheck::refusal_of(const EntryView& entry, const fs::Path& path) {
  if (std::optional<Flaw> flaw = flaw_of(entry, path)) return flaw;
  if (is_component_) return refusal_of_component(entry, path);
  if (package().kind == Kind::DATA && !is_in_kept_folder(path))
    return Flaw{"left-out", "Of an application's data only what lies in data, logs and tmp comes back"};
  return std::nullopt;
}

std::optional<Flaw> ApplicationCheck::refusal_of_component(const EntryView& entry,
                                                           const fs::Path& path) const {
  const std::optional<std::string_view> target = entry.link_target();
  const bool is_object = package().kind == Kind::OBJECTS;
  const fs::Path folder = is_object ? fs::Path(places::NAVIGATOR_OBJECT_FOLDER) : base();
  if (target && !fs::names_inside(path, *target, folder))
    return Flaw{"leads-out", "A restore refuses a link that leads out"};
  if (!is_object) return std::nullopt;
  if (std::ranges::find(places::NAVIGATOR_OBJECTS, path.text()) == places::NAVIGATOR_OBJECTS.end())
    return Flaw{"left-out", "No object that comes back"};
  if (!target && !entry.is_plain_file()) return Flaw{"kind", "No PPS object: a restore leaves it out"};
  if (entry.size() > LARGEST_ARCHIVED_OBJECT)
    return Flaw{"too-large", "A restore refuses a PPS object of more than 1 MiB"};
  return std::nullopt;
}

void ApplicationCheck::end() {
  table_.for_unmet([this](const RecordTable::Record& record, std::string_view path) {
    const std::string which = path.empty() ? "Record " + std::to_string(record.number + 1) : "The record";
    if (record.had_item != 0) {
      find(Severity::PROBLEM, "no-entry", which + " has no entry: the item is lost", path);
    } else {
      find(Severity::NOTE, "vanished", which + " has no entry: the item was missing during the backup", path);
    }
  });
}

}  // namespace harbix::inspect
