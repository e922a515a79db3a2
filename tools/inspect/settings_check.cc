#include "inspect/settings_check.h"

#include <istream>

#include "archive/error.h"
#include "archive/manifest.h"
#include "archive/manifest_text.h"
#include "archive/pps_object.h"
#include "base/places.h"
#include "fs/containment.h"
#include "settings/path_list.h"
#include "settings/verification.h"

namespace harbix::inspect {

void SettingsCheck::read_manifest(const Item& item, ArchiveReader& reader, const ManifestListener& listener) {
  ManifestText text(reader, [&](std::string_view piece) {
    listener(piece);
    add_piece(piece);
  });
  std::istream stream(&text);
  try {
    meta::AttributeReader attributes(stream);
    while (attributes.next() != nullptr) {
    }
  } catch (const meta::malformed_manifest& error) {
    find(Severity::PROBLEM, "bad-manifest", std::string(error.what()) + ": no setting comes back", item);
  }
  if (reader.error_number() != 0) throw DataError(reader.error_text());
  end_records();
}

void SettingsCheck::meet(const Item& item) {
  if (!item.name.is_inside(places::SETTINGS_PREFIX)) {
    find(Severity::PROBLEM, "wrong-place", "No item of settings: a restore refuses it", item);
    return;
  }
  const fs::Path target = fs::Path(places::ROOT) / item.name.relative_to(places::SETTINGS_PREFIX);
  const bool is_new = meet_path(item, target, is_pps_path(target) ? Size::IS_ANY : Size::COUNTS);
  if (const std::optional<Flaw> flaw = refusal_of(item.entry, target)) {
    find(Severity::PROBLEM, flaw->code, std::string(flaw->reason), item);
  } else if (!is_new) {
    find(Severity::PROBLEM, "twice", "The same name stands twice: one of the two is lost", item);
  }
}

std::optional<Flaw> SettingsCheck::refusal_of(const EntryView& entry, const fs::Path& target) {
  if (std::optional<Flaw> flaw = flaw_of(entry, target)) return flaw;
  const std::optional<std::string_view> link = entry.link_target();
  if (link && !fs::names_inside(target, *link, target.dirname()))
    return Flaw{"leads-out", "A restore refuses a link that leads out of its folder"};
  if (has_tricks(target.text()))
    return Flaw{"leads-out", "A restore refuses a path that is not in normal form"};
  if (is_pps_path(target) && entry.size() > LARGEST_ARCHIVED_OBJECT)
    return Flaw{"too-large", "A restore refuses a PPS object of more than 1 MiB"};
  return std::nullopt;
}

}  // namespace harbix::inspect
