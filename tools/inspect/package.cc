#include "inspect/package.h"

#include <algorithm>
#include <array>
#include <vector>

#include <archive_entry.h>

#include "app/layout.h"
#include "archive/package_name.h"
#include "media/share.h"

namespace harbix::inspect {
namespace {

Kind kind_of_application(std::string_view name) {
  if (name == places::BINARY_KIND) return Kind::BINARIES;
  return name == places::DATA_KIND ? Kind::DATA : Kind::OBJECTS;
}

}  // namespace

PackageName package_of(const fs::Path& name) {
  const fs::Path path = name.dirname();
  const std::string_view part = part_of(path.text());
  const std::vector<fs::Path> names = path.components();
  const std::string title = names.size() > 1 ? names[1].text() : "";
  if (part == places::APPLICATION_PREFIX)
    return {Keyword::APP, kind_of_application(names.back().text()), path, title};
  if (part == places::MEDIA_PREFIX) return {Keyword::MEDIA, Kind::MEDIA, path, title};
  if (part == places::DTM_PREFIX) return {Keyword::MEDIA, Kind::DTM, path, title};
  return {Keyword::SETTINGS, Kind::SETTINGS, path, ""};
}

std::string_view package_path_in(std::string_view name) {
  // "/app/P/bin" is as deep as they lie.
  constexpr int MOST_COMPONENTS = 3;
  std::size_t end = 0;
  for (int i = 0; i < MOST_COMPONENTS && end < name.size(); ++i) {
    end = std::min(name.find(fs::Path::SEPARATOR, end + 1), name.size());
    const std::string_view path = name.substr(0, end);
    if (begins_package(std::string(path) + '/' + std::string(METADATA_NAME))) return path;
  }
  return "";
}

std::string_view text_of(Keyword keyword) {
  constexpr std::array<std::string_view, 3> TEXTS{"app", "media", "settings"};
  return TEXTS.at(static_cast<std::size_t>(keyword));
}

std::string_view text_of(Kind kind) {
  constexpr std::array<std::string_view, 6> TEXTS{"binaries", "data", "objects", "media", "dtm", "settings"};
  return TEXTS.at(static_cast<std::size_t>(kind));
}

std::string_view kind_of(const EntryView& entry) {
  if (entry.is_hard_link()) return "hard link";
  switch (::archive_entry_filetype(entry.get())) {
    case AE_IFREG:
      return "file";
    case AE_IFDIR:
      return "folder";
    case AE_IFLNK:
      return "link";
    default:
      return "other";
  }
}

bool is_at_or_below(std::string_view name, std::string_view path) {
  return name.starts_with(path) && (name.size() == path.size() || name[path.size()] == fs::Path::SEPARATOR);
}

}  // namespace harbix::inspect
