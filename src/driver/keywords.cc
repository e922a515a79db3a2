#include "driver/keywords.h"

#include <algorithm>
#include <array>

#include "app/backup.h"
#include "app/layout.h"
#include "app/restore.h"
#include "base/log.h"
#include "base/report.h"
#include "media/backup.h"
#include "media/restore.h"
#include "media/share.h"
#include "settings/backup.h"
#include "settings/path_list.h"
#include "settings/restore.h"

namespace harbix {
namespace {

/// For a keyword that ids of packages do not narrow.
template <int (*BACK_UP)(ArchiveWriter&)>
int back_up_all(ArchiveWriter& writer, PackageIds /*ids*/) {
  return BACK_UP(writer);
}

template <int (*MEASURE)(ArchiveWriter&, SizeResult&)>
int measure_all(ArchiveWriter& writer, PackageIds /*ids*/, SizeResult& result) {
  return MEASURE(writer, result);
}

int restore_media(ArchiveReader& reader) {
  report::progress("Media");
  diagnostics::line(2, "Restoring media");
  const int result = media::restore(reader);
  diagnostics::line(2, "Restoring media finished. Return:%d", result);
  return result;
}

int restore_settings(ArchiveReader& reader) {
  report::progress("Settings");
  diagnostics::line(2, "Restoring settings");
  const int result = settings::restore(reader);
  reader.close();
  return result;
}

}  // namespace

std::span<const Keyword> all_keywords() {
  static const std::array<Keyword, 3> keywords{{
      {.name = "app",
       .label = "app",
       .prefixes = {places::APPLICATION_PREFIX},
       .back_up = app::back_up,
       .measure = app::measure,
       .restore = app::restore},
      {.name = "media",
       .label = "Media",
       .prefixes = {places::MEDIA_PREFIX, places::DTM_PREFIX},
       .back_up = back_up_all<media::back_up>,
       .measure = measure_all<media::measure>,
       .restore = restore_media},
      {.name = "settings",
       .label = "Settings",
       .prefixes = {places::SETTINGS_PREFIX},
       .back_up = back_up_all<settings::back_up>,
       .measure = measure_all<settings::measure>,
       .restore = restore_settings},
  }};
  return keywords;
}

bool is_keyword(std::string_view name) {
  return std::ranges::any_of(all_keywords(), [name](const Keyword& keyword) { return keyword.name == name; });
}

Section section_of(const Keyword& keyword, std::span<const std::string> selected) {
  Section section;
  bool is_later = false;
  for (const Keyword& other : all_keywords()) {
    if (other.name == keyword.name) {
      is_later = true;
      section.own = other.prefixes;
    } else if (!is_later) {
      section.earlier.insert(section.earlier.end(), other.prefixes.begin(), other.prefixes.end());
    } else if (std::ranges::find(selected, other.name) != selected.end()) {
      section.later.insert(section.later.end(), other.prefixes.begin(), other.prefixes.end());
    } else {
      section.rest.insert(section.rest.end(), other.prefixes.begin(), other.prefixes.end());
    }
  }
  return section;
}

}  // namespace harbix
