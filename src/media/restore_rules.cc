#include "media/restore_rules.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

#include "base/domains.h"
#include "fs/accounts.h"
#include "fs/containment.h"
#include "fs/identity.h"
#include "fs/working_directory.h"
#include "media/room.h"
#include "media/share.h"

namespace harbix {
namespace {

constexpr std::array RELOCATED{places::BOOKMARKS_PREFIX};

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

bool is_relocated(const fs::Path& parent) {
  return std::ranges::any_of(RELOCATED,
                             [&parent](const char* place) { return parent.is_inside(fs::Path(place)); });
}

}  // namespace

bool look_before_wipe(ArchiveReader& reader) {
  const Survey* const survey = reader.survey();
  if (survey != nullptr && survey->damage()) return false;
  // Whatever is no archive at all is refused as well.
  reader.require_readable();
  if (survey == nullptr ? !begins_with_media(reader) : !holds_media(*survey))
    throw std::runtime_error("The archive holds no media");
  if (survey != nullptr) require_room(*survey);
  return true;
}

std::string damage_text(const Survey& survey) { return "The archive is damaged: " + *survey.damage(); }

MediaPlace place_of(const fs::Path& name) {
  return name.text().starts_with(places::DTM_PREFIX) ? MediaPlace::DTM : MediaPlace::SHARED;
}

fs::Path folder_of(MediaPlace place) {
  return {place == MediaPlace::DTM ? places::DTM_SHARE : places::SHARED};
}

Role role_in(MediaPlace place) {
  if (place == MediaPlace::DTM) return {.user = fs::SUPERUSER, .group = fs::group_id(domains::SYSTEM_GROUP)};
  return {.user = fs::user_id(domains::MEDIA_USER), .group = media_groups().shared};
}

void require_place(const fs::Path& path, const Role& role) {
  const fs::EffectiveGroup group(role.group);
  const fs::EffectiveUser user(role.user);
  const fs::WorkingDirectory directory(path);
  fs::require_working_directory(path, "Could not chdir");
}

MediaDestination destination_of(const fs::Path& name) {
  MediaDestination destination;
  if (place_of(name) == MediaPlace::DTM) {
    destination.below = name.relative_to(places::DTM_PREFIX);
    destination.target = fs::Path("./") / destination.below;
    return destination;
  }
  destination.below = fs::name_below(name, places::MEDIA_PREFIX);
  destination.is_relocated = is_relocated(name.dirname());
  const fs::Path folder(destination.is_relocated ? places::LOST_AND_FOUND : "./");
  destination.target = folder / destination.below;
  return destination;
}

std::optional<Refusal> refusal_of(const EntryView& entry, MediaPlace place,
                                  const std::function<bool()>& is_taken) {
  if (!entry.is_restorable()) return Refusal::KIND;
  if (place == MediaPlace::SHARED && is_taken()) return Refusal::EXISTS;
  return std::nullopt;
}

}  // namespace harbix
