#include "inspect/planned_extraction.h"

#include <set>
#include <stdexcept>

#include "fs/identity.h"
#include "inspect/archive_pass.h"

namespace harbix::inspect {

void PlannedPairing::skip(const EntryView& entry, bool is_inside) {
  // A tar program that packed unpacked files again stores the folders above the package as well.
  if (!is_inside && kind_of(entry) == "folder") return;
  ++plan_.left_out;
  report_.leave_out(plan_.package, entry.name().value_or(fs::Path()), fs::Path(),
                    is_inside ? "no record in the manifest" : "stands outside of its package");
}

void PlannedPairing::report_missed(const std::vector<FileRecord>& records) {
  std::set<std::string> missed;
  for (const fs::Path& path : missed_) missed.insert(path.text());
  for (const FileRecord& record : records) {
    if (!record.status || record.status->mode == 0 || missed.erase(record.path.text()) == 0) continue;
    ++plan_.left_out;
    report_.leave_out(plan_.package, record.path, record.path, "no entry in the archive");
  }
}

void PlannedExtraction::run(const ItemRefusal& place) {
  try {
    while (const std::optional<PackageEntries::Match> match = entries_.next()) {
      take(*match, place);
    }
  } catch (const fs::IdentityError&) {
    throw;
  } catch (const std::runtime_error& error) {
    is_on_disk_ = false;
    plan_.reason = error.what();
  }
  if (reader_.error_number() != 0 && !entries_.has_every_item()) is_on_disk_ = false;
  pairing_.report_missed(records_);
}

void PlannedExtraction::take(const PackageEntries::Match& match, const ItemRefusal& place) {
  const FileRecord& record = records_[match.position];
  const std::optional<std::string> refusal = place(match.entry, record);
  ++(refusal ? plan_.left_out : plan_.restored);
  if (refusal)
    report_.leave_out(plan_.package, match.entry.name().value_or(fs::Path()), record.path, *refusal);
  pass_over(reader_, match.entry, record.path, refusal.has_value());
}

}  // namespace harbix::inspect
