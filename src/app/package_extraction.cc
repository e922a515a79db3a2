#include "app/package_extraction.h"

#include <unistd.h>

#include <iostream>
#include <stdexcept>
#include <utility>

#include "app/layout.h"
#include "base/flags.h"
#include "base/report.h"
#include "fs/exception.h"
#include "fs/identity.h"
#include "fs/working_directory.h"

namespace harbix {
std::optional<Refusal> refusal_of(const EntryView& entry, const FileRecord& record, Restorable restorable,
                                  PackageEntries& entries) {
  if (restorable == Restorable::DATA_FOLDERS && !is_in_kept_folder(record.path))
    return Refusal::NO_KEPT_FOLDER;
  if (!entry.is_restorable()) return Refusal::KIND;
  const mode_t type = entry.destination(record.path).record().st_mode & S_IFMT;
  // A record that calls a link a file, or a device, is no description of its entry.
  if (record.status && (record.status->mode & S_IFMT) != type) return Refusal::OTHER_KIND;
  // Nothing lies behind a link: what pretends to would be written to where the link leads.
  if (type == S_IFLNK && entries.leads_to_others(record.path)) return Refusal::LEADS_TO_OTHERS;
  return std::nullopt;
}

fs::File destination_of(const EntryView& entry, const FileRecord& record) {
  fs::File own = entry.destination(record.path);
  if (!record.status) return own;
  struct ::stat merged = own.record();
  merged.st_mode = record.status->mode;
  merged.st_uid = record.status->user;
  merged.st_gid = record.status->group;
  merged.st_mtim = {.tv_sec = record.status->modified, .tv_nsec = 0};
  return {record.path, merged};
}

std::optional<std::string> refusal_of_place(const fs::Path& place, uid_t user, gid_t group) try {
  const fs::EffectiveGroup effective_group(group);
  const fs::EffectiveUser effective_user(user);
  const fs::WorkingDirectory directory(place);
  return std::nullopt;
} catch (const fs::IdentityError&) {
  throw;
} catch (const std::runtime_error& error) {
  return error.what();
}

PackageExtraction::PackageExtraction(ArchiveReader& reader, const ApplicationPackage& package,
                                     const fs::Path& base, Restorable restorable)
    : reader_(reader),
      records_(package.records()),
      place_(base.dirname()),
      entries_(reader, records_, package.name(), base),
      restorable_(restorable) {}

bool PackageExtraction::has_place(uid_t user, gid_t group) const {
  const std::optional<std::string> refusal = refusal_of_place(place_, user, group);
  if (refusal) report::error(*refusal);
  return !refusal;
}

void PackageExtraction::extract(uid_t user, gid_t group) try {
  Extraction extraction(reader_, {.user = user, .group = group}, place_, Keep::NO, written_);
  extract_all(extraction);
} catch (const fs::Exception& unopened) {
  written_.note_missing();
  report::error(unopened.what());
}

void PackageExtraction::extract(uid_t user, gid_t group, fs::Folder place) {
  Extraction extraction(reader_, {.user = user, .group = group}, std::move(place), Keep::NO, written_);
  extract_all(extraction);
}

void PackageExtraction::extract_all(Extraction& extraction) {
  try {
    while (const std::optional<PackageEntries::Match> match = entries_.next())
      extract_one(extraction, *match);
  } catch (const fs::IdentityError&) {
    throw;
  } catch (const std::runtime_error& error) {
    // Not passed on: what is on disk by now still gets its owners and modes.
    written_.note_missing();
    report::error(error.what());
  }
  const int damage = reader_.error_number();
  if (damage != 0 && !entries_.has_every_item()) written_.note_missing();
  std::cerr << "Archive errno at this point: " << (damage != 0 ? damage : last_error_) << '\n';
}

void PackageExtraction::extract_one(Extraction& extraction, const PackageEntries::Match& match) {
  const FileRecord& record = records_[match.position];
  report::progress(record.size, ' ', record.path);
  if (!is_wanted(match.entry, record)) {
    std::cerr << "Skip: " + record.path.text() + '\n';
    reader_.skip(match.entry);
  } else if (pretend) {
    reader_.skip(match.entry);
  } else {
    put_on_disk(extraction, match.entry, record);
  }
}

bool PackageExtraction::is_wanted(const EntryView& entry, const FileRecord& record) {
  const std::optional<Refusal> refusal = refusal_of(entry, record, restorable_, entries_);
  if (refusal == Refusal::OTHER_KIND) {
    is_paired_ = false;
    report::error("The record of '" + record.path.text() + "' describes another kind of item than its entry");
  }
  return !refusal;
}

void PackageExtraction::put_on_disk(Extraction& extraction, const EntryView& entry,
                                    const FileRecord& record) {
  // Asked for the ids only when they are shown: these are two system calls for each file.
  if (verbose) report::progress("Extracting as ", ::geteuid(), ':', ::getegid(), record.path);
  const std::optional<ExtractionWarning> warning = extraction.extract(entry, destination_of(entry, record));
  last_error_ = warning ? warning->error_number : 0;
  if (!warning) return;
  report::progress("Error extracting ", record.path, warning->text);
  if (last_error_ != 0) std::cerr << "HERE\n";
}

}  // namespace harbix
