#include "driver/keywords.h"

#include <algorithm>
#include <array>
#include <iostream>

#include "app/backup.h"
#include "app/layout.h"
#include "app/restore.h"
#include "base/flags.h"
#include "base/log.h"
#include "media/backup.h"
#include "media/restore.h"
#include "media/share.h"
#include "settings/backup.h"
#include "settings/path_list.h"
#include "settings/restore.h"

namespace harbix {
namespace {

int archive_applications(const ArchiveRequest& request, SizeResult& result) {
  return harbix_app(request.writer, request.size_only, request.package_ids, result);
}

int archive_media(const ArchiveRequest& request, SizeResult& result) {
  return harbix_media(request.writer, request.size_only, result);
}

int restore_media(ArchiveReader& reader) {
  if (verbose) std::cerr << "Media\n";
  diagnostics::line(2, "Restoring media");
  const int result = harbix_media_restore(reader);
  diagnostics::line(2, "Restoring media finished. Return:%d", result);
  return result;
}

int archive_settings(const ArchiveRequest& request, SizeResult& result) {
  return harbix_settings(request.writer, request.size_only, result);
}

int restore_settings(ArchiveReader& reader) {
  if (verbose) std::cerr << "Settings\n";
  diagnostics::line(2, "Restoring settings");
  const int result = harbix_settings_restore(reader);
  reader.close();
  return result;
}

}  // namespace

std::span<const Keyword> all_keywords() {
  static const std::array<Keyword, 3> keywords{{
      {.name = "app",
       .label = "app",
       .prefixes = {fs::Path(places::APPLICATION_PREFIX)},
       .archive = archive_applications,
       .restore = harbix_app_restore},
      {.name = "media",
       .label = "Media",
       .prefixes = {fs::Path(places::MEDIA_PREFIX), fs::Path(places::DTM_PREFIX)},
       .archive = archive_media,
       .restore = restore_media},
      {.name = "settings",
       .label = "Settings",
       .prefixes = {fs::Path(places::SETTINGS_PREFIX)},
       .archive = archive_settings,
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
    } else if (!is_later) {
      section.earlier.insert(section.earlier.end(), other.prefixes.begin(), other.prefixes.end());
    } else if (std::ranges::find(selected, other.name) != selected.end()) {
      section.later.insert(section.later.end(), other.prefixes.begin(), other.prefixes.end());
    }
  }
  return section;
}

}  // namespace harbix
